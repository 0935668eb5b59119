// Functions over one block or one row, which have faster variants that give the same numbers: the
// transforms with quantisation, and colour conversion.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "formats/jpeg/tables.h"
#include "platform/cpu.h"

namespace tq::jpeg {

// Quantiser steps of one component in the order of its coefficients, column by column.
struct DequantiseTable {
  alignas(32) std::uint16_t steps[kBlock];
  // Whether products of valid coefficients can be bounded without overflow.
  bool small = false;
};

// Magnitudes below this sum keep every intermediate value of the inverse transform in 16 bits: none
// is more than 3.7753 times the sum, and rounding adds 127 at most.
inline constexpr std::uint32_t kMostFor16Bits = 8600;

// Division by 4 times each step, as two multiplications of 16 bits: exact for all magnitudes below
// 32768.
struct QuantiseTable {
  alignas(16) std::uint16_t bias[kBlock];
  alignas(16) std::uint16_t reciprocal[kBlock];
  alignas(16) std::uint16_t scale[kBlock];
};

// Row by row.
QuantiseTable quantise_table(const std::array<std::uint8_t, kBlock>& steps);

// Quantised coefficients row by row, and which of them are not 0: bit i is place i of the zigzag
// sequence.
struct QuantisedBlock {
  alignas(16) std::int16_t values[kBlock];
  std::uint64_t present;
};

// Rows need room for kKernelMargin samples, or pixels, behind their width.
inline constexpr int kKernelMargin = 64;

struct Kernels {
  // Samples 0..255 from quantised coefficients: 8 rows of 8, `stride` bytes apart. Any block; then
  // blocks below kMostFor16Bits, one and two at a time.
  void (*inverse)(const std::int16_t* coefficients, const DequantiseTable& table,
                  std::uint8_t* samples, std::ptrdiff_t stride);
  void (*inverse_small)(const std::int16_t* coefficients, const DequantiseTable& table,
                        std::uint8_t* samples, std::ptrdiff_t stride);
  void (*inverse_small_pair)(const std::int16_t* const (&coefficients)[2],
                             const DequantiseTable& table, std::uint8_t* const (&samples)[2],
                             std::ptrdiff_t stride);
  // The sum of the magnitudes of all coefficients times their quantiser steps. The table is small.
  std::uint32_t (*magnitude)(const std::int16_t* coefficients, const DequantiseTable& table);

  // YCbCr to blue, green, red. The second form has one chroma sample per two pixels.
  void (*ycc_to_bgr)(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                     std::uint8_t* bgr, int width);
  void (*ycc_to_bgr_halved)(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                            std::uint8_t* bgr, int width);

  // Forward transform and quantisation of `count` blocks of samples -128..128 side by side.
  // Variants take two at a time: they read 8 samples more than the blocks have, and there is a
  // block more in `out`.
  void (*forward)(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                  const QuantiseTable& table, QuantisedBlock* out);

  // Pixels to samples centred on 0. Chroma is taken from every `h`-th pixel.
  void (*bgr_to_luma)(const std::uint8_t* bgr, std::int16_t* y, int width);
  void (*bgr_to_ycc)(const std::uint8_t* bgr, int h, std::int16_t* y, std::int16_t* cb,
                     std::int16_t* cr, int width);
  void (*grey_to_luma)(const std::uint8_t* grey, std::int16_t* y, int width);
};

Kernels select_kernels(const platform::CpuFeatures& features);  // none: the portable ones
Kernels kernels();                                              // of this processor

// What has no variant.

// Samples of 12 bits as 16-bit grey levels; the stride is in samples.
void inverse_transform_12(const std::int16_t* coefficients, const DequantiseTable& table,
                          std::uint16_t* samples, std::ptrdiff_t stride);

// A sample that the inverse transform gives as `value`, with the level shift.
constexpr std::uint8_t limited(std::int32_t value) {
  if (value < -128) return 0;
  if (value < 128) return byte(value + 128);
  // What is far too bright is taken for the wrap-around of something dark.
  return value < 384 ? 255 : 0;
}

// The sign of c times (|c| + 2 t) / (4 t), truncated; for the step 1 |c| / 4 is not rounded:
// callers rely on it.
void quantise(const std::int16_t* coefficients, const QuantiseTable& table, QuantisedBlock& out);

void bgr_to_chroma(const std::uint8_t* bgr, int h, std::int16_t* cb, std::int16_t* cr, int width);

// The variants for x86.
void add_ssse3_kernels(Kernels& kernels);
void add_avx2_kernels(Kernels& kernels);

}  // namespace tq::jpeg
