// Rows of pixels to planes of samples.
#include <algorithm>

#include "formats/jpeg/encode/encoder.h"

namespace tq::jpeg {
namespace {

bool has_grey_palette(const HeaderBlock& image) {
  return std::all_of(image.palette.begin(), image.palette.end(), [](const Rgb& entry) {
    return entry.red == entry.green && entry.green == entry.blue;
  });
}

// Whether every index of a grey palette is its own level.
bool has_ramp_palette(const HeaderBlock& image) {
  std::uint8_t level = 0;
  return std::all_of(image.palette.begin(), image.palette.end(),
                     [&level](const Rgb& entry) { return entry.red == level++; });
}

}  // namespace

Status choose_pixels(const formats::EncodeRequest& request, Accuracy accuracy, Pixels& pixels) {
  const HeaderBlock& image = *request.image;
  switch (image.header.biBitCount) {
    case 8:
      pixels = has_grey_palette(image) ? Pixels::grey : Pixels::palette;
      return kOk;
    case 24:
      pixels = Pixels::bgr;
      return kOk;
    case 32:
      pixels = accuracy == Accuracy::exact && !request.cmyk ? Pixels::bgrx : Pixels::four;
      return kOk;
    default:
      return StatusCode::wrong_depth;
  }
}

Status Planes::allocate(const formats::EncodeRequest& request, Pixels pixels,
                        const EncodedFrame& frame) {
  request_ = &request;
  pixels_ = pixels;
  frame_ = &frame;
  kernels_ = kernels(frame.writing.accuracy);
  ramp_ = pixels == Pixels::grey && has_ramp_palette(*request.image);
  mcus_ = (frame.width + 8 * frame.h() - 1) / (8 * frame.h());
  const bool exact = frame.writing.exact();
  std::uint64_t total = 0;
  std::array<std::uint64_t, kMostEncodedComponents> starts{};
  for (int i = 0; i < frame.count; ++i) {
    Plane& plane = planes_[i];
    plane.h = frame.components[i].h;
    plane.v = frame.components[i].v;
    const int decimation = frame.h() / plane.h;
    plane.width = (frame.width + decimation - 1) / decimation;
    plane.padded_width = 8 * mcus_ * plane.h;
    plane.columns = exact ? columns(i) : mcus_ * plane.h;
    plane.rows = plane.v;
    plane.stride = plane.padded_width + kKernelMargin;
    starts[i] = total;
    total += std::uint64_t{8} * plane.v * plane.stride;
  }
  TQ_TRY(samples_.allocate((total + kKernelMargin) * sizeof(std::int16_t)));
  for (int i = 0; i < frame.count; ++i) {
    planes_[i].samples = reinterpret_cast<std::int16_t*>(samples_.data()) + starts[i];
  }
  if (exact && frame.count > 1) {
    const std::ptrdiff_t stride = planes_[0].stride;
    const std::uint64_t room = std::uint64_t{2} * frame.v() * stride + kKernelMargin;
    TQ_TRY(full_chroma_.allocate(room * sizeof(std::int16_t)));
    auto* next = reinterpret_cast<std::int16_t*>(full_chroma_.data());
    for (auto& rows : full_rows_) {
      for (int y = 0; y < frame.v(); ++y, next += stride) rows[y] = next;
    }
  }
  TQ_TRY(row_.allocate(row_bytes(frame.width, request.image->header.biBitCount)));
  return looked_up_.allocate(std::int64_t{3} * frame.width);
}

int Planes::columns(int i) const {
  const int pixels = 8 * frame_->h() / planes_[i].h;
  return (frame_->width + pixels - 1) / pixels;
}

int Planes::rows(int i) const {
  const int pixels = 8 * frame_->v() / planes_[i].v;
  return (frame_->height + pixels - 1) / pixels;
}

Status Planes::load(int top) {
  const int height = 8 * frame_->v();
  const bool exact = frame_->writing.exact();
  for (int y = 0; y < height; ++y) {
    if (top + y >= frame_->height) {
      repeat_last(y);
      continue;
    }
    TQ_TRY(request_->rows.row(row_.pixels(), top + y));
    if (exact) {
      convert_exactly(y, top + y == frame_->height - 1);
    } else {
      convert(y);
    }
  }
  for (int i = 0; exact && i < frame_->count; ++i) {
    planes_[i].rows = std::min(planes_[i].v, rows(i) - top / height * planes_[i].v);
  }
  return kOk;
}

// Grey levels of the supplied row.
const std::uint8_t* Planes::greys() {
  if (ramp_) return row_.data();
  for (int x = 0; x < frame_->width; ++x) {
    looked_up_.data()[x] = request_->image->palette[row_.data()[x]].red;
  }
  return looked_up_.data();
}

// Blue, green, red of the supplied row.
const std::uint8_t* Planes::colours() {
  std::uint8_t* out = looked_up_.data();
  if (pixels_ == Pixels::bgr) return row_.data();
  if (pixels_ == Pixels::palette) {
    for (int x = 0; x < frame_->width; ++x, out += 3) {
      const Rgb& entry = request_->image->palette[row_.data()[x]];
      out[0] = entry.blue;
      out[1] = entry.green;
      out[2] = entry.red;
    }
  } else if (pixels_ == Pixels::bgrx) {
    const std::uint8_t* four = row_.data();
    for (int x = 0; x < frame_->width; ++x, four += 4, out += 3) std::copy_n(four, 3, out);
  } else {
    // The first of four bytes is taken for red: callers rely on it.
    const std::uint8_t* four = row_.data();
    for (int x = 0; x < frame_->width; ++x, four += 4, out += 3) {
      out[0] = four[2];
      out[1] = four[1];
      out[2] = four[0];
    }
  }
  return looked_up_.data();
}

void Planes::convert(int y) {
  const int width = frame_->width, h = frame_->h();
  if (pixels_ == Pixels::grey) {
    kernels_.grey_to_luma(greys(), row_of(0, y), width);
  } else if (begins_row(1, y)) {
    kernels_.bgr_to_ycc(colours(), h, row_of(0, y), row_of(1, y), row_of(2, y), width);
  } else {
    kernels_.bgr_to_luma(colours(), row_of(0, y), width);
  }
  if (pixels_ == Pixels::four && begins_row(3, y)) {
    std::int16_t* out = row_of(3, y);
    for (int x = 0; x < width; x += h) {
      *out++ = word(127 - row_.data()[4 * x + 3]);
    }
  }
  for (int i = 0; i < frame_->count; ++i) {
    if (begins_row(i, y)) pad(row_of(i, y), planes_[i].width, planes_[i].padded_width);
  }
}

// Chroma is that of all pixels, which are repeated on the right and below the last row first.
void Planes::convert_exactly(int y, bool last) {
  const int width = frame_->width, padded_width = planes_[0].padded_width, v = frame_->v();
  std::int16_t* const luma = row_of(0, y);
  if (pixels_ == Pixels::grey) {
    kernels_.grey_to_luma(greys(), luma, width);
    pad(luma, width, padded_width);
    return;
  }
  const bool full = v == 1 && frame_->h() == 1;
  const int row = y % v;
  std::int16_t* const chroma[2] = {full ? row_of(1, y) : full_rows_[0][row],
                                   full ? row_of(2, y) : full_rows_[1][row]};
  kernels_.bgr_to_ycc(colours(), 1, luma, chroma[0], chroma[1], width);
  for (std::int16_t* const samples : {luma, chroma[0], chroma[1]})
    pad(samples, width, padded_width);
  if (pixels_ == Pixels::four) {
    std::int16_t* const black = row_of(3, y);
    for (int x = 0; x < width; ++x) black[x] = word(127 - row_.data()[4 * x + 3]);
    pad(black, width, padded_width);
  }
  if (full || (row != v - 1 && !last)) return;
  for (int i = 0; i < 2; ++i) {
    for (int below = row + 1; below < v; ++below) {
      std::copy_n(chroma[i], padded_width, full_rows_[i][below]);
    }
    narrow(i, row_of(1 + i, y));
  }
}

// A row of chroma from those that it is the mean of.
void Planes::narrow(int i, std::int16_t* out) {
  const auto& rows = full_rows_[i];
  const int h = frame_->h(), v = frame_->v(), count = planes_[1 + i].padded_width;
  if (h == 2 && v == 1) {
    kernels_.halve_across(rows[0], out, count);
  } else if (h == 2 && v == 2) {
    kernels_.halve_both(rows[0], rows[1], out, count);
  } else {
    const int pixels = h * v;
    for (int x = 0; x < count; ++x) {
      int sum = 128 * pixels + pixels / 2;
      for (int y = 0; y < v; ++y) {
        for (int n = 0; n < h; ++n) sum += rows[y][x * h + n];
      }
      out[x] = word(sum / pixels - 128);
    }
  }
}

void Planes::repeat_last(int y) {
  for (int i = 0; i < frame_->count; ++i) {
    if (!begins_row(i, y)) continue;
    const Plane& plane = planes_[i];
    std::copy_n(row_of(i, y) - plane.stride, plane.padded_width, row_of(i, y));
  }
}

}  // namespace tq::jpeg
