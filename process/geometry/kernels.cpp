// The portable row kernels, and the choice.
#include "process/geometry/kernels.h"

#include <algorithm>
#include <cstring>

#include "core/numbers.h"

namespace tq::process {
namespace {

void copy_past(const std::uint8_t* from, std::uint8_t* to, std::ptrdiff_t bytes,
               std::uint8_t other) {
  if (other == 0) {
    std::memcpy(to, from, static_cast<std::size_t>(bytes));
    return;
  }
  const std::uint64_t others = std::uint64_t{0x0101010101010101} * other;
  std::ptrdiff_t i = 0;
  for (std::uint64_t words[4]; i + 32 <= bytes; i += 32) {
    std::memcpy(words, from + i, sizeof words);
    for (std::uint64_t& word : words) word ^= others;
    std::memcpy(to + i, words, sizeof words);
  }
  for (; i < bytes; ++i) to[i] = byte(from[i] ^ other);
}

void add_rows(const std::uint8_t* const* rows, int count, std::uint16_t* sums,
              std::ptrdiff_t samples) {
  for (int k = 0; k < count; ++k) {
    const std::uint8_t* const from = rows[k];
    for (std::ptrdiff_t i = 0; i < samples; ++i) sums[i] = word(sums[i] + from[i]);
  }
}

template <class Value>
void add_shares(const Value* from, std::uint32_t share, std::uint64_t* sums, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) sums[i] += std::uint64_t{share} * from[i];
}

void halve(const std::uint8_t* upper, const std::uint8_t* lower, int size, std::uint8_t* to,
           std::ptrdiff_t pixels) {
  for (std::ptrdiff_t x = 0; x < pixels; ++x, upper += 2 * size, lower += 2 * size) {
    for (int c = 0; c < size; ++c) {
      *to++ = byte((upper[c] + upper[c + size] + lower[c] + lower[c + size] + 2) >> 2);
    }
  }
}

template <int kSize>
void weigh_pixels(const std::uint8_t* from, const ColumnTaps& columns, std::int16_t* to,
                  int width) {
  const std::int16_t* weights = columns.weights;
  for (int x = 0; x < width; ++x, weights += columns.stride, to += kSize) {
    std::int32_t sums[kSize];
    std::fill_n(sums, kSize, 128);
    const std::uint8_t* pixel = from + std::ptrdiff_t{columns.first[x]} * kSize;
    for (int k = 0; k < columns.used; ++k, pixel += kSize) {
      for (int c = 0; c < kSize; ++c) sums[c] += weights[k] * pixel[c];
    }
    for (int c = 0; c < kSize; ++c) to[c] = static_cast<std::int16_t>(sums[c] >> 8);
  }
}

void weigh_along(const std::uint8_t* from, int size, const ColumnTaps& columns, std::int16_t* to,
                 int width) {
  (size == 1   ? weigh_pixels<1>
   : size == 3 ? weigh_pixels<3>
               : weigh_pixels<4>)(from, columns, to, width);
}

void weigh_down(const std::int16_t* const* rows, const std::int16_t* weights, int count,
                std::uint8_t* to, std::ptrdiff_t samples) {
  for (std::ptrdiff_t i = 0; i < samples; ++i) {
    std::int32_t sum = 1 << 19;
    for (int k = 0; k < count; ++k) sum += weights[k] * rows[k][i];
    to[i] = byte(std::clamp(sum >> 20, 0, 255));
  }
}

void turn_24(const std::uint8_t* const* rows, int count, int /*there*/, std::uint8_t* to,
             std::ptrdiff_t to_stride) {
  for (int i = 0; i < count; ++i, to += to_stride) {
    for (int k = 0; k < 8; ++k) std::memcpy(to + 3 * k, rows[k] + 3 * i, 3);
  }
}

// Hacker's Delight, 7-3.
void transpose_square(std::uint64_t* rows) {
  std::uint64_t mask = 0x00000000FFFFFFFF;
  for (int step = 32; step != 0; step >>= 1, mask ^= mask << step) {
    for (int i = 0; i < 64; i = (i + step + 1) & ~step) {
      const std::uint64_t swapped = (rows[i] ^ rows[i + step] >> step) & mask;
      rows[i] ^= swapped;
      rows[i + step] ^= swapped << step;
    }
  }
}

// Bytes with one of nothing behind each, of the lower half; the same of 16 bits.
std::uint64_t spread8(std::uint64_t x) {
  x = (x | x << 16) & 0x0000FFFF0000FFFF;
  return (x | x << 8) & 0x00FF00FF00FF00FF;
}
std::uint64_t spread16(std::uint64_t x) {
  return (x | x << 16) & 0x0000FFFF0000FFFF;
}

// Two values for each byte in turn; stored at `to`, a half each.
void store_in_turn(std::uint64_t a, std::uint64_t b, std::uint64_t (&to)[2]) {
  constexpr std::uint64_t kLow = 0xFFFFFFFF;
  to[0] = spread8(a & kLow) | spread8(b & kLow) << 8;
  to[1] = spread8(a >> 32) | spread8(b >> 32) << 8;
}

// Of counts up to 2^shift, a byte each, the levels.
std::uint64_t levels_of_counts(std::uint64_t counts, int shift) {
  constexpr std::uint64_t kEven = 0x00FF00FF00FF00FF, kOnes = 0x0001000100010001;
  const auto of_even = [shift](std::uint64_t c) {
    return ((c << 8) - c + (kOnes << shift >> 1)) >> shift & kEven;
  };
  return of_even(counts & kEven) | of_even(counts >> 8 & kEven) << 8;
}

// How many of each `kWide` bits in a row are set, in all rows: a byte for each, which it fits; or the
// level of that, of 2^shift bits, if that is not 0.
template <int kWide>
void count_cells_of(const Cells& cells, std::ptrdiff_t row_bytes, std::uint8_t* to) {
  static_assert(kWide == 2 || kWide == 4 || kWide == 8);
  constexpr std::uint64_t kPairs = 0x5555555555555555, kFours = 0x3333333333333333;
  constexpr std::uint64_t kEights = 0x0F0F0F0F0F0F0F0F, kTwoOfEight = 0x0303030303030303;
  constexpr int kParts = 8 / kWide;
  for (std::ptrdiff_t at = 0; at < row_bytes; at += 8, to += 8 * kParts) {
    std::uint64_t parts[kParts] = {};  // of each byte, from the left
    for (int k = 0; k < cells.count; ++k) {
      const std::uint8_t* const row = cells.rows[k];
      std::uint64_t bits = 0;
      if (row_bytes - at >= 8) {
        std::memcpy(&bits, row + at, 8);
      } else {
        std::memcpy(&bits, row + at, 4);  // rows are whole words
      }
      bits -= bits >> 1 & kPairs;
      if constexpr (kWide == 2) {
        for (int i = 0; i < kParts; ++i) parts[i] += bits >> (6 - 2 * i) & kTwoOfEight;
      } else {
        bits = (bits & kFours) + (bits >> 2 & kFours);
        if constexpr (kWide == 4) {
          parts[0] += bits >> 4 & kEights;
          parts[1] += bits & kEights;
        } else {
          parts[0] += (bits & kEights) + (bits >> 4 & kEights);
        }
      }
    }
    for (std::uint64_t& part : parts)
      part = cells.shift > 0 ? levels_of_counts(part, cells.shift) : part;
    if constexpr (kWide == 8) {
      std::memcpy(to, parts, sizeof parts);
    } else if constexpr (kWide == 4) {
      std::uint64_t both[2];
      store_in_turn(parts[0], parts[1], both);
      std::memcpy(to, both, sizeof both);
    } else {
      std::uint64_t first[2], last[2], all[4];
      store_in_turn(parts[0], parts[1], first);
      store_in_turn(parts[2], parts[3], last);
      constexpr std::uint64_t kLow = 0xFFFFFFFF;
      for (int i = 0; i < 2; ++i) {
        all[2 * i] = spread16(first[i] & kLow) | spread16(last[i] & kLow) << 16;
        all[2 * i + 1] = spread16(first[i] >> 32) | spread16(last[i] >> 32) << 16;
      }
      std::memcpy(to, all, sizeof all);
    }
  }
}

void count_cells(const Cells& cells, std::ptrdiff_t row_bytes, std::uint8_t* to) {
  (cells.wide == 2   ? count_cells_of<2>
   : cells.wide == 4 ? count_cells_of<4>
                     : count_cells_of<8>)(cells, row_bytes, to);
}

void levels_of_black(const std::int64_t* more, std::int64_t area, std::uint8_t* to,
                     std::ptrdiff_t count) {
  const Mean mean(area);
  std::int64_t black = 0;
  std::uint8_t level = 255;
  for (std::ptrdiff_t x = 0; x < count; ++x) {
    if (more[x] != 0) {
      black += more[x];
      level = mean(255 * (area - black));
    }
    to[x] = level;
  }
}

template <int kSize>
void blend_pixels(const Walk& walk, std::uint8_t* to, int count) {
  std::int64_t x = walk.x, y = walk.y;
  for (int i = 0; i < count; ++i, x += walk.x_step, y += walk.y_step, to += kSize) {
    const int fx = static_cast<int>(x >> 24 & 255), fy = static_cast<int>(y >> 24 & 255);
    const std::uint8_t* const above = walk.origin + static_cast<std::ptrdiff_t>(x >> 32) * kSize +
                                      static_cast<std::ptrdiff_t>(y >> 32) * walk.stride;
    const std::uint8_t* const below = above + walk.stride;
    for (int c = 0; c < kSize; ++c) {
      const int first = above[c] * (256 - fx) + above[c + kSize] * fx;
      const int second = below[c] * (256 - fx) + below[c + kSize] * fx;
      to[c] = byte((first * (256 - fy) + second * fy + 32768) >> 16);
    }
  }
}

void blend(const Walk& walk, int size, std::uint8_t* to, int count) {
  (size == 1 ? blend_pixels<1> : size == 3 ? blend_pixels<3> : blend_pixels<4>)(walk, to, count);
}

}  // namespace

constexpr GeometryKernels kPortableGeometryKernels{.copy_past = copy_past,
                                                   .add_rows = add_rows,
                                                   .add_shares = add_shares<std::uint8_t>,
                                                   .add_shares_16 = add_shares<std::uint16_t>,
                                                   .halve = halve,
                                                   .weigh_along = weigh_along,
                                                   .weigh_down = weigh_down,
                                                   .turn_24 = turn_24,
                                                   .transpose_square = transpose_square,
                                                   .count_cells = count_cells,
                                                   .levels_of_black = levels_of_black,
                                                   .blend = blend};

GeometryKernels geometry_kernels() {
  GeometryKernels kernels = kPortableGeometryKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (platform::cpu_features().avx2) {
    add_avx2_kernels(kernels);
    add_avx2_bit_kernels(kernels);
  }
#endif
  return kernels;
}

CopyBytes copy_rows_of(std::int64_t bytes) {
  constexpr std::int64_t kLarge = 16 << 20;
  return (bytes >= kLarge ? geometry_kernels() : kPortableGeometryKernels).copy_past;
}

}  // namespace tq::process
