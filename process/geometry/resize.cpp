// Other sides: nearest pixels, exact means, and kernels, all in integers.
#include <algorithm>
#include <cstdlib>
#include <utility>

#include "process/geometry/geometry.h"
#include "process/geometry/grey_rows.h"
#include "process/geometry/weights.h"
#include "process/process.h"

namespace tq::process {
namespace {

enum Method : std::int32_t { kNearest, kArea, kTriangle, kCubic, kLanczos, kAreaToMono };

// Result column `i` of `to`, of `from` columns.
int nearest_place(int i, int from, int to) {
  return static_cast<int>((2 * std::int64_t{i} + 1) * from / (2 * std::int64_t{to}));
}

template <int kBytes>
void pick_pixels(const std::uint8_t* from, std::span<const std::int32_t> places, std::uint8_t* to) {
  for (const std::int32_t place : places) {
    std::memcpy(to, from + std::ptrdiff_t{kBytes} * place, kBytes);
    to += kBytes;
  }
}

void pick_row(Bytes from, int bits, std::span<const std::int32_t> places, Row to) {
  const int width = static_cast<int>(places.size());
  switch (bits) {
    case 1:
      for (int x = 0; x < width; x += 8) {
        int pixels = 0;
        for (int i = x; i < x + 8; ++i) {
          const std::int32_t place = i < width ? places[i] : 0;
          pixels = pixels << 1 | (i < width ? from[place / 8] >> (7 - place % 8) & 1 : 0);
        }
        to[x / 8] = byte(pixels);
      }
      return;
    case 4:
      return pixels::pack_nibbles(to.data(), width, [&](int x) {
        return from[places[x] / 2] >> (places[x] % 2 == 0 ? 4 : 0) & 15;
      });
    case 8:
      return pick_pixels<1>(from.data(), places, to.data());
    case 16:
      return pick_pixels<2>(from.data(), places, to.data());
    case 24:
      return pick_pixels<3>(from.data(), places, to.data());
    default:
      return pick_pixels<4>(from.data(), places, to.data());
  }
}

Status resize_nearest(ImageSource& image, ImageDraft& result) {
  const int width = result.record().width, height = result.record().height;
  RowBuffer<std::int32_t> places;
  TQ_TRY(places.allocate(width));
  for (int x = 0; x < width; ++x) places[x] = nearest_place(x, image.width(), width);
  StoredRows rows(image);
  TQ_TRY(rows.allocate());
  return make_rows(result, image, [&](int y, Row row) {
    pick_row(rows.read(nearest_place(y, image.height(), height)), image.bits(), places.pixels(),
             row);
  });
}

// Exact means. A pixel of the image is as many units wide as the result has columns and the other way
// round, so that edges fall on whole units.
class AreaRows {
 public:
  AreaRows(const ImageSource& image, int width, int height)
      : image_(image), rows_(image), width_(width), height_(height) {}

  Status allocate() {
    TQ_TRY(rows_.allocate());
    TQ_TRY(levels_.allocate(std::int64_t{rows_.channels()} * width_));
    if (image_.bits() == 1) {
      TQ_TRY(image_.in_runs() ? listed_.allocate(most_transitions(image_.width()))
                              : changes_.allocate(most_transitions(image_.width())));
      return sums_.allocate(std::int64_t{width_} + 1);
    }
    return sums_.allocate(std::int64_t{rows_.channels()} * image_.width());
  }

  // Row `y` of the result: levels, or channels in turn.
  Bytes make(int y) {
    std::ranges::fill(sums_.pixels(), 0);
    const std::int64_t high = image_.height(), units = height_;
    // Rows of the image that a row of the result touches, with their share.
    for (std::int64_t j = y * high / units; j * units < (y + 1) * high; ++j) {
      const std::int64_t share =
          std::min((j + 1) * units, (y + 1) * high) - std::max(j * units, y * high);
      image_.bits() == 1 ? add_runs(static_cast<int>(j), share)
                         : add_row(static_cast<int>(j), share);
    }
    image_.bits() == 1 ? finish_runs() : finish_row();
    return levels_.pixels();
  }

