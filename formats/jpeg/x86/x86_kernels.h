// Variants of the kernels for x86. Each function is compiled for its instruction set alone; a file
// of them includes no templates of the standard library, whose instances others may share.
#pragma once

#include <cstddef>
#include <cstdint>

#include "formats/jpeg/quantise.h"
#include "formats/jpeg/transform.h"

namespace tq::formats::x86 {

// 16-bit arithmetic: blocks below kMostFor16Bits.
void inverse_ssse3(const std::int16_t* coefficients, const DequantiseTable& table,
                   std::uint8_t* samples, std::ptrdiff_t stride);
void inverse_pair_ssse3(const std::int16_t* const (&coefficients)[2], const DequantiseTable& table,
                        std::uint8_t* const (&samples)[2], std::ptrdiff_t stride);
void inverse_pair_avx2(const std::int16_t* const (&coefficients)[2], const DequantiseTable& table,
                       std::uint8_t* const (&samples)[2], std::ptrdiff_t stride);
std::uint32_t ac_magnitude_ssse3(const std::int16_t* coefficients, const DequantiseTable& table);
std::uint32_t ac_magnitude_avx2(const std::int16_t* coefficients, const DequantiseTable& table);

// These read and write up to 31 samples and pixels more.
void ycc_to_bgr_ssse3(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                      std::uint8_t* bgr, int width);
void ycc_to_bgr_halved_ssse3(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                             std::uint8_t* bgr, int width);
void ycc_to_bgr_avx2(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                     std::uint8_t* bgr, int width);
void ycc_to_bgr_halved_avx2(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                            std::uint8_t* bgr, int width);

void forward_ssse3(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                   const QuantiseTable& table, QuantisedBlock* out);
void forward_avx2(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                  const QuantiseTable& table, QuantisedBlock* out);

// These, too, read and write up to 31 pixels and samples more.
void bgr_to_luma_ssse3(const std::uint8_t* bgr, std::int16_t* y, int width);
void bgr_to_ycc_ssse3(const std::uint8_t* bgr, int step, std::int16_t* y, std::int16_t* cb,
                      std::int16_t* cr, int width);
void grey_to_luma_ssse3(const std::uint8_t* grey, std::int16_t* y, int width);
void bgr_to_luma_avx2(const std::uint8_t* bgr, std::int16_t* y, int width);
void bgr_to_ycc_avx2(const std::uint8_t* bgr, int step, std::int16_t* y, std::int16_t* cb,
                     std::int16_t* cr, int width);
void grey_to_luma_avx2(const std::uint8_t* grey, std::int16_t* y, int width);

}  // namespace tq::formats::x86
