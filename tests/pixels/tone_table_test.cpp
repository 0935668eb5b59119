// Tables of brightness, contrast and gamma, against the formulas as they are written.
#include "pixels/tone_table.h"

#include <gtest/gtest.h>

#include <cmath>

namespace tq::pixels {
namespace {

TEST(ToneTable, GammaIsThePowerToTheNearestLevel) {
  for (int gamma = 10; gamma <= 1000; ++gamma) {
    const auto table = tone_table(0, 0, gamma);
    for (int v = 0; v < 256; ++v) {
      const double exact = 255 * std::pow(v / 255.0, 100.0 / gamma);
      ASSERT_LE(std::abs(exact - table[static_cast<std::size_t>(v)]), 0.5 + 1e-9)
          << v << ", gamma " << gamma;
    }
  }
}

TEST(ToneTable, BrightnessAndContrastTurnAroundTheMiddle) {
  struct Case {
    int brightness, contrast, gamma, from, to;
  };
  constexpr Case kCases[] = {
      {0, 0, 100, 0, 0},       {0, 0, 100, 129, 129},   {100, 0, 100, 0, 255},
      {-100, 0, 100, 255, 0},  {-50, 0, 100, 200, 73},  {7, 0, 100, 10, 27},
      {0, -100, 100, 3, 128},  {0, -50, 100, 127, 128}, {0, -50, 100, 125, 127},
      {0, 50, 100, 125, 122},  {0, 99, 100, 127, 28},   {0, 100, 100, 127, 0},
      {0, 100, 100, 128, 255}, {10, 100, 100, 127, 25}, {-10, 100, 100, 128, 230},
      {0, 33, 100, 125, 124},  {0, 33, 100, 131, 132},  {20, -100, 50, 77, 126},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(tone_table(c.brightness, c.contrast, c.gamma)[static_cast<std::size_t>(c.from)], c.to)
        << c.brightness << " " << c.contrast << " " << c.gamma << " of " << c.from;
  }
}

}  // namespace
}  // namespace tq::pixels
