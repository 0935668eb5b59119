// Functions over one block or one row, which have faster variants that give the same numbers: the
// transforms with quantisation, colour conversion, and what makes more or fewer samples of chroma.
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

// There are two sets of kernels: those whose factors have 10 fractional bits and whose results are
// cut, as callers have relied on, and those that agree with exact arithmetic as far as 8 bits can.
enum class Accuracy : std::uint8_t { coarse, exact };

// Division by 4 or 8 times each step, as two multiplications of 16 bits: exact for all magnitudes
// below 32768.
struct QuantiseTable {
  alignas(16) std::uint16_t bias[kBlock];
  alignas(16) std::uint16_t reciprocal[kBlock];
  alignas(16) std::uint16_t scale[kBlock];
};

// Row by row.
QuantiseTable quantise_table(const std::array<std::uint8_t, kBlock>& steps, Accuracy accuracy);

// Quantised coefficients row by row, and which of them are not 0: bit i is place i of the zigzag
// sequence.
struct QuantisedBlock {
  alignas(16) std::int16_t values[kBlock];
  std::uint64_t present;
};

// Rows need room for kKernelMargin samples, or pixels, behind their width.
inline constexpr int kKernelMargin = 64;

// Two rows of samples, one of which is nearer to the row that is made.
struct NearFar {
  const std::uint8_t *near, *far;
};

struct Kernels {
  Accuracy accuracy;

  // Blocks whose magnitudes have a smaller sum are small. Coarse: every intermediate value of the
  // inverse transform fits 16 bits, as none is more than 3.7753 times the sum, and rounding adds
  // 127 at most. Exact: the coefficients fit.
  std::uint32_t small_below;
  // Samples from this value on are taken for the wrap-around of something dark.
  std::int32_t dark_from;

  // Samples 0..255 from quantised coefficients: 8 rows of 8, `stride` bytes apart. Any block; then
  // small ones, one and two at a time.
  void (*inverse)(const std::int16_t* coefficients, const DequantiseTable& table,
                  std::uint8_t* samples, std::ptrdiff_t stride);
  void (*inverse_small)(const std::int16_t* coefficients, const DequantiseTable& table,
                        std::uint8_t* samples, std::ptrdiff_t stride);
  void (*inverse_small_pair)(const std::int16_t* const (&coefficients)[2],
                             const DequantiseTable& table, std::uint8_t* const (&samples)[2],
                             std::ptrdiff_t stride);
  // The sum of the magnitudes of all coefficients times their quantiser steps. The table is small.
  std::uint32_t (*magnitude)(const std::int16_t* coefficients, const DequantiseTable& table);

  // YCbCr to blue, green, red. The second form has one chroma sample per two pixels; it is coarse in
  // either set.
  void (*ycc_to_bgr)(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                     std::uint8_t* bgr, int width);
  void (*ycc_to_bgr_halved)(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                            std::uint8_t* bgr, int width);

  // Twice as many samples by a triangle filter: between neighbours of a row, where there is one more
  // on either side of the row; between two rows, of which the near one is below the far one or above
  // it (`bias` 1 or 2); both.
  void (*smooth_across)(const std::uint8_t* samples, std::uint8_t* out, int count);
  void (*smooth_down)(NearFar rows, int bias, std::uint8_t* out, int count);
  void (*smooth_both)(NearFar rows, std::uint8_t* out, int count);

  // Forward transform and quantisation of `count` blocks of samples -128..128 side by side.
  // Variants take two at a time: they read 8 samples more than the blocks have, and there is a
  // block more in `out`.
  void (*forward)(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                  const QuantiseTable& table, QuantisedBlock* out);

  // Pixels to samples centred on 0. Chroma is taken from every `h`-th pixel; the exact kernels have
  // it for every one.
  void (*bgr_to_luma)(const std::uint8_t* bgr, std::int16_t* y, int width);
  void (*bgr_to_ycc)(const std::uint8_t* bgr, int h, std::int16_t* y, std::int16_t* cb,
                     std::int16_t* cr, int width);
  void (*grey_to_luma)(const std::uint8_t* grey, std::int16_t* y, int width);

  // `count` means of two samples side by side, and of two such pairs one above the other. What is
  // halfway between two levels goes up and down in turn.
  void (*halve_across)(const std::int16_t* samples, std::int16_t* out, int count);
  void (*halve_both)(const std::int16_t* upper, const std::int16_t* lower, std::int16_t* out,
                     int count);
};

// No features: the portable ones.
Kernels select_kernels(const platform::CpuFeatures& features, Accuracy accuracy);
Kernels kernels(Accuracy accuracy);  // of this processor

// What has no variant.

// Samples of 12 bits as 16-bit grey levels; the stride is in samples.
void inverse_transform_12(const std::int16_t* coefficients, const DequantiseTable& table,
                          int level_shift, std::uint16_t* samples, std::ptrdiff_t stride);

// A sample that the inverse transform gives as `value`, with the level shift.
constexpr std::uint8_t limited(std::int32_t value, std::int32_t dark_from) {
  if (value < -128) return 0;
  if (value < 128) return byte(value + 128);
  return value < dark_from ? 255 : 0;
}

// Coarse: the sign of c times (|c| + 2 t) / (4 t), truncated; for the step 1 |c| / 4 is not rounded:
// callers rely on it. Exact: c / (8 t), halves away from 0.
void quantise(const std::int16_t* coefficients, const QuantiseTable& table, QuantisedBlock& out);

void bgr_to_chroma(const std::uint8_t* bgr, int h, std::int16_t* cb, std::int16_t* cr, int width);

// The variants for x86.
void add_ssse3_kernels(Kernels& kernels);
void add_avx2_kernels(Kernels& kernels);

// The factors of the exact transforms, with 13 fractional bits: of the four odd coefficients, or
// differences, and of the two even ones that are not sums alone. They are the sums of the factors in
// the flow graph of Loeffler, Ligtenberg and Moschytz, each rounded by itself, so that coefficients
// are to the bit those of encoders that follow it.
inline constexpr int kExactFraction = 13;
inline constexpr std::int32_t kOdd[4][4] = {{11363, 9633, 6437, 2260},
                                            {9633, -2259, -11362, -6436},
                                            {6437, -11362, 2261, 9633},
                                            {2260, -6436, 9633, -11363}};
inline constexpr std::int32_t kEven[2][2] = {{10703, 4433}, {4433, -10704}};
// Values keep this many more bits between the passes.
inline constexpr int kPassBits = 2;

// The exact weights of colours, with 16 fractional bits. Those above 1/2 are taken apart where
// factors of 16 bits are wanted.
inline constexpr int kRedOfCr = 91881, kGreenOfCb = 22554, kGreenOfCr = 46802, kBlueOfCb = 116130;
inline constexpr int kLumaWeights[3] = {7471, 38470, 19595};  // of blue, green, red
inline constexpr int kBlueWeights[3] = {32768, -21709, -11059};
inline constexpr int kRedWeights[3] = {-5329, -27439, 32768};
inline constexpr int kJustBelowHalf = 32767;  // what is added to chroma before it is cut

}  // namespace tq::jpeg
