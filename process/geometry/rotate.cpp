// Turns by any angle, in integers from the sine to the pixel: the same bits on every machine.
#include <algorithm>
#include <cstdlib>

#include "process/geometry/geometry.h"
#include "process/geometry/grey_rows.h"
#include "process/geometry/kernels.h"
#include "process/geometry/sines.h"
#include "process/geometry/turned_bits.h"
#include "process/process.h"

namespace tq::process {
namespace {

constexpr int kWholeTurn = 36000, kQuarter = 9000;  // hundredths of a degree
constexpr std::int64_t kOne = std::int64_t{1} << 30;
constexpr std::int32_t kKeepSides = 1, kNearest = 2;  // bits of the mode

// Away from 0 where it lies in the middle, so that turns to both sides mirror each other.
constexpr std::int64_t divide_rounded(std::int64_t value, std::int64_t by) {
  return (value + (value < 0 ? -by : by) / 2) / by;
}

// From places in the result to places in the image, both measured from the centre: x is
// cosine * u + across * v, y is cosine * v - down * u, in units of 2^-30. The two differ where pixels
// are not square, because the sheet is what turns.
struct Rotation {
  Rotation(int angle, Resolution resolution) {
    const Sines first(angle % kQuarter);
    const std::int64_t s[] = {first.sine, first.cosine, -first.sine, -first.cosine};
    const std::int64_t c[] = {first.cosine, -first.sine, -first.cosine, first.sine};
    cosine = c[angle / kQuarter];
    across = down = s[angle / kQuarter];
    if (resolution.x <= 0 || resolution.y <= 0 || resolution.x == resolution.y) return;
    constexpr std::int64_t kSquare = 65536, kMostRatio = 256;
    const std::int64_t ratio = std::clamp(divide_rounded(kSquare * resolution.x, resolution.y),
                                          kSquare / kMostRatio, kSquare * kMostRatio);
    across = divide_rounded(across * ratio, kSquare);
    down = divide_rounded(down * kSquare, ratio);
  }
  std::int64_t cosine, across, down;
};

// a * |b| + c * |d|, or the greatest number that there is.
std::int64_t reach(std::int64_t a, std::int64_t b, std::int64_t c, std::int64_t d) {
  std::int64_t first, second, sum;
  if (__builtin_mul_overflow(a, std::abs(b), &first) ||
      __builtin_mul_overflow(c, std::abs(d), &second) ||
      __builtin_add_overflow(first, second, &sum)) {
    return INT64_MAX;
  }
  return sum;
}

// An excess of a thousandth of a pixel does not make a column.
Status choose_side(std::int64_t reached, int& side) {
  if (reached > kOne * INT32_MAX) return StatusCode::out_of_memory;
  side = std::max(1, static_cast<int>((reached + kOne - (std::int64_t{1} << 20)) >> 30));
  return kOk;
}

// Along a row of the result: a coordinate in units of 2^-32 of a pixel of the image.
struct Line {
  std::int64_t start, step;

  // To 1/256 of a pixel, from the centre of the first one.
  std::int64_t at(int i) const { return ((start + i * step + (1 << 23)) >> 24) - 128; }
  // The same, not rounded to 1/256 yet but for its half.
  std::int64_t exact(int i) const {
    return start + i * step + (1 << 23) - (std::int64_t{128} << 24);
  }
  int pixel(int i) const { return static_cast<int>(at(i) >> 8); }
  int fraction(int i) const { return static_cast<int>(at(i) & 255); }
};

struct Span {
  int first, last;  // one past it

  Span(Span a, Span b)
      : first(std::max(a.first, b.first)), last(std::max(first, std::min(a.last, b.last))) {}
  // Of places 0 to `count` - 1 those with least <= line.at(i) < end.
  Span(const Line& line, std::int64_t least, std::int64_t end, int count) : first(0), last(count) {
    // As values before they were rounded.
    const std::int64_t low = ((least + 128) << 24) - (1 << 23);
    const std::int64_t high = ((end + 128) << 24) - (1 << 23);
    const auto clamped = [count](std::int64_t i) {
      return static_cast<int>(std::clamp<std::int64_t>(i, 0, count));
    };
    const auto floored = [](std::int64_t a, std::int64_t b) {  // b above 0
      return a >= 0 ? a / b : -((b - 1 - a) / b);
    };
    if (line.step > 0) {
      first = clamped(-floored(line.start - low, line.step));
      last = clamped(-floored(line.start - high, line.step));
    } else if (line.step < 0) {
      first = clamped(floored(line.start - high, -line.step) + 1);
      last = clamped(floored(line.start - low, -line.step) + 1);
    } else if (line.start < low || line.start >= high) {
      last = 0;
    }
  }
};

// What a turn reads: rows from the top, and what lies beyond them.
struct Plane {
  const std::uint8_t* top;
  std::ptrdiff_t stride;
  int width, height;
  Pixel outside;

