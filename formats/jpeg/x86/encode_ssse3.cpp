// The kernels of the encoder, a block at a time.
#if defined(__x86_64__) || defined(__i386__)

#include "formats/jpeg/x86/registers_ssse3.h"
// The kernels are written in terms of the registers.
#include "formats/jpeg/x86/forward_kernel.h"
#include "formats/jpeg/x86/samples_kernel.h"
#include "formats/jpeg/x86/x86_kernels.h"

namespace tq::formats::x86 {

__attribute__((target("ssse3"))) void forward_ssse3(const std::int16_t* samples,
                                                    std::ptrdiff_t stride, int count,
                                                    const QuantiseTable& table,
                                                    QuantisedBlock* out) {
  transform_blocks(samples, stride, count, table, out);
}

__attribute__((target("ssse3"))) void bgr_to_luma_ssse3(const std::uint8_t* bgr, std::int16_t* y,
                                                        int width) {
  convert_row<0>(bgr, y, nullptr, nullptr, width);
}

__attribute__((target("ssse3"))) void bgr_to_ycc_ssse3(const std::uint8_t* bgr, int step,
                                                       std::int16_t* y, std::int16_t* cb,
                                                       std::int16_t* cr, int width) {
  convert_bgr(bgr, step, y, cb, cr, width);
}

__attribute__((target("ssse3"))) void grey_to_luma_ssse3(const std::uint8_t* grey, std::int16_t* y,
                                                         int width) {
  convert_grey(grey, y, width);
}

}  // namespace tq::formats::x86

#endif
