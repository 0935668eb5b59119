// The kernels in registers of 128 bits: a block at a time.
#if defined(__x86_64__) || defined(__i386__)

#include "platform/x86/simd128.h"
// The kernels are written in terms of the registers.
#include "formats/jpeg/x86/add_kernels.h"
#include "formats/jpeg/x86/x86_kernels.h"

namespace tq::formats::x86 {
namespace {

TQ_KERNEL void inverse_single(const std::int16_t* coefficients, const DequantiseTable& table,
                              std::uint8_t* samples, std::ptrdiff_t stride) {
  inverse_blocks(&coefficients, table, &samples, stride);
}

}  // namespace

void add_ssse3_kernels(JpegKernels& kernels) {
  add_kernels(kernels);
  kernels.inverse_small = inverse_single;
}

}  // namespace tq::formats::x86

#endif