  bool has(int x, int y) const { return x >= 0 && x < width && y >= 0 && y < height; }
  const std::uint8_t* row(int y) const { return top + y * stride; }
};

// Bytes of the pixel at a place: as it is stored, or as it is found in a table by its index.
template <int kBytes>
struct Stored {
  static constexpr int kChannels = kBytes;
  static constexpr bool kStored = true;
  const std::uint8_t* operator()(const Plane& plane, int x, int y) const {
    return plane.row(y) + kBytes * x;
  }
};
template <int kBits>
struct Looked {
  static constexpr int kChannels = 1;
  static constexpr bool kStored = false;
  const std::uint8_t* table;
  const std::uint8_t* operator()(const Plane& plane, int x, int y) const {
    const int pixels = plane.row(y)[x * std::int64_t{kBits} / 8];
    return table + (pixels >> (8 - kBits - x % 8 * kBits % 8) & ((1 << kBits) - 1));
  }
};

template <int kChannels>
void blend(const std::uint8_t* p00, const std::uint8_t* p10, const std::uint8_t* p01,
           const std::uint8_t* p11, int fx, int fy, std::uint8_t* out) {
  for (int c = 0; c < kChannels; ++c) {
    const int above = p00[c] * (256 - fx) + p10[c] * fx;
    const int below = p01[c] * (256 - fx) + p11[c] * fx;
    out[c] = byte((above * (256 - fy) + below * fy + 32768) >> 16);
  }
}

// Rows of the result as bytes; `out` holds the outside's already.
template <class Fetch>
void smooth_row([[maybe_unused]] const GeometryKernels& kernels, const Plane& plane, Fetch fetch,
                const Line& x, const Line& y, int width, std::uint8_t* out) {
  constexpr int kChannels = Fetch::kChannels;
  const Span touched(Span(x, -256, 256 * std::int64_t{plane.width}, width),
                     Span(y, -256, 256 * std::int64_t{plane.height}, width));
  // Of the last pixels of a row kernels would read what is behind it.
  const std::int64_t columns = plane.width - (Fetch::kStored && kChannels == 3 ? 2 : 1);
  const Span inside(touched, Span(Span(x, 0, 256 * columns, width),
                                  Span(y, 0, 256 * (std::int64_t{plane.height} - 1), width)));
  const auto careful = [&](int first, int last) {
    for (int i = first; i < last; ++i) {
      const int left = x.pixel(i), top = y.pixel(i);
      const auto at = [&](int column, int row) {
        return plane.has(column, row) ? fetch(plane, column, row) : plane.outside.data();
      };
      blend<kChannels>(at(left, top), at(left + 1, top), at(left, top + 1), at(left + 1, top + 1),
                       x.fraction(i), y.fraction(i), out + std::ptrdiff_t{kChannels} * i);
    }
  };
  if (inside.first >= inside.last) return careful(touched.first, touched.last);
  careful(touched.first, inside.first);
  if constexpr (Fetch::kStored) {
    kernels.blend(
        {plane.top, plane.stride, x.exact(inside.first), y.exact(inside.first), x.step, y.step},
        kChannels, out + std::ptrdiff_t{kChannels} * inside.first, inside.last - inside.first);
    return careful(inside.last, touched.last);
  }
  for (int i = inside.first; i < inside.last; ++i) {
    const int left = x.pixel(i), top = y.pixel(i);
    blend<kChannels>(fetch(plane, left, top), fetch(plane, left + 1, top),
                     fetch(plane, left, top + 1), fetch(plane, left + 1, top + 1), x.fraction(i),
                     y.fraction(i), out + std::ptrdiff_t{kChannels} * i);
  }
  careful(inside.last, touched.last);
}

template <class Fetch>
void nearest_row(const Plane& plane, Fetch fetch, const Line& x, const Line& y, int width,
                 std::uint8_t* out) {
  // From the edge of the first pixel instead of its centre.
  const Span inside(Span(x, -128, 256 * std::int64_t{plane.width} - 128, width),
                    Span(y, -128, 256 * std::int64_t{plane.height} - 128, width));
  for (int i = inside.first; i < inside.last; ++i) {
    const auto left = static_cast<int>((x.at(i) + 128) >> 8);
    const auto top = static_cast<int>((y.at(i) + 128) >> 8);
    std::memcpy(out + std::ptrdiff_t{Fetch::kChannels} * i, fetch(plane, left, top),
                Fetch::kChannels);
  }
}

// The same of 1 bit into a row's own bits, which are the outside's already; false where lines are not
// along rows.
bool nearest_bits(const Plane& plane, TurnedBits& turned, const Line& x, const Line& y, int width,
                  Row out) {
  const Span inside(Span(x, -128, 256 * std::int64_t{plane.width} - 128, width),
                    Span(y, -128, 256 * std::int64_t{plane.height} - 128, width));
  constexpr std::int64_t kToEdge = std::int64_t{128} << 24;
  const Walk walk{
      plane.top, plane.stride, x.exact(inside.first) + kToEdge, y.exact(inside.first) + kToEdge,
      x.step,    y.step};
  if (!keeps_to_rows(walk)) return false;
  if (inside.first >= inside.last) return true;
  turned.copy_nearest(walk, out, inside.first, inside.last);
  return true;
}

// Whether pixels of 1 bit in a rectangle, clipped to the plane, all have one colour.
bool is_one_colour(const Plane& plane, int left, int top, int right, int bottom, bool white) {
  left = std::max(left, 0);
  right = std::min(right, plane.width - 1);
  if (left > right) return true;
  const int first = left / 8, last = right / 8;
  const int head = 0xFF >> (left % 8), tail = 0xFF00 >> (right % 8 + 1) & 0xFF;
  for (int y = std::max(top, 0); y <= std::min(bottom, plane.height - 1); ++y) {
    const std::uint8_t* const row = plane.row(y);
    for (int i = first; i <= last; ++i) {
      const int mask = (i == first ? head : 0xFF) & (i == last ? tail : 0xFF);
      if (((white ? ~row[i] : row[i]) & mask) != 0) return false;
    }
  }
  return true;
}

// 1 bit: white where at least half of the weight is, which is what blending 0 and 255 gives. Places from
// `first`, that of a whole byte, to `last`.
void smooth_bits(const Plane& plane, const Line& x, const Line& y, int first, int last, Row out) {
  const bool outside = plane.outside[0] != 0;
  const auto bit = [&](int column, int row) -> int {
    if (!plane.has(column, row)) return outside ? 1 : 0;
    return plane.row(row)[column / 8] >> (7 - column % 8) & 1;
  };
  constexpr int kStep = 64;
  for (int i = first; i < last; i += kStep) {
    const int end = std::min(i + kStep, (last + 7) / 8 * 8) - 1;
    // Most of a page is paper.
    const auto [left, right] = std::minmax({x.pixel(i), x.pixel(end)});
    const auto [top, bottom] = std::minmax({y.pixel(i), y.pixel(end)});
    // Two bytes of a row are read for two pixels.
    const bool within =
        left >= 0 && top >= 0 && right + 8 < plane.width && bottom + 1 < plane.height;
    const int corner = bit(left, top);
    if ((within || corner == static_cast<int>(outside)) &&
        is_one_colour(plane, left, top, right + 1, bottom + 1, corner != 0)) {
      for (int k = i; k <= end; k += 8) out[k / 8] = byte(corner * 255);
      continue;
    }
    for (int k = i; k <= end; k += 8) {
      int bits = 0;
      for (int j = k; j < k + 8; ++j) {
        const int column = x.pixel(j), row = y.pixel(j);
        const int fx = x.fraction(j), fy = y.fraction(j);
        int above, below;
        if (within) {
          const std::uint8_t* const pair = plane.row(row) + column / 8;
          const std::uint8_t* const under = pair + plane.stride;
          const int shift = 14 - column % 8;
          above = (pair[0] << 8 | pair[1]) >> shift & 3;
          below = (under[0] << 8 | under[1]) >> shift & 3;
        } else {
          above = bit(column, row) << 1 | bit(column + 1, row);
          below = bit(column, row + 1) << 1 | bit(column + 1, row + 1);
        }
        const int weights[] = {0, fx, 256 - fx, 256};
        const int white = weights[above] * (256 - fy) + weights[below] * fy;
        bits = bits << 1 | static_cast<int>(white >= 32768);
      }
      out[k / 8] = byte(bits);
    }
  }
}

// The same of all places that touch the plane.
void smooth_bits(const Plane& plane, TurnedBits& turned, const Line& x, const Line& y, int width,
                 Row out) {
  const Span touched(Span(x, -256, 256 * std::int64_t{plane.width}, width),
                     Span(y, -256, 256 * std::int64_t{plane.height}, width));
  const Span inside(Span(x, 0, 256 * (std::int64_t{plane.width} - 1), width),
                    Span(y, 0, 256 * (std::int64_t{plane.height} - 1), width));
  const int first = (inside.first + 7) / 8 * 8, last = inside.last / 8 * 8;
  const Walk walk{plane.top, plane.stride, x.exact(first), y.exact(first), x.step, y.step};
  if (first >= last || !keeps_to_rows(walk)) {
    return smooth_bits(plane, x, y, touched.first / 8 * 8, touched.last, out);
  }
  smooth_bits(plane, x, y, touched.first / 8 * 8, first, out);
  turned.blend(walk, out, first, last);
  smooth_bits(plane, x, y, last, touched.last, out);
}

// One row of the result in a row's own bits.
class RotatedRows {
 public:
  RotatedRows(const ImageSource& image, const Rotation& rotation, bool smooth, const Pixel& outside)
      : image_(image), rotation_(rotation), smooth_(smooth), outside_(outside) {}

