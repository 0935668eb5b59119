// The portable kernels, and the choice.
#include "show/kernels.h"

#include <cstring>

namespace tq::show {
namespace {

void weigh_rows(const std::uint8_t* const* rows, const std::uint16_t* weights, int row_count,
                std::uint32_t* sums, std::ptrdiff_t count, bool add) {
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    std::uint32_t sum = add ? sums[i] : 0;
    for (int row = 0; row < row_count; ++row) {
      sum += std::uint32_t{weights[row]} * rows[row][i];
    }
    sums[i] = sum;
  }
}

void widen(const std::uint8_t* bgr, std::uint8_t* bgrx, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i, bgr += 3, bgrx += 4) {
    const std::uint8_t pixel[4] = {bgr[0], bgr[1], bgr[2], 255};
    std::memcpy(bgrx, pixel, sizeof pixel);
  }
}

}  // namespace

constexpr Kernels kPortableKernels{.weigh_rows = weigh_rows, .widen = widen};

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  Kernels kernels = kPortableKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (features.ssse3) add_ssse3_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::show
