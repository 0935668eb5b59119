// Threshold matrices of the ordered dithers. The threshold of pixel (x, y) is [x & 7][y & 7].
#pragma once

#include "pixels/colours.h"

namespace tq::process {

extern const pixels::ThresholdMatrix kClusteredDots;

}  // namespace tq::process