  Status allocate(int width, int height) {
    width_ = width;
    height_ = height;
    const int bits = image_.bits();
    TQ_TRY(background_.allocate(row_bytes(width, bits)));
    fill_row(background_.pixels(), bits, outside_);
    clear_padding(background_.pixels(), width, bits);
    if (bits <= 8) {
      TQ_TRY(levels_.allocate(width));
      if (bits == 1) TQ_TRY(turned_.allocate(width, row_bytes(image_.width(), 1)));
      const bool grey = smooth_ && bits > 1;
      for (int i = 0; i < 256; ++i) lookup_[i] = index_[i] = byte(i);
      if (grey) {
        const GreyTables tables(image_.palette());
        lookup_ = tables.levels;
        index_ = tables.index;
        outside_[0] = lookup_[outside_[0]];
      }
    }
    if (!image_.in_runs()) return kOk;
    // A place of the result may come from any row.
    const std::int64_t stride = row_bytes(image_.width(), 1);
    TQ_TRY(expanded_.allocate(stride * image_.height() + kSpare));
    for (int y = 0; y < image_.height(); ++y) {
      expand_row(image_.record(), y,
                 {expanded_.data() + y * stride, static_cast<std::size_t>(stride)});
    }
    return kOk;
  }

  void make_row(int j, Row row) {
    const std::int64_t u = 1 - std::int64_t{width_}, v = 2 * std::int64_t{j} + 1 - height_;
    const Line x{2 * (rotation_.cosine * u + rotation_.across * v + kOne * image_.width()),
                 4 * rotation_.cosine};
    const Line y{2 * (rotation_.cosine * v - rotation_.down * u + kOne * image_.height()),
                 -4 * rotation_.down};
    Plane plane{expanded_.data(), static_cast<std::ptrdiff_t>(row_bytes(image_.width(), 1)),
                image_.width(), image_.height(), outside_};
    if (!image_.in_runs()) {
      const Bytes top = plain_row(image_.record(), 0);
      plane.top = top.data();
      plane.stride = -std::ssize(top);
    }
    copy_row(background_.pixels(), row);
    switch (image_.bits()) {
      case 1:
        if (smooth_) {
          smooth_bits(plane, turned_, x, y, width_, row);
          return clear_padding(row, width_, 1);
        }
        if (nearest_bits(plane, turned_, x, y, width_, row)) return;
        return look_up(plane, Looked<1>{lookup_.data()}, x, y, row);
      case 4:
        return look_up(plane, Looked<4>{lookup_.data()}, x, y, row);
      case 8:
        if (smooth_ && is_identity(lookup_) && is_identity(index_)) {
          return smooth_row(kernels_, plane, Stored<1>(), x, y, width_, row.data());
        }
        return look_up(plane, Looked<8>{lookup_.data()}, x, y, row);
      case 16:
        return nearest_row(plane, Stored<2>(), x, y, width_, row.data());
      case 24:
        return smooth_ ? smooth_row(kernels_, plane, Stored<3>(), x, y, width_, row.data())
                       : nearest_row(plane, Stored<3>(), x, y, width_, row.data());
      default:
        return smooth_ ? smooth_row(kernels_, plane, Stored<4>(), x, y, width_, row.data())
                       : nearest_row(plane, Stored<4>(), x, y, width_, row.data());
    }
  }