 private:
  std::uint8_t mean(std::int64_t sum) const {
    const std::int64_t area = std::int64_t{image_.width()} * image_.height();
    return byte((2 * sum + area) / (2 * area));
  }

  void add_row(int j, std::int64_t share) {
    const Bytes from = rows_.read(j);
    std::int64_t* const sums = sums_.data();
    const std::ptrdiff_t count = std::ssize(from);
    for (std::ptrdiff_t i = 0; i < count; ++i) sums[i] += share * from[static_cast<std::size_t>(i)];
  }

  void finish_row() {
    const std::int64_t wide = image_.width(), units = width_;
    const int channels = rows_.channels();
    for (int x = 0; x < width_; ++x) {
      std::int64_t total[4] = {};
      for (std::int64_t i = x * wide / units; i * units < (x + 1) * wide; ++i) {
        const std::int64_t share =
            std::min((i + 1) * units, (x + 1) * wide) - std::max(i * units, x * wide);
        const std::int64_t* const sums = sums_.data() + i * channels;
        for (int c = 0; c < channels; ++c) total[c] += share * sums[c];
      }
      for (int c = 0; c < channels; ++c) levels_[std::ptrdiff_t{x} * channels + c] = mean(total[c]);
    }
  }

  // What a change adds to the black of its cell and of those that follow is kept as differences: a
  // run costs the same however long it is.
  void add_runs(int j, std::int64_t share) {
    if (image_.in_runs()) {
      add_changes(listed_.data(), row_transitions(image_.record(), j, listed_.pixels()), share);
    } else {
      const Bytes bits = plain_row(image_.record(), j);
      add_changes(changes_.data(), bits_to_transitions(bits, image_.width(), changes_.pixels()),
                  share);
    }
  }
  template <class Place>
  void add_changes(const Place* changes, std::int32_t count, std::int64_t share) {
    const std::int64_t wide = image_.width();
    for (std::int32_t i = 0; i < count; ++i, share = -share) {
      const std::int64_t place = std::int64_t{changes[i]} * width_;
      const auto cell = static_cast<std::ptrdiff_t>(place / wide);
      const std::int64_t before = place - cell * wide;
      sums_[cell] += share * (wide - before);
      sums_[cell + 1] += share * before;
    }
  }

  void finish_runs() {
    const std::int64_t area = std::int64_t{image_.width()} * image_.height();
    std::int64_t black = 0;
    for (int x = 0; x < width_; ++x) {
      black += sums_[x];
      levels_[x] = mean(255 * (area - black));
    }
  }

  const ImageSource& image_;
  GreyOrColourRows rows_;
  int width_, height_;
  RowBuffer<std::int64_t> sums_;
  RowBuffer<std::uint16_t> listed_;
  RowBuffer<std::int32_t> changes_;
  RowBuffer<std::uint8_t> levels_;
};

// The kernels: along rows into 16 bits with 6 of fraction, then down the columns. Where a side
// shrinks much, blocks of whole pixels are averaged first.
class KernelRows {
 public:
  KernelRows(const ImageSource& image, Kernel kernel, int width, int height)
      : image_(image),
        rows_(image),
        across_(kernel, image.width(), width),
        down_(kernel, image.height(), height),
        width_(width) {}

