// Brightness, contrast and gamma as one table of levels.
#pragma once

#include <array>
#include <cstdint>

namespace tq::pixels {

// What becomes of each level: first brightness and contrast (-100 .. 100 each), then gamma (10 ..
// 1000, hundredths). 0, 0, 100 changes nothing. The same on every machine.
std::array<std::uint8_t, 256> tone_table(int brightness, int contrast, int gamma);

}  // namespace tq::pixels
