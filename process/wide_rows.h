// Rows of the diffusion to the 16 colours, whose errors have no bounds.
#pragma once

#include "core/dib.h"

namespace tq::process {

// A colour whose channels may leave 0 .. 255: red, green, blue, unused.
struct WideColour {
  WideColour() = default;
  explicit WideColour(Rgb c) : channel{c.red, c.green, c.blue, 0} {}
  std::int32_t channel[4];
};

// Rows that are diffused together, from the top, and the one below, which only receives errors. All
// have two pixels of margin.
struct WideRows {
  static constexpr int kMost = 2;
  std::int32_t width;
  int count;
  WideColour* row[kMost + 1];
  std::uint8_t* out[kMost];
};

}  // namespace tq::process
