// The kernels in registers of 256 bits: two blocks at a time.
#if defined(__x86_64__) || defined(__i386__)

#include "platform/x86/simd256.h"
// The kernels are written in terms of the registers.
#include "formats/jpeg/x86/add_kernels.h"
#include "formats/jpeg/x86/x86_kernels.h"

namespace tq::formats::x86 {

void add_avx2_kernels(JpegKernels& kernels) {
  add_kernels(kernels);
}

}  // namespace tq::formats::x86

#endif
