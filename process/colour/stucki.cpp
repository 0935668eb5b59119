// Error diffusion to black and white: Stucki kernel, every other row from right to left. What the
// rows above give to a row is a convolution, what the row itself gives a chain.
#include <array>
#include <utility>

#include "core/image_record.h"
#include "process/colour/kernels.h"
#include "process/process.h"

namespace tq::process {
namespace {

// Every share of an error e follows from its largest, (8 * e) / 42 truncated toward zero: the
// halves of it, again truncated toward zero, are exactly the shares of weight 4, 2 and 1. So one
// byte per pixel of the two rows above is all that a row needs of them. Errors are within
// -127 .. 127 and values within -126 .. 381: the shares that one pixel can get sum to at most 126.
class StuckiRows {
 public:
  StuckiRows();
  Status allocate(int width);

  // The next row, from the top: grey levels in, a set bit for white out.
  void diffuse(Bytes levels, bool rightward, Row bits);

 private:
  static constexpr int kMargin = 2;
  static constexpr int kLowest = -128;
  static constexpr int kLanes = StuckiLanes::kLanes;
  // Below, most lanes begin in a wrong state; and positions fit 15 bits.
  static constexpr int kNarrowest = 160, kWidest = 32000;

  Status allocate_lanes();
  const std::int8_t* share_of() const { return largest_share_.data() - kLowest; }
  void diffuse_in_lanes(Bytes levels, bool rightward, Row bits);
  template <int kStep>
  void diffuse_along(Row bits);

  const Kernels kernels_ = kernels();
  int width_ = 0;
  int piece_ = 0;                                 // of a lane; 0: the row is one piece
  std::array<std::int8_t, 512> largest_share_{};  // by value - kLowest
  RowBuffer<std::int16_t, 1> values_;
  RowBuffer<std::int8_t, kMargin * kLanes> shares_[3];  // of this row and the two above
  RowBuffer<std::uint8_t> whole_levels_, lane_levels_, white_, lane_bits_;
};

StuckiRows::StuckiRows() {
  for (int value = kLowest; value < kLowest + 512; ++value) {
    const int error = value > 127 ? value - 255 : value;
    largest_share_[value - kLowest] = static_cast<std::int8_t>(8 * error / 42);
  }
}

Status StuckiRows::allocate(int width) {
  width_ = width;
  const bool fits_lanes = width >= kNarrowest && width <= kWidest;
  if (fits_lanes && kernels_.diffuse_stucki_lanes != nullptr) return allocate_lanes();
  TQ_TRY(values_.allocate(width));
  for (auto& row : shares_) TQ_TRY(row.allocate(width));
  return kOk;
}

Status StuckiRows::allocate_lanes() {
  piece_ = (width_ + 16 * kLanes - 1) / (16 * kLanes) * 16;
  const int pixels = piece_ * kLanes;
  TQ_TRY(values_.allocate(pixels));
  for (auto& row : shares_) TQ_TRY(row.allocate(pixels));
  TQ_TRY(whole_levels_.allocate(pixels));
  TQ_TRY(lane_levels_.allocate(pixels));
  TQ_TRY(white_.allocate(pixels));
  return lane_bits_.allocate(pixels / 8);
}

void StuckiRows::diffuse(Bytes levels, bool rightward, Row bits) {
  if (piece_ != 0) {
    diffuse_in_lanes(levels, rightward, bits);
  } else {
    kernels_.add_stucki_rows(levels.data(), shares_[1].data(), shares_[2].data(), values_.data(),
                             width_);
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

void StuckiRows::diffuse_in_lanes(Bytes levels, bool rightward, Row bits) {
  std::copy(levels.begin(), levels.end(), whole_levels_.data());
  kernels_.diffuse_stucki_lanes(
      {.width = width_,
       .piece = piece_,
       .levels = lane_levels_.data(),
       .values = values_.data(),
       .shares = {shares_[0].data(), shares_[1].data(), shares_[2].data()},
       .white = white_.data(),
       .share_of = share_of()},
      whole_levels_.data(), rightward, lane_bits_.data());
  std::copy_n(lane_bits_.data(), (width_ + 7) / 8, bits.data());
}

template <int kStep>
void StuckiRows::diffuse_along(Row bits) {
  const std::int16_t* values = values_.data();
  std::int8_t* shares = shares_[0].data();
  std::uint8_t* out = bits.data();
  int before = 0, last = 0;  // largest shares of the two pixels behind
  int x = kStep > 0 ? 0 : width_ - 1;
  for (int left = width_; left > 0; --left, x += kStep) {
    const int value = values[x] + before / 2 + last;
    out[x >> 3] |= byte((value > 127) << (7 - (x & 7)));
    before = last;
    last = share_of()[value];
    shares[x] = static_cast<std::int8_t>(last);
  }
}

}  // namespace

Status diffusion_mono(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  GreyRows grey(image, GreyKind::luma);
  TQ_TRY(grey.allocate());
  StuckiRows rows;
  TQ_TRY(rows.allocate(image.width()));
  return replace_by_mono(image,
                         [&](int y, Row bits) { rows.diffuse(grey.read(y), y % 2 == 0, bits); });
}

}  // namespace tq::process
