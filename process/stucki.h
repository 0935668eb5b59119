// Rows of Stucki error diffusion.
#pragma once

#include <array>
#include <span>

#include "core/memory.h"

namespace tq::process {

// Every share of an error e follows from its largest, (8 * e) / 42 cut toward zero: the halves of
// it, again cut toward zero, are exactly the shares of weight 4, 2 and 1. So one byte per pixel of
// the two rows above is all that a row needs of them. Errors are within -127 .. 127 and values
// within -126 .. 381: the weights sum to 42, the black pixels of a row give at most 126 to one
// pixel.
class StuckiRows {
 public:
  StuckiRows();
  Status allocate(std::int32_t width);

  // The next row, from the top: grey levels in, a set bit for white out.
  void diffuse(const std::uint8_t* levels, bool rightward, std::span<std::uint8_t> bits);

 private:
  static constexpr int kMargin = 2;
  static constexpr int kLowest = -128;

  template <int kStep>
  void diffuse_along(std::span<std::uint8_t> bits);

  std::int32_t width_ = 0;
  std::array<std::int8_t, 512> largest_share_{};  // by value - kLowest
  RowBuffer<std::int16_t> values_;
  RowBuffer<std::int8_t, kMargin> shares_[3];  // of this row and the two above
};

}  // namespace tq::process
