// The transforms between blocks of samples and coefficients, exact integer arithmetic.
#pragma once

#include <cstddef>
#include <cstdint>

#include "formats/jpeg/tables.h"

namespace tq::formats {

// Quantisers of one component in the order of its coefficients, column by column.
struct DequantiseTable {
  alignas(32) std::uint16_t steps[kBlock];
  // Whether products of valid coefficients can be bounded without overflow.
  bool small = false;
};

// Amounts below this sum keep every intermediate value of the inverse transform in 16 bits: none is
// more than 3.7753 times the sum, and rounding adds 127 at most.
inline constexpr std::uint32_t kMostFor16Bits = 8600;

// The sum of all coefficients times their quantisers, by amount. The table is small.
std::uint32_t magnitude(const std::int16_t* coefficients, const DequantiseTable& table);

// Samples 0..255 from quantised coefficients; 8 rows of 8, `stride` bytes apart.
void inverse_transform(const std::int16_t* coefficients, const DequantiseTable& table,
                       std::uint8_t* samples, std::ptrdiff_t stride);

// Samples of 12 bits as 16-bit grey levels.
void inverse_transform_12(const std::int16_t* coefficients, const DequantiseTable& table,
                          std::uint16_t* samples, std::ptrdiff_t stride);

// A sample that the inverse transform gives as `value`, with the level shift.
constexpr std::uint8_t limited(std::int32_t value) {
  if (value < -128) return 0;
  if (value < 128) return static_cast<std::uint8_t>(value + 128);
  // What is far too bright is taken for the wrap-around of something dark.
  return value < 384 ? 255 : 0;
}

// 4 times the orthonormal coefficients of 8 rows of samples -128..128, row by row.
void forward_transform(const std::int16_t* samples, std::ptrdiff_t stride,
                       std::int16_t* coefficients);

}  // namespace tq::formats
