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

void mean_colours(const ColourColumns& of, Divisors divisors, std::uint8_t* bgr) {
  for (std::size_t x = 0; x < of.columns.size(); ++x, bgr += 3) {
    const Divisor divisor = divisors.at(x);
    for (int i = 0; i < 3; ++i) {
      bgr[i] = divisor.rounded(weighed_sum(of.samples + i, 3, of.columns[x], of.one));
    }
  }
}

void mean_shares(std::span<const std::uint64_t> sums, Divisors divisors, std::uint16_t* shares) {
  for (std::size_t x = 0; x < sums.size(); ++x) shares[x] = divisors.at(x).share(sums[x]);
}

void widen(const std::uint8_t* bgr, std::uint8_t* bgrx, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i, bgr += 3, bgrx += 4) {
    const std::uint8_t pixel[4] = {bgr[0], bgr[1], bgr[2], 255};
    std::memcpy(bgrx, pixel, sizeof pixel);
  }
}

}  // namespace

Divisor::Divisor(std::uint64_t total) {
  while (total >> shift >= std::uint64_t{1} << 23) ++shift;
  inverse = static_cast<std::uint32_t>((std::uint64_t{1} << kMeanBits) / (total >> shift));
}

constexpr Kernels kPortableKernels{.weigh_rows = weigh_rows,
                                   .mean_colours = mean_colours,
                                   .mean_shares = mean_shares,
                                   .widen = widen};

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  Kernels kernels = kPortableKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (features.ssse3) add_ssse3_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::show
