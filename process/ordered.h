// Threshold matrices of the ordered dithers. The threshold of pixel (x, y) is [x & 7][y & 7].
#pragma once

#include "core/palettes.h"

namespace tq::process {

using ThresholdMatrix = std::uint8_t[8][8];

extern const ThresholdMatrix kClusteredDots;

}  // namespace tq::process
