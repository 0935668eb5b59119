// Rules of the 16 fixed colours: bit 3 full intensity, bit 2 blue, bit 1 green, bit 0 red.
#pragma once

#include <cstdint>

#include "core/dib.h"

namespace tq::process {

constexpr int sixteen_index(bool full, bool blue, bool green, bool red) {
  return static_cast<int>(full) << 3 | static_cast<int>(blue) << 2 | static_cast<int>(green) << 1 |
         static_cast<int>(red);
}

// Ordered dither: `grey` is the pixel's intensity, which needs 40 more for full colours.
constexpr int ordered_sixteen(Rgb c, int grey, int threshold) {
  return sixteen_index(grey > threshold + 40, c.blue > threshold, c.green > threshold,
                       c.red > threshold);
}

// Fixed thresholds, of values that need not be within 0 .. 255.
constexpr int cut_sixteen(int blue, int green, int red) {
  constexpr int kOn = 180, kFull = 220;
  return sixteen_index(blue > kFull || green > kFull || red > kFull, blue > kOn, green > kOn,
                       red > kOn);
}

// Two pixels a byte, the left one in the high nibble.
template <class IndexAt>
void pack_nibbles(std::uint8_t* out, std::int32_t width, IndexAt&& index_at) {
  std::int32_t x = 0;
  for (; x + 1 < width; x += 2) {
    const int left = index_at(x);
    *out++ = static_cast<std::uint8_t>(left << 4 | index_at(x + 1));
  }
  if (x < width) *out = static_cast<std::uint8_t>(index_at(x) << 4);
}

}  // namespace tq::process
