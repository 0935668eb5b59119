// What takes the time of a reduction, as plain functions over a row. The portable ones are the
// reference; faster ones give the same sums.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/numbers.h"
#include "platform/cpu.h"
#include "show/spans.h"

namespace tq::show {

// Makes means of sums of samples.
struct Divisor {
  static constexpr int kMeanBits = 40;  // behind the point of a mean

  explicit Divisor(std::uint64_t total);
  std::uint64_t mean40(std::uint64_t sum) const {
    return std::uint64_t{static_cast<std::uint32_t>(sum >> shift)} * inverse;
  }
  // 255 times the mean, with 8 bits behind the point.
  std::uint16_t share(std::uint64_t sum) const {
    return word((255 * mean40(sum) + (std::uint64_t{1} << 31)) >> 32);
  }
  std::uint8_t rounded(std::uint64_t sum) const {
    return byte((mean40(sum) + (std::uint64_t{1} << (kMeanBits - 1))) >> kMeanBits);
  }

  int shift = 0;
  std::uint32_t inverse = 0;
};

// What sums of columns are divided by: one of two.
struct Divisors {
  const std::uint32_t* totals;  // of each column: `least` or another
  std::uint32_t least;
  Divisor of_least, of_others;

  const Divisor& at(std::size_t column) const {
    return totals[column] == least ? of_least : of_others;
  }
};

// Columns of three channels, and of what they are the means.
struct ColourColumns {
  const std::uint32_t*
      samples;  // sums of rows, from the image's column 0; one more than all can be read
  std::span<const Span> columns;  // at least one
  std::uint32_t one;
};

// Of one channel of several.
inline std::uint64_t weighed_sum(const std::uint32_t* samples, int channels, const Span& span,
                                 std::uint32_t one) {
  const std::uint32_t* const first = samples + std::ptrdiff_t{channels} * span.first;
  const std::uint32_t* const last = samples + std::ptrdiff_t{channels} * span.last;
  std::uint64_t inner = 0;
  for (const std::uint32_t* at = first + channels; at < last; at += channels) inner += *at;
  return std::uint64_t{*first} * span.first_weight + inner * one +
         std::uint64_t{*last} * span.last_weight;
}

struct Kernels {
  // The most rows that are weighed together, and the most that a row weighs.
  static constexpr int kRows = 8;
  static constexpr std::uint32_t kMostWeight = 1 << 12;

  // Makes of `count` samples of each row their sums by weight, or adds them to the sums.
  void (*weigh_rows)(const std::uint8_t* const* rows, const std::uint16_t* weights, int row_count,
                     std::uint32_t* sums, std::ptrdiff_t count, bool add);

  void (*mean_colours)(const ColourColumns& of, Divisors divisors, std::uint8_t* bgr);

  // 255 times the means, with 8 bits behind the point.
  void (*mean_shares)(std::span<const std::uint64_t> sums, Divisors divisors,
                      std::uint16_t* shares);

  // Blue, green, red to the same and 255.
  void (*widen)(const std::uint8_t* bgr, std::uint8_t* bgrx, std::ptrdiff_t count);
};

extern const Kernels kPortableKernels;
void add_ssse3_kernels(Kernels& kernels);

Kernels select_kernels(const platform::CpuFeatures& features);
inline Kernels kernels() {
  return select_kernels(platform::cpu_features());
}

}  // namespace tq::show
