// Levels are found in a table of where they begin: the same ones on every machine.
#include "pixels/lab.h"

#include <algorithm>

#include "core/numbers.h"

namespace tq::pixels {

// IEC 61966-2-1: x to the power of 2.4 by the operations that are exact everywhere.
void LabColours::prepare() {
  for (int i = 0; i < 256; ++i) {
    const double level = (i - 0.5) / 255;
    if (level <= 0.04045) {
      linear_[i] = level / 12.92;
      continue;
    }
    const double base = (level + 0.055) / 1.055, square = base * base;
    double root = 1;  // the fifth of the square, by Newton
    for (int step = 0; step < 60; ++step) {
      const double fourth = root * root * root * root;
      root -= (fourth * root - square) / (5 * fourth);
    }
    linear_[i] = square * root;
  }
}

Rgb LabColours::mix(double lightness, double a, double b) const {
  constexpr double kEdge = 6.0 / 29, kWhite[] = {0.95047, 1, 1.08883};
  constexpr double kToLinear[3][3] = {{3.2404542, -1.5371385, -0.4985314},
                                      {-0.9692660, 1.8760108, 0.0415560},
                                      {0.0556434, -0.2040259, 1.0572252}};
  const auto stimulus = [](double f) {
    return f > kEdge ? f * f * f : 3 * kEdge * kEdge * (f - 4.0 / 29);
  };
  const double y = (lightness + 16) / 116;
  const double xyz[] = {kWhite[0] * stimulus(y + a / 500.0), kWhite[1] * stimulus(y),
                        kWhite[2] * stimulus(y - b / 200.0)};
  std::uint8_t levels[3];
  for (int i = 0; i < 3; ++i) {
    const double linear =
        kToLinear[i][0] * xyz[0] + kToLinear[i][1] * xyz[1] + kToLinear[i][2] * xyz[2];
    const auto above = std::upper_bound(linear_.begin() + 1, linear_.end(), linear);
    levels[i] = byte(above - linear_.begin() - 1);
  }
  return {levels[2], levels[1], levels[0], 0};
}

}  // namespace tq::pixels
