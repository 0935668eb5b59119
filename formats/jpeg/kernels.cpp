// The choice of kernels.
#include "formats/jpeg/kernels.h"

#include "formats/jpeg/x86/x86_kernels.h"

namespace tq::formats {
namespace {

void inverse_pair(const std::int16_t* const (&coefficients)[2], const DequantiseTable& table,
                  std::uint8_t* const (&samples)[2], std::ptrdiff_t stride) {
  for (int i = 0; i < 2; ++i) inverse_transform(coefficients[i], table, samples[i], stride);
}

}  // namespace

JpegKernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  JpegKernels kernels{.inverse = inverse_transform,
                      .inverse_small = inverse_transform,
                      .inverse_small_pair = inverse_pair,
                      .magnitude = magnitude,
                      .ycc_to_bgr = ycc_to_bgr,
                      .ycc_to_bgr_halved = ycc_to_bgr_halved,
                      .forward = forward_blocks,
                      .bgr_to_luma = bgr_to_luma,
                      .bgr_to_ycc = bgr_to_ycc,
                      .grey_to_luma = grey_to_luma};
#if defined(__x86_64__) || defined(__i386__)
  if (features.ssse3) x86::add_ssse3_kernels(kernels);
  if (features.avx2) x86::add_avx2_kernels(kernels);
#endif
  return kernels;
}

JpegKernels jpeg_kernels() {
  return select_kernels(platform::cpu_features());
}

}  // namespace tq::formats
