// The kernels in registers of 256 bits: two blocks at a time.
#if defined(__x86_64__) || defined(__i386__)

#include "platform/x86/simd256.h"
// The kernels are written in its words.
#include "formats/jpeg/dsp/kernels_x86.h"

namespace tq::jpeg {

void add_avx2_kernels(Kernels& kernels) {
  x86::add_kernels(kernels);
}

}  // namespace tq::jpeg

#endif
