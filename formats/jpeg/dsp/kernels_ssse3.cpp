// The kernels in registers of 128 bits: a block at a time.
#if defined(__x86_64__) || defined(__i386__)

#include "platform/x86/simd128.h"
// The kernels are written in its words.
#include "formats/jpeg/dsp/kernels_x86.h"

namespace tq::jpeg {
namespace {

TQ_KERNEL void inverse_single(const std::int16_t* coefficients, const DequantiseTable& table,
                              std::uint8_t* samples, std::ptrdiff_t stride) {
  x86::inverse_blocks(&coefficients, table, &samples, stride);
}

TQ_KERNEL void exact_inverse_single(const std::int16_t* coefficients, const DequantiseTable& table,
                                    std::uint8_t* samples, std::ptrdiff_t stride) {
  x86::exact_inverse_blocks(&coefficients, table, &samples, stride);
}

}  // namespace

void add_ssse3_kernels(Kernels& kernels) {
  x86::add_kernels(kernels);
  const bool exact = kernels.accuracy == Accuracy::exact;
  kernels.inverse_small = exact ? exact_inverse_single : inverse_single;
}

}  // namespace tq::jpeg

#endif
