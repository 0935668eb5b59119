// The functions that have faster variants, chosen once per image by what the processor can do.
#pragma once

#include "formats/jpeg/colour.h"
#include "formats/jpeg/quantise.h"
#include "formats/jpeg/transform.h"
#include "platform/cpu.h"

namespace tq::formats {

// Rows need room for kKernelMargin samples, or pixels, behind their width.
inline constexpr int kKernelMargin = 64;

struct JpegKernels {
  // Any block.
  void (*inverse)(const std::int16_t* coefficients, const DequantiseTable& table,
                  std::uint8_t* samples, std::ptrdiff_t stride);
  // Blocks below kMostFor16Bits, one and two at a time.
  void (*inverse_small)(const std::int16_t* coefficients, const DequantiseTable& table,
                        std::uint8_t* samples, std::ptrdiff_t stride);
  void (*inverse_small_pair)(const std::int16_t* const (&coefficients)[2],
                             const DequantiseTable& table, std::uint8_t* const (&samples)[2],
                             std::ptrdiff_t stride);
  std::uint32_t (*magnitude)(const std::int16_t* coefficients, const DequantiseTable& table);
  void (*ycc_to_bgr)(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                     std::uint8_t* bgr, int width);
  void (*ycc_to_bgr_halved)(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                            std::uint8_t* bgr, int width);
  void (*forward)(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                  const QuantiseTable& table, QuantisedBlock* out);
  void (*bgr_to_luma)(const std::uint8_t* bgr, std::int16_t* y, int width);
  void (*bgr_to_ycc)(const std::uint8_t* bgr, int step, std::int16_t* y, std::int16_t* cb,
                     std::int16_t* cr, int width);
  void (*grey_to_luma)(const std::uint8_t* grey, std::int16_t* y, int width);
};

JpegKernels select_kernels(const platform::CpuFeatures& features);
JpegKernels jpeg_kernels();  // of this processor, less what is masked

}  // namespace tq::formats
