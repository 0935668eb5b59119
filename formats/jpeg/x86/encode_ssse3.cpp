// The kernels of the encoder, a block at a time.
#if defined(__x86_64__) || defined(__i386__)

#include "formats/jpeg/x86/registers_ssse3.h"
// The kernels are written in terms of the registers.
#include "formats/jpeg/x86/forward_kernel.h"
#include "formats/jpeg/x86/x86_kernels.h"

namespace tq::formats::x86 {

__attribute__((target("ssse3"))) void forward_ssse3(const std::int16_t* samples,
                                                    std::ptrdiff_t stride, int count,
                                                    const QuantiseTable& table,
                                                    QuantisedBlock* out) {
  transform_blocks(samples, stride, count, table, out);
}

}  // namespace tq::formats::x86

#endif