 private:
  static constexpr std::int64_t kSpare = 8;  // bytes that may be read behind the last pixel

  template <class Fetch>
  void look_up(const Plane& plane, Fetch fetch, const Line& x, const Line& y, Row row) {
    std::uint8_t* const levels = levels_.data();
    std::ranges::fill(levels_.pixels(), outside_[0]);
    smooth_ ? smooth_row(kernels_, plane, fetch, x, y, width_, levels)
            : nearest_row(plane, fetch, x, y, width_, levels);
    const int bits = image_.bits();
    if (bits == 8) {
      for (int i = 0; i < width_; ++i) row[i] = index_[levels[i]];
    } else if (bits == 4) {
      pixels::pack_nibbles(row.data(), width_, [&](int i) { return index_[levels[i]]; });
    } else {
      for (int i = 0; i < width_; ++i) {
        const int mask = 0x80 >> i % 8;
        row[i / 8] = byte(levels[i] != 0 ? row[i / 8] | mask : row[i / 8] & ~mask);
      }
    }
  }

  const ImageSource& image_;
  Rotation rotation_;
  bool smooth_;
  Pixel outside_;
  GeometryKernels kernels_ = geometry_kernels();
  int width_ = 0, height_ = 0;
  std::array<std::uint8_t, 256> lookup_{}, index_{};
  RowBuffer<std::uint8_t> background_, levels_, expanded_;
  TurnedBits turned_;
};

}  // namespace

Status rotate_bitmap(ImageSource& image, std::int32_t angle, std::int32_t colour,
                     std::int32_t mode) {
  angle = (angle % kWholeTurn + kWholeTurn) % kWholeTurn;
  if (angle % kQuarter == 0) {
    constexpr std::int32_t kOrientations[] = {1, 6, 3, 8};
    return orient_bitmap(image, kOrientations[angle / kQuarter]);
  }
  release_display_cache(image.record());
  const int bits = image.bits();
  const bool nearest = (mode & kNearest) != 0;
  if (!has_known_depth(image) || (bits == 16 && !nearest)) return StatusCode::wrong_depth;
  if (mode < 0 || mode > (kKeepSides | kNearest)) return StatusCode::unsupported;
  Pixel outside;
  TQ_TRY(choose_pixel(image, colour, outside));

  const Rotation rotation(angle, resolution_of(image.record()));
  int width = image.width(), height = image.height();
  if ((mode & kKeepSides) == 0) {
    const std::int64_t w = width, h = height;
    TQ_TRY(choose_side(reach(w, rotation.cosine, h, rotation.across), width));
    TQ_TRY(choose_side(reach(w, rotation.down, h, rotation.cosine), height));
  }
  // Coordinates with 32 bits of fraction have to fit.
  const std::int64_t most = std::max(reach(width, rotation.cosine, height, rotation.across),
                                     reach(width, rotation.down, height, rotation.cosine));
  const std::int64_t side = std::max(image.width(), image.height());
  if (most > INT64_MAX / 8 - kOne * side) return StatusCode::out_of_memory;

  const bool has_colours = (bits == 4 || bits == 8) && !is_grey(image.palette());
  RotatedRows rows(image, rotation, !nearest && !has_colours, outside);
  ImageDraft result;
  TQ_TRY(create_result(result, image, same_kind(image, width, height)));
  TQ_TRY(rows.allocate(width, height));
  TQ_TRY(make_rows(result, image, [&](int y, Row row) { rows.make_row(y, row); }));
  result.install(image.record());
  note_moved_pixels(image.record(), false);
  return kOk;
}

}  // namespace tq::process
