// Colours by themselves: grey formulas, the fixed palettes, and what is near what.
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "core/dib.h"
#include "core/numbers.h"

namespace tq::pixels {

// The grey formulas differ on purpose, and callers rely on each.

// Weights that sum to 127 of 128: white is 253.
constexpr int brightness(Rgb c) {
  return (75 * c.green + 38 * c.red + 14 * c.blue) >> 7;
}

// Darker by 40, so that mid tones of palette images and of the 16 colours stay at half intensity.
inline constexpr int kDarkerBy = 40;
constexpr int intensity(Rgb c) {
  const int grey = brightness(c);
  return grey > kDarkerBy ? grey - kDarkerBy : 0;
}

// The same weights over 100: the sum passes 255 in bright colours and wraps, so white is 67.
constexpr int wrapped_brightness(Rgb c) {
  return (75 * c.green + 38 * c.red + 14 * c.blue) / 100 & 255;
}

// What thresholds and 1-bit dithers compare.
constexpr int weighted(Rgb c) {  // hundredths of a level
  return 30 * c.red + 59 * c.green + 11 * c.blue;
}
constexpr int luma(Rgb c) {
  return weighted(c) / 100;
}

// Cyan, magenta, yellow, black to a colour: black is added to each of the others.
constexpr Rgb colour_of_cmyk(const std::uint8_t* cmyk) {
  const auto light = [cmyk](int i) {
    const int left = 255 - cmyk[i] - cmyk[3];
    return left > 0 ? byte(left) : std::uint8_t{0};
  };
  return {light(2), light(1), light(0), 0};
}

// Photo YCC to a colour, in 65536ths; levels above white are clamped.
constexpr Rgb colour_of_photo_ycc(int luminance, int first, int second) {
  constexpr int kLuminanceShare = 89024, kHalf = 32768, kNoFirst = 156, kNoSecond = 137;
  const int light = kLuminanceShare * luminance + kHalf;
  const auto level = [](int value) { return byte(std::clamp(value >> 16, 0, 255)); };
  first -= kNoFirst;
  second -= kNoSecond;
  return {level(light + 145352 * first), level(light - 28198 * first - 60761 * second),
          level(light + 119374 * second), 0};
}

// A level that covers white by alpha of 255.
constexpr std::uint8_t on_white(int level, int alpha) {
  return byte((level * alpha + 255 * (255 - alpha) + 127) / 255);
}

// The same for a level that is multiplied by alpha already.
constexpr std::uint8_t mixed_on_white(int level, int alpha) {
  return byte(level < alpha ? level + 255 - alpha : 255);
}

// Levels of fewer bits, so that the highest becomes 255: the first bits again, or of 16 the nearest.
constexpr std::uint8_t from_5_bits(int level) {
  return byte(level << 3 | level >> 2);
}
constexpr std::uint8_t from_16_bits(int level) {
  return byte((level + 128) / 257);
}

// Entry i is i, i, i.
const std::array<Rgb, 256>& grey_ramp();
const std::array<Rgb, 2>& black_and_white();

// From black to white in 2 to the power of `bits` steps, at most 8; the rest is black.
std::array<Rgb, 256> grey_levels(int bits);
// Whether they are that, all of them.
bool is_grey_ramp(std::span<const Rgb> colours);

// The 16 fixed colours: bit 2 blue, bit 1 green, bit 0 red, at 128 below index 8 and 255 above, so
// that 0 and 8 are both black.
const std::array<Rgb, 16>& sixteen_colours();

// The 256 fixed colours by dither mode: 3 bits red, 3 green, 2 blue; or the mode 2 table, which is
// built around the 20 colours that a window system reserves.
const std::array<Rgb, 256>& fixed_palette(std::int32_t dither_mode);

// The dispersed-dot threshold of pixel (x, y) is kDispersedDots[x & 7][y & 7]: eight-by-eight Bayer
// order times 4, with 0 replaced by 4.
using ThresholdMatrix = std::uint8_t[8][8];
extern const ThresholdMatrix kDispersedDots;

constexpr int sixteen_index(bool full, bool blue, bool green, bool red) {
  return full << 3 | blue << 2 | green << 1 | red;
}

// The 16 colours by fixed thresholds, of values that need not be within 0 .. 255.
constexpr int plain_sixteen(int blue, int green, int red) {
  constexpr int kOn = 180, kFull = 220;
  return sixteen_index(blue > kFull || green > kFull || red > kFull, blue > kOn, green > kOn,
                       red > kOn);
}

// The palette entry at the least distance of halved components, the lowest index of equal ones; 0
// in an empty palette.
std::uint8_t nearest_colour(Rgb colour, std::span<const Rgb> palette);

}  // namespace tq::pixels