  Status allocate() {
    TQ_TRY(rows_.allocate());
    TQ_TRY(across_.allocate());
    TQ_TRY(down_.allocate());
    TQ_TRY(columns_.allocate(width_));
    TQ_TRY(weights_.allocate(std::int64_t{width_} * across_.most_taps()));
    std::ptrdiff_t used = 0;
    for (int x = 0; x < width_; ++x) {
      const Taps taps = across_.taps(x);
      columns_[x] = {static_cast<std::int32_t>(taps.first),
                     static_cast<std::int32_t>(taps.weights.size())};
      for (const std::int16_t weight : taps.weights) weights_[used++] = weight;
    }
    const int channels = rows_.channels();
    TQ_TRY(block_sums_.allocate(std::int64_t{channels} * across_.blocks()));
    TQ_TRY(blocks_.allocate(std::int64_t{channels} * across_.blocks()));
    TQ_TRY(made_.allocate(std::int64_t{channels} * width_ * down_.most_taps()));
    return levels_.allocate(std::int64_t{channels} * width_);
  }

  Bytes make(int y) {
    const Taps taps = down_.taps(y);
    const std::ptrdiff_t length = std::ssize(levels_.pixels());
    for (; next_ < taps.first + std::ssize(taps.weights); ++next_) {
      if (next_ >= taps.first) make_across(next_);
    }
    for (std::ptrdiff_t i = 0; i < length; ++i) {
      std::int32_t sum = 1 << 19;
      for (std::ptrdiff_t k = 0; k < std::ssize(taps.weights); ++k) {
        sum += taps.weights[static_cast<std::size_t>(k)] * row_of(taps.first + k)[i];
      }
      levels_[i] = byte(std::clamp(sum >> 20, 0, 255));
    }
    return levels_.pixels();
  }

 private:
  std::int16_t* row_of(std::int64_t block) const {
    return made_.data() + block % down_.most_taps() * std::ssize(levels_.pixels());
  }

  Bytes averaged(std::int64_t block) {
    const int fx = across_.block(), fy = down_.block(), channels = rows_.channels();
    const int first = static_cast<int>(block * fy), last = std::min(first + fy, image_.height());
    if (fx == 1 && fy == 1) return rows_.read(first);
    std::ranges::fill(block_sums_.pixels(), 0);
    for (int y = first; y < last; ++y) {
      const Bytes from = rows_.read(y);
      for (int x = 0; x < image_.width(); ++x) {
        for (int c = 0; c < channels; ++c) {
          block_sums_[std::ptrdiff_t{x / fx} * channels + c] +=
              from[static_cast<std::size_t>(std::ptrdiff_t{x} * channels + c)];
        }
      }
    }
    for (std::ptrdiff_t i = 0; i < std::ssize(blocks_.pixels()); ++i) {
      const std::int64_t left = i / channels * fx;
      const std::int64_t pixels =
          std::min<std::int64_t>(fx, image_.width() - left) * (last - first);
      blocks_[i] = byte((2 * block_sums_[i] + pixels) / (2 * pixels));
    }
    return blocks_.pixels();
  }

  void make_across(std::int64_t block) {
    const Bytes from = averaged(block);
    std::int16_t* const to = row_of(block);
    const int channels = rows_.channels();
    const std::int16_t* weights = weights_.data();
    for (int x = 0; x < width_; ++x) {
      const Column column = columns_.data()[x];
      for (int c = 0; c < channels; ++c) {
        std::int32_t sum = 128;
        const std::uint8_t* pixel = from.data() + std::ptrdiff_t{column.first} * channels + c;
        for (std::int32_t k = 0; k < column.taps; ++k, pixel += channels) {
          sum += weights[k] * *pixel;
        }
        to[std::ptrdiff_t{x} * channels + c] = static_cast<std::int16_t>(sum >> 8);
      }
      weights += column.taps;
    }
  }

