// Stucki diffusion: what the rows above give is a convolution, what the row itself gives a chain.
#include "process/stucki.h"

#include <utility>

#include "process/kernels.h"

namespace tq::process {

StuckiRows::StuckiRows() {
  for (int value = kLowest; value < kLowest + 512; ++value) {
    const int error = value > 127 ? value - 255 : value;
    largest_share_[value - kLowest] = static_cast<std::int8_t>(8 * error / 42);
  }
}

Status StuckiRows::allocate(std::int32_t width) {
  width_ = width;
  TQ_TRY(values_.allocate(width));
  for (auto& row : shares_) TQ_TRY(row.allocate(width));
  return kOk;
}

void StuckiRows::diffuse(const std::uint8_t* levels, bool rightward, std::span<std::uint8_t> bits) {
  kernels().add_stucki_rows(levels, shares_[1].data(), shares_[2].data(), values_.data(), width_);
  std::fill(bits.begin(), bits.end(), std::uint8_t{0});
  if (rightward) {
    diffuse_along<1>(bits);
  } else {
    diffuse_along<-1>(bits);
  }
  std::swap(shares_[2], shares_[1]);
  std::swap(shares_[1], shares_[0]);
}

template <int kStep>
void StuckiRows::diffuse_along(std::span<std::uint8_t> bits) {
  const std::int16_t* values = values_.data();
  std::int8_t* shares = shares_[0].data();
  const std::int8_t* share_of = largest_share_.data() - kLowest;
  std::uint8_t* out = bits.data();
  int before = 0, last = 0;  // largest shares of the two pixels behind
  std::int32_t x = kStep > 0 ? 0 : width_ - 1;
  for (std::int32_t left = width_; left > 0; --left, x += kStep) {
    const int value = values[x] + before / 2 + last;
    out[x >> 3] |= static_cast<std::uint8_t>((value > 127) << (7 - (x & 7)));
    before = last;
    last = share_of[value];
    shares[x] = static_cast<std::int8_t>(last);
  }
}

}  // namespace tq::process
