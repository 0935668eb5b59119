// The portable kernels, and the choice.
#include "show/kernels.h"

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

}  // namespace

constexpr Kernels kPortableKernels{.weigh_rows = weigh_rows};

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  Kernels kernels = kPortableKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (features.ssse3) add_ssse3_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::show