  const ImageSource& image_;
  GreyOrColourRows rows_;
  Weights across_, down_;
  int width_;
  struct Column {
    std::int32_t first, taps;
  };
  RowBuffer<Column> columns_;
  RowBuffer<std::int16_t> weights_;  // of one column behind the other
  std::int64_t next_ = 0;            // block of rows that has not been made
  RowBuffer<std::int64_t> block_sums_;
  RowBuffer<std::uint8_t> blocks_, levels_;
  RowBuffer<std::int16_t> made_;  // as many rows as a column has taps
};

NewShape shape_of(const ImageSource& image, int width, int height, std::int32_t method) {
  if (method == kAreaToMono && image.bits() != 1) return mono_shape(image, width, height);
  if (image.bits() == 1 && method >= kArea && method <= kLanczos) {
    return {8, pixels::grey_ramp(), image.in_runs() ? 0 : marker_below_32(image), width, height};
  }
  return same_kind(image, width, height);
}

template <class Rows>
Status make_from(Rows& rows, ImageSource& image, ImageDraft& result) {
  TQ_TRY(rows.allocate());
  const LevelsToRow levels(image, result.record().bits);
  return make_rows(result, image, [&](int y, Row row) { levels.put(rows.make(y), row); });
}

Status check_depth(const ImageSource& image, std::int32_t method) {
  const int bits = image.bits();
  if (!has_known_depth(image)) return StatusCode::wrong_depth;
  if (method <= kNearest || method > kAreaToMono) return kOk;
  if (bits == 16 || (method == kAreaToMono && bits > 8)) return StatusCode::wrong_depth;
  const bool has_colours = (bits == 4 || bits == 8) && !is_grey(image.palette());
  return has_colours ? StatusCode::not_grey : StatusCode::ok;
}

}  // namespace

Status resize_bitmap(ImageSource& image, std::int32_t width, std::int32_t height,
                     std::int32_t method) {
  release_display_cache(image.record());
  TQ_TRY(check_depth(image, method));
  if (width < 1 || height < 1 || method < kNearest || method > kAreaToMono) {
    return StatusCode::unsupported;
  }
  const Size before{image.width(), image.height()};
  const NewShape shape = shape_of(image, width, height, method);
  if (width == before.width && height == before.height && shape.bits == image.bits()) return kOk;
  ImageDraft result;
  TQ_TRY(create_result(result, image, shape));
  if (method == kNearest) {
    TQ_TRY(resize_nearest(image, result));
  } else if (method == kArea || method == kAreaToMono) {
    AreaRows rows(image, width, height);
    TQ_TRY(make_from(rows, image, result));
  } else {
    const Kernel kernel = method == kTriangle ? Kernel::triangle
                          : method == kCubic  ? Kernel::cubic
                                              : Kernel::lanczos;
    KernelRows rows(image, kernel, width, height);
    TQ_TRY(make_from(rows, image, result));
  }
  result.install(image.record());
  note_new_sides(image.record(), before);
  return kOk;
}

Status resample_bitmap(ImageSource& image, std::int32_t x_dpi, std::int32_t y_dpi,
                       std::int32_t method) {
  constexpr std::int64_t kThousand = 1000;
  TQ_TRY(check_depth(image, method));
  const Resolution old = resolution_of(image.record());
  const auto has_room = [](std::int32_t dots) {
    return dots >= 1 && dots <= Resolution::kMost / kThousand;
  };
  if (old.x <= 0 || old.y <= 0 || !has_room(x_dpi) || !has_room(y_dpi)) {
    return StatusCode::unsupported;
  }
  const auto side = [](std::int64_t pixels, std::int64_t dots, std::int64_t thousandths) {
    const std::int64_t rounded = (2 * kThousand * pixels * dots / thousandths + 1) / 2;
    return std::max<std::int64_t>(rounded, 1);
  };
  const std::int64_t width = side(image.width(), x_dpi, old.x);
  const std::int64_t height = side(image.height(), y_dpi, old.y);
  if (width > INT32_MAX || height > INT32_MAX) return StatusCode::out_of_memory;
  TQ_TRY(resize_bitmap(image, static_cast<std::int32_t>(width), static_cast<std::int32_t>(height),
                       method));
  BitmapInfoHeader header = header_of(image.record());
  header.biXPelsPerMeter = x_dpi;
  header.biYPelsPerMeter = y_dpi;
  set_header(image.record(), header);
  image.record().resolution = {};
  return kOk;
}

}  // namespace tq::process
