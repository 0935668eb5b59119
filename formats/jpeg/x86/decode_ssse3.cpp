// The kernels of the decoder, one block at a time.
#if defined(__x86_64__) || defined(__i386__)

#include "formats/jpeg/x86/registers_ssse3.h"
// The kernels are written in terms of the registers.
#include "formats/jpeg/x86/inverse_kernel.h"
#include "formats/jpeg/x86/pixels_kernel.h"
#include "formats/jpeg/x86/x86_kernels.h"

namespace tq::formats::x86 {

__attribute__((target("ssse3"))) void inverse_ssse3(const std::int16_t* coefficients,
                                                    const DequantiseTable& table,
                                                    std::uint8_t* samples, std::ptrdiff_t stride) {
  inverse_blocks({coefficients}, table, {samples}, stride);
}

__attribute__((target("ssse3"))) void inverse_pair_ssse3(
    const std::int16_t* const (&coefficients)[2], const DequantiseTable& table,
    std::uint8_t* const (&samples)[2], std::ptrdiff_t stride) {
  for (int i = 0; i < 2; ++i) inverse_blocks({coefficients[i]}, table, {samples[i]}, stride);
}

__attribute__((target("ssse3"))) std::uint32_t ac_magnitude_ssse3(const std::int16_t* coefficients,
                                                                  const DequantiseTable& table) {
  return sum_ac(coefficients, table);
}

__attribute__((target("ssse3"))) void ycc_to_bgr_ssse3(const std::uint8_t* y,
                                                       const std::uint8_t* cb,
                                                       const std::uint8_t* cr, std::uint8_t* bgr,
                                                       int width) {
  convert_row(y, cb, cr, bgr, width);
}

__attribute__((target("ssse3"))) void ycc_to_bgr_halved_ssse3(const std::uint8_t* y,
                                                              const std::uint8_t* cb,
                                                              const std::uint8_t* cr,
                                                              std::uint8_t* bgr, int width) {
  convert_halved_row(y, cb, cr, bgr, width);
}

}  // namespace tq::formats::x86

#endif
