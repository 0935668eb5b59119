// The choice of kernels.
#include "formats/jpeg/kernels.h"

#include "formats/jpeg/x86/x86_kernels.h"

namespace tq::formats {
namespace {

void inverse_pair(const std::int16_t* const (&coefficients)[2], const DequantiseTable& table,
                  std::uint8_t* const (&samples)[2], std::ptrdiff_t stride) {
  for (int i = 0; i < 2; ++i) inverse_transform(coefficients[i], table, samples[i], stride);
}

#if defined(__x86_64__) || defined(__i386__)
void add_variants(const platform::CpuFeatures& features, JpegKernels& kernels) {
  if (features.ssse3) {
    kernels.inverse_small = x86::inverse_ssse3;
    kernels.inverse_small_pair = x86::inverse_pair_ssse3;
    kernels.ac_magnitude = x86::ac_magnitude_ssse3;
    kernels.ycc_to_bgr = x86::ycc_to_bgr_ssse3;
    kernels.ycc_to_bgr_halved = x86::ycc_to_bgr_halved_ssse3;
    kernels.forward = x86::forward_ssse3;
    kernels.bgr_to_luma = x86::bgr_to_luma_ssse3;
    kernels.bgr_to_ycc = x86::bgr_to_ycc_ssse3;
    kernels.grey_to_luma = x86::grey_to_luma_ssse3;
  }
  if (features.avx2) {
    kernels.inverse_small_pair = x86::inverse_pair_avx2;
    kernels.ac_magnitude = x86::ac_magnitude_avx2;
    kernels.ycc_to_bgr = x86::ycc_to_bgr_avx2;
    kernels.ycc_to_bgr_halved = x86::ycc_to_bgr_halved_avx2;
    kernels.forward = x86::forward_avx2;
    kernels.bgr_to_luma = x86::bgr_to_luma_avx2;
    kernels.bgr_to_ycc = x86::bgr_to_ycc_avx2;
    kernels.grey_to_luma = x86::grey_to_luma_avx2;
  }
}
#else
void add_variants(const platform::CpuFeatures&, JpegKernels&) {}
#endif

}  // namespace

JpegKernels select_kernels(const platform::CpuFeatures& features) {
  JpegKernels kernels{.inverse = inverse_transform,
                      .inverse_small = inverse_transform,
                      .inverse_small_pair = inverse_pair,
                      .ac_magnitude = ac_magnitude,
                      .ycc_to_bgr = ycc_to_bgr,
                      .ycc_to_bgr_halved = ycc_to_bgr_halved,
                      .forward = forward_blocks,
                      .bgr_to_luma = bgr_to_luma,
                      .bgr_to_ycc = bgr_to_ycc,
                      .grey_to_luma = grey_to_luma};
  add_variants(features, kernels);
  return kernels;
}

JpegKernels jpeg_kernels() {
  return select_kernels(platform::cpu_features());
}

}  // namespace tq::formats
