// The portable kernels.
#include "formats/jpeg/kernels.h"

namespace tq::formats {
namespace {

void inverse_pair(const std::int16_t* const (&coefficients)[2], const DequantiseTable& table,
                  std::uint8_t* const (&samples)[2], std::ptrdiff_t stride) {
  for (int i = 0; i < 2; ++i) inverse_transform(coefficients[i], table, samples[i], stride);
}

}  // namespace

JpegKernels select_kernels(platform::CpuFeatures /*features*/) {
  return {.inverse = inverse_transform,
          .inverse_small = inverse_transform,
          .inverse_small_pair = inverse_pair,
          .ycc_to_bgr = ycc_to_bgr,
          .ycc_to_bgr_halved = ycc_to_bgr_halved,
          .forward = forward_transform,
          .bgr_to_luma = bgr_to_luma,
          .bgr_to_chroma = bgr_to_chroma};
}

JpegKernels jpeg_kernels() {
  return select_kernels(platform::cpu_features());
}

}  // namespace tq::formats
