// Other sides: nearest pixels, exact means, and kernels, all in integers.
#include <algorithm>
#include <cstdlib>
#include <utility>

#include "process/geometry/area.h"
#include "process/geometry/geometry.h"
#include "process/geometry/grey_rows.h"
#include "process/geometry/kernels.h"
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

// The kernels: along rows into 16 bits with 6 of fraction, then down the columns. Where a side
// shrinks much, blocks of whole pixels are averaged first.
class KernelRows {
 public:
  KernelRows(const ImageSource& image, Kernel kernel, int width, int height)
      : across_(kernel, image.width(), width),
        down_(kernel, image.height(), height),
        blocks_(image, across_.block(), down_.block()),
        width_(width) {}

  Status allocate() {
    TQ_TRY(blocks_.allocate());
    TQ_TRY(across_.allocate());
    TQ_TRY(down_.allocate());
    TQ_TRY(allocate_columns());
    const std::int64_t channels = blocks_.channels();
    samples_ = static_cast<std::ptrdiff_t>(channels * width_);
    // What kernels read behind the row.
    TQ_TRY(from_.allocate(channels * (across_.blocks() + stride_) + kSpare));
    TQ_TRY(made_.allocate((samples_ + kSpare) * down_.most_taps()));
    return levels_.allocate(samples_);
  }

  Bytes make(int y) {
    const Taps taps = down_.taps(y);
    for (; next_ < taps.first + std::ssize(taps.weights); ++next_) {
      if (next_ >= taps.first) make_across(next_);
    }
    const std::int16_t* rows[kMostDown];
    for (std::ptrdiff_t k = 0; k < std::ssize(taps.weights); ++k) rows[k] = row_of(taps.first + k);
    kernels_.weigh_down(rows, taps.weights.data(), static_cast<int>(taps.weights.size()),
                        levels_.data(), samples_);
    return levels_.pixels();
  }

 private:
  static constexpr std::ptrdiff_t kSpare = 16;

  // As many weights to each column, further ones being 0.
  Status allocate_columns() {
    TQ_TRY(first_.allocate(width_));
    for (int x = 0; x < width_; ++x) {
      used_ = std::max(used_, static_cast<int>(across_.taps(x).weights.size()));
    }
    stride_ = (used_ + ColumnTaps::kGroup - 1) / ColumnTaps::kGroup * ColumnTaps::kGroup;
    TQ_TRY(weights_.allocate(std::int64_t{width_} * stride_ + kSpare));
    for (int x = 0; x < width_; ++x) {
      const Taps taps = across_.taps(x);
      first_[x] = static_cast<std::int32_t>(taps.first);
      std::ranges::copy(taps.weights, weights_.data() + std::ptrdiff_t{x} * stride_);
    }
    return kOk;
  }

  std::int16_t* row_of(std::int64_t block) const {
    return made_.data() +
           static_cast<std::ptrdiff_t>(block % down_.most_taps()) * (samples_ + kSpare);
  }

  void make_across(std::int64_t block) {
    blocks_.read(static_cast<int>(block), from_.data());
    kernels_.weigh_along(from_.data(), blocks_.channels(),
                         {first_.data(), weights_.data(), used_, stride_}, row_of(block), width_);
  }

  Weights across_, down_;
  BlockMeans blocks_;
  int width_;
  GeometryKernels kernels_ = geometry_kernels();
  int used_ = 0, stride_ = 0;  // weights of a column
  std::ptrdiff_t samples_ = 0;
  std::int64_t next_ = 0;  // block of rows that has not been made
  RowBuffer<std::int32_t> first_;
  RowBuffer<std::int16_t> weights_;
  RowBuffer<std::uint8_t> from_, levels_;
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

// Exact means are the same from either end.
template <class Rows>
Status make_means_from(Rows&& rows, ImageSource& image, ImageDraft& result, bool from_bottom) {
  TQ_TRY(rows.allocate());
  const ImageRecord& made = result.record();
  const LevelsToRow levels(image, made.bits);
  RowBuffer<std::uint8_t> row_levels;
  if (!levels.levels_are_bytes()) TQ_TRY(row_levels.allocate(made.width));
  return make_single_rows(result, image, [&](int y, Row row) {
    const int at = from_bottom ? made.height - 1 - y : y;
    if (levels.levels_are_bytes()) return rows.make(at, row.data());
    rows.make(at, row_levels.data());
    levels.put(row_levels.pixels(), row);
  });
}

Status make_means(ImageSource& image, int width, int height, ImageDraft& result) {
  if (image.bits() == 1)
    return make_means_from(RunMeans(image, width, height), image, result, false);
  if (image.width() % width == 0 && image.height() % height == 0) {
    return make_means_from(WholeMeans(image, width, height), image, result, true);
  }
  return make_means_from(AreaMeans(image, width, height), image, result, true);
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
    TQ_TRY(make_means(image, width, height, result));
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
