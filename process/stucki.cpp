// Stucki diffusion: what the rows above give is a convolution, what the row itself gives a chain.
#include "process/stucki.h"

#include <utility>

#include "platform/cpu.h"
#include "process/x86/kernels_x86.h"

namespace tq::process {
namespace {

// Grey levels plus what the rows above give. By weight: the neighbour's largest share, its half,
// its quarter, its eighth.
void add_rows_above(const std::uint8_t* levels, const std::int8_t* above,
                    const std::int8_t* second_above, std::int16_t* values, std::int32_t width) {
  std::int32_t x = 0;
#if defined(__SSE2__)
  if (platform::cpu_features().sse2) {
    x = x86::add_stucki_rows(levels, above, second_above, values, width);
  }
#endif
  for (; x < width; ++x) {
    const std::int8_t* a = above + x;
    const std::int8_t* b = second_above + x;
    const int from_above = a[-2] / 4 + a[-1] / 2 + a[0] + a[1] / 2 + a[2] / 4;
    const int from_second = b[-2] / 8 + b[-1] / 4 + b[0] / 2 + b[1] / 4 + b[2] / 8;
    values[x] = static_cast<std::int16_t>(levels[x] + from_above + from_second);
  }
}

}  // namespace

StuckiRows::StuckiRows() {
  for (int value = kLowest; value < kLowest + 512; ++value) {
    const int error = value > 127 ? value - 255 : value;
    largest_share_[value - kLowest] = static_cast<std::int8_t>(8 * error / 42);
  }
}

Status StuckiRows::allocate(std::int32_t width) {
  width_ = width;
  // Pieces must be longer than what a lane runs over before them, and positions fit 15 bits.
  constexpr std::int32_t kNarrowest = 1024, kWidest = 32000;
  if (platform::cpu_features().avx2 && width >= kNarrowest && width <= kWidest) {
    return allocate_lanes();
  }
  TQ_TRY(values_.allocate(width));
  for (auto& row : shares_) TQ_TRY(row.allocate(width));
  return kOk;
}

Status StuckiRows::allocate_lanes() {
  piece_ = (width_ + 16 * kLanes - 1) / (16 * kLanes) * 16;
  const std::int32_t pixels = piece_ * kLanes;
  TQ_TRY(values_.allocate(pixels));
  for (auto& row : shares_) TQ_TRY(row.allocate(pixels));
  TQ_TRY(whole_levels_.allocate(pixels));
  TQ_TRY(lane_levels_.allocate(pixels));
  TQ_TRY(white_.allocate(pixels));
  return lane_bits_.allocate(pixels / 8);
}

void StuckiRows::diffuse(std::span<const std::uint8_t> levels, bool rightward,
                         std::span<std::uint8_t> bits) {
  if (piece_ != 0) {
    diffuse_in_lanes(levels, rightward, bits);
  } else {
    add_rows_above(levels.data(), shares_[1].data(), shares_[2].data(), values_.data(), width_);
    std::fill(bits.begin(), bits.end(), std::uint8_t{0});
    if (rightward) {
      diffuse_along<1>(bits);
    } else {
      diffuse_along<-1>(bits);
    }
  }
  std::swap(shares_[2], shares_[1]);
  std::swap(shares_[1], shares_[0]);
}

void StuckiRows::diffuse_in_lanes(std::span<const std::uint8_t> levels, bool rightward,
                                  std::span<std::uint8_t> bits) {
#if defined(__i386__) || defined(__x86_64__)
  std::copy(levels.begin(), levels.end(), whole_levels_.data());
  x86::diffuse_stucki_lanes({.width = width_,
                             .piece = piece_,
                             .levels = lane_levels_.data(),
                             .values = values_.data(),
                             .shares = {shares_[0].data(), shares_[1].data(), shares_[2].data()},
                             .white = white_.data(),
                             .share_of = share_of()},
                            whole_levels_.data(), rightward, lane_bits_.data());
  std::copy_n(lane_bits_.data(), (width_ + 7) / 8, bits.data());
#endif
}

template <int kStep>
void StuckiRows::diffuse_along(std::span<std::uint8_t> bits) {
  const std::int16_t* values = values_.data();
  std::int8_t* shares = shares_[0].data();
  std::uint8_t* out = bits.data();
  int before = 0, last = 0;  // largest shares of the two pixels behind
  std::int32_t x = kStep > 0 ? 0 : width_ - 1;
  for (std::int32_t left = width_; left > 0; --left, x += kStep) {
    const int value = values[x] + before / 2 + last;
    out[x >> 3] |= static_cast<std::uint8_t>((value > 127) << (7 - (x & 7)));
    before = last;
    last = share_of()[value];
    shares[x] = static_cast<std::int8_t>(last);
  }
}

}  // namespace tq::process
