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

Status choose_pixels(const HeaderBlock& image, Pixels& pixels) {
  switch (image.header.biBitCount) {
    case 8:
      pixels = has_grey_palette(image) ? Pixels::grey : Pixels::palette;
      return kOk;
    case 24:
      pixels = Pixels::bgr;
      return kOk;
    case 32:
      pixels = Pixels::four;
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
  kernels_ = kernels(Accuracy::coarse);
  ramp_ = pixels == Pixels::grey && has_ramp_palette(*request.image);
  mcus_ = (frame.width + 8 * frame.h - 1) / (8 * frame.h);
  std::uint64_t total = 0;
  std::array<std::uint64_t, kMostEncodedComponents> starts{};
  for (int i = 0; i < frame.count; ++i) {
    Plane& plane = planes_[i];
    plane.h = i == 0 ? frame.h : 1;
    plane.v = i == 0 ? frame.v : 1;
    const int decimation = frame.h / plane.h;
    plane.width = (frame.width + decimation - 1) / decimation;
    plane.padded_width = 8 * mcus_ * plane.h;
    plane.stride = plane.padded_width + kKernelMargin;
    starts[i] = total;
    total += std::uint64_t{8} * plane.v * plane.stride;
  }
  TQ_TRY(samples_.allocate((total + kKernelMargin) * sizeof(std::int16_t)));
  for (int i = 0; i < frame.count; ++i) {
    planes_[i].samples = reinterpret_cast<std::int16_t*>(samples_.data()) + starts[i];
  }
  TQ_TRY(row_.allocate(row_bytes(frame.width, request.image->header.biBitCount)));
  return looked_up_.allocate(std::int64_t{3} * frame.width);
}

Status Planes::load(int top) {
  const int height = 8 * frame_->v;
  for (int y = 0; y < height; ++y) {
    if (top + y < frame_->height) {
      TQ_TRY(request_->rows.row(row_.pixels(), top + y));
      convert(y);
    } else {
      repeat_last(y);
    }
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
  const int width = frame_->width;
  if (pixels_ == Pixels::grey) {
    kernels_.grey_to_luma(greys(), row_of(0, y), width);
  } else if (has_chroma(y)) {
    kernels_.bgr_to_ycc(colours(), frame_->h, row_of(0, y), row_of(1, y), row_of(2, y), width);
  } else {
    kernels_.bgr_to_luma(colours(), row_of(0, y), width);
  }
  if (pixels_ == Pixels::four && has_chroma(y)) {
    std::int16_t* out = row_of(3, y);
    for (int x = 0; x < width; x += frame_->h) {
      *out++ = word(127 - row_.data()[4 * x + 3]);
    }
  }
  for (int i = 0; i < frame_->count; ++i) {
    if (i != 0 && !has_chroma(y)) break;
    const Plane& plane = planes_[i];
    std::int16_t* const out = row_of(i, y);
    std::fill(out + plane.width, out + plane.padded_width, out[plane.width - 1]);
  }
}

void Planes::repeat_last(int y) {
  for (int i = 0; i < frame_->count; ++i) {
    if (i != 0 && !has_chroma(y)) break;
    const Plane& plane = planes_[i];
    std::copy_n(row_of(i, y) - plane.stride, plane.padded_width, row_of(i, y));
  }
}

}  // namespace tq::jpeg
