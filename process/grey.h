// The grey formulas, side by side. They differ on purpose, and callers rely on each.
#pragma once

#include "core/dib.h"

namespace tq::process {

// Weights that sum to 127 of 128: white is 253.
constexpr int brightness(Rgb c) {
  return (75 * c.green + 38 * c.red + 14 * c.blue) >> 7;
}

// Darker by 40, so that mid tones of palette images and of the 16 colours stay at half intensity.
constexpr int intensity(Rgb c) {
  const int grey = brightness(c);
  return grey > 40 ? grey - 40 : 0;
}

// The same weights over 100: the sum passes 255 in bright colours and wraps, so white is 67.
constexpr int wrapped_brightness(Rgb c) {
  return (75 * c.green + 38 * c.red + 14 * c.blue) / 100 & 255;
}

// What thresholds and 1-bit dithers compare.
constexpr int luma(Rgb c) {
  return (30 * c.red + 59 * c.green + 11 * c.blue) / 100;
}

// The grey of an image's depth in a conversion to 8-bit grey.
constexpr int grey_level(Rgb c, int bits) {
  if (bits == 4) return wrapped_brightness(c);
  return bits <= 16 ? intensity(c) : brightness(c);
}

}  // namespace tq::process
