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
                                                   .blend = blend};

GeometryKernels geometry_kernels() {
  GeometryKernels kernels = kPortableGeometryKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (platform::cpu_features().avx2) add_avx2_kernels(kernels);
#endif
  return kernels;
}

CopyBytes copy_rows_of(std::int64_t bytes) {
  constexpr std::int64_t kLarge = 16 << 20;
  return (bytes >= kLarge ? geometry_kernels() : kPortableGeometryKernels).copy_past;
}

}  // namespace tq::process
