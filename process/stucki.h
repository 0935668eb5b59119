// Rows of Stucki error diffusion.
#pragma once

#include <array>
#include <span>

#include "core/memory.h"
#include "process/x86/stucki_lanes.h"

namespace tq::process {

// Every share of an error e follows from its largest, (8 * e) / 42 cut toward zero: the halves of
// it, again cut toward zero, are exactly the shares of weight 4, 2 and 1. So one byte per pixel of
// the two rows above is all that a row needs of them. Errors are within -127 .. 127 and values
// within -126 .. 381: the shares that one pixel can get sum to at most 126.
class StuckiRows {
 public:
  StuckiRows();
  Status allocate(std::int32_t width);

  // The next row, from the top: grey levels in, a set bit for white out.
  void diffuse(std::span<const std::uint8_t> levels, bool rightward, std::span<std::uint8_t> bits);

 private:
  static constexpr int kMargin = 2;
  static constexpr int kLowest = -128;
  static constexpr int kLanes = x86::StuckiLanes::kLanes;

  Status allocate_lanes();
  const std::int8_t* share_of() const { return largest_share_.data() - kLowest; }
  void diffuse_in_lanes(std::span<const std::uint8_t> levels, bool rightward,
                        std::span<std::uint8_t> bits);
  template <int kStep>
  void diffuse_along(std::span<std::uint8_t> bits);

  std::int32_t width_ = 0;
  std::int32_t piece_ = 0;                        // of a lane; 0: the row is one piece
  std::array<std::int8_t, 512> largest_share_{};  // by value - kLowest
  RowBuffer<std::int16_t, 1> values_;
  RowBuffer<std::int8_t, kMargin * kLanes> shares_[3];  // of this row and the two above
  RowBuffer<std::uint8_t> whole_levels_, lane_levels_, white_, lane_bits_;
};

}  // namespace tq::process
