// The palettes that the library brings along, and the search in one.
#include "pixels/colours.h"

#include <algorithm>
#include <climits>

namespace tq::pixels {
namespace {

constexpr Rgb grey(int level) {
  return {byte(level), byte(level), byte(level), 0};
}

constexpr std::array<Rgb, 256> kGreyRamp = [] {
  std::array<Rgb, 256> ramp{};
  for (int i = 0; i < 256; ++i) ramp[i] = grey(i);
  return ramp;
}();

constexpr std::array<Rgb, 2> kBlackAndWhite{grey(0), grey(255)};

constexpr std::array<Rgb, 16> kSixteenColours = [] {
  std::array<Rgb, 16> colours{};
  for (int i = 0; i < 16; ++i) {
    const std::uint8_t full = i < 8 ? 128 : 255;
    const auto channel = [&](int bit) { return (i & bit) != 0 ? full : std::uint8_t{0}; };
    colours[i] = {channel(4), channel(2), channel(1), 0};
  }
  return colours;
}();

constexpr std::array<Rgb, 256> kUniformColours = [] {
  std::array<Rgb, 256> colours{};
  for (int i = 0; i < 256; ++i) {
    colours[i] = {byte((i & 3) * 255 / 3), byte((i >> 2 & 7) * 255 / 7),
                  byte((i >> 5 & 7) * 255 / 7), 0};
  }
  return colours;
}();

// Red, green, blue: a grid of 7 x 9 x 4 levels, less what does not fit beside the reserved colours.
// clang-format off
constexpr std::uint32_t kReservedAndGrid[256] = {
    0x000000, 0x800000, 0x008000, 0x808000, 0x000080, 0x800080, 0x008080, 0x808080, 0xC0DCC0, 0xA6CAF0,
    0x2A3FAA, 0x2A3FFF, 0x2A5F00, 0x2A5F55, 0x2A5FAA, 0x2A5FFF, 0x2A7F00, 0x2A7F55, 0x2A7FAA, 0x2A7FFF,
    0x2A9F00, 0x2A9F55, 0x2A9FAA, 0x2A9FFF, 0x2ABF00, 0x2ABF55, 0x2ABFAA, 0x2ABFFF, 0x2ADF00, 0x2ADF55,
    0x2ADFAA, 0x2ADFFF, 0x2AFF00, 0x2AFF55, 0x2AFFAA, 0x2AFFFF, 0x550000, 0x550055, 0x5500AA, 0x5500FF,
    0x551F00, 0x551F55, 0x551FAA, 0x551FFF, 0x553F00, 0x553F55, 0x553FAA, 0x553FFF, 0x555F00, 0x555F55,
    0x555FAA, 0x555FFF, 0x557F00, 0x557F55, 0x557FAA, 0x557FFF, 0x559F00, 0x559F55, 0x559FAA, 0x559FFF,
    0x55BF00, 0x55BF55, 0x55BFAA, 0x55BFFF, 0x55DF00, 0x55DF55, 0x55DFAA, 0x55DFFF, 0x55FF00, 0x55FF55,
    0x55FFAA, 0x55FFFF, 0x7F0000, 0x7F0055, 0x7F00AA, 0x7F00FF, 0x7F1F00, 0x7F1F55, 0x7F1FAA, 0x7F1FFF,
    0x7F3F00, 0x7F3F55, 0x7F3FAA, 0x7F3FFF, 0x7F5F00, 0x7F5F55, 0x7F5FAA, 0x7F5FFF, 0x7F7F00, 0x7F7F55,
    0x7F7FAA, 0x7F7FFF, 0x7F9F00, 0x7F9F55, 0x7F9FAA, 0x7F9FFF, 0x7FBF00, 0x7FBF55, 0x7FBFAA, 0x7FBFFF,
    0x7FDF00, 0x7FDF55, 0x7FDFAA, 0x7FDFFF, 0x7FFF00, 0x7FFF55, 0x7FFFAA, 0x7FFFFF, 0xAA0000, 0xAA0055,
    0xAA00AA, 0xAA00FF, 0xAA1F00, 0xAA1F55, 0xAA1FAA, 0xAA1FFF, 0xAA3F00, 0xAA3F55, 0xAA3FAA, 0xAA3FFF,
    0xAA5F00, 0xAA5F55, 0xAA5FAA, 0xAA5FFF, 0xAA7F00, 0xAA7F55, 0xAA7FAA, 0xAA7FFF, 0xAA9F00, 0xAA9F55,
    0xAA9FAA, 0xAA9FFF, 0xAABF00, 0xAABF55, 0xAABFAA, 0xAABFFF, 0xAADF00, 0xAADF55, 0xAADFAA, 0xAADFFF,
    0xAAFF00, 0xAAFF55, 0xAAFFAA, 0xAAFFFF, 0xD40000, 0xD40055, 0xD400AA, 0xD400FF, 0xD41F00, 0xD41F55,
    0xD41FAA, 0xD41FFF, 0xD43F00, 0xD43F55, 0xD43FAA, 0xD43FFF, 0xD45F00, 0xD45F55, 0xD45FAA, 0xD45FFF,
    0xD47F00, 0xD47F55, 0xD47FAA, 0xD47FFF, 0xD49F00, 0xD49F55, 0xD49FAA, 0xD49FFF, 0xD4BF00, 0xD4BF55,
    0xD4BFAA, 0xD4BFFF, 0xD4DF00, 0xD4DF55, 0xD4DFAA, 0xD4DFFF, 0xD4FF00, 0xD4FF55, 0xD4FFAA, 0xD4FFFF,
    0xFF0055, 0xFF00AA, 0xFF1F00, 0xFF1F55, 0xFF1FAA, 0xFF1FFF, 0xFF3F00, 0xFF3F55, 0xFF3FAA, 0xFF3FFF,
    0xFF5F00, 0xFF5F55, 0xFF5FAA, 0xFF5FFF, 0xFF7F00, 0xFF7F55, 0xFF7FAA, 0xFF7FFF, 0xFF9F00, 0xFF9F55,
    0xFF9FAA, 0xFF9FFF, 0xFFBF00, 0xFFBF55, 0xFFBFAA, 0xFFBFFF, 0xFFDF00, 0xFFDF55, 0xFFDFAA, 0xFFDFFF,
    0xFFFF55, 0xFFFFAA, 0xCCCCFF, 0xFFCCFF, 0x33FFFF, 0x66FFFF, 0x99FFFF, 0xCCFFFF, 0x007F00, 0x007F55,
    0x007FAA, 0x007FFF, 0x009F00, 0x009F55, 0x009FAA, 0x009FFF, 0x00BF00, 0x00BF55, 0x00BFAA, 0x00BFFF,
    0x00DF00, 0x00DF55, 0x00DFAA, 0x00DFFF, 0x00FF55, 0x00FFAA, 0x2A0000, 0x2A0055, 0x2A00AA, 0x2A00FF,
    0x2A1F00, 0x2A1F55, 0x2A1FAA, 0x2A1FFF, 0x2A3F00, 0x2A3F55, 0xFFFBF0, 0xA0A0A4, 0x808080, 0xFF0000,
    0x00FF00, 0xFFFF00, 0x0000FF, 0xFF00FF, 0x00FFFF, 0xFFFFFF,
};
// clang-format on

constexpr std::array<Rgb, 256> kSystemColours = [] {
  std::array<Rgb, 256> colours{};
  for (int i = 0; i < 256; ++i) {
    const std::uint32_t rgb = kReservedAndGrid[i];
    colours[i] = {byte(rgb), byte(rgb >> 8), byte(rgb >> 16), 0};
  }
  return colours;
}();

// Components are halved before they are compared.
constexpr int halved_distance(Rgb a, Rgb b) {
  const int blue = (a.blue >> 1) - (b.blue >> 1);
  const int green = (a.green >> 1) - (b.green >> 1);
  const int red = (a.red >> 1) - (b.red >> 1);
  return blue * blue + green * green + red * red;
}

}  // namespace

const ThresholdMatrix kDispersedDots = {
    {4, 128, 32, 160, 8, 136, 40, 168},   {192, 64, 224, 96, 200, 72, 232, 104},
    {48, 176, 16, 144, 56, 184, 24, 152}, {240, 112, 208, 80, 248, 120, 216, 88},
    {12, 140, 44, 172, 4, 132, 36, 164},  {204, 76, 236, 108, 196, 68, 228, 100},
    {60, 188, 28, 156, 52, 180, 20, 148}, {252, 124, 220, 92, 244, 116, 212, 84},
};

const std::array<Rgb, 256>& grey_ramp() {
  return kGreyRamp;
}
const std::array<Rgb, 16>& sixteen_colours() {
  return kSixteenColours;
}
const std::array<Rgb, 2>& black_and_white() {
  return kBlackAndWhite;
}

std::array<Rgb, 256> grey_levels(int bits) {
  if (bits == 8) return kGreyRamp;
  std::array<Rgb, 256> levels{};
  const int last = (1 << bits) - 1;
  for (int i = 0; i <= last; ++i) levels[i] = grey(i * 255 / last);
  return levels;
}

bool is_grey_ramp(std::span<const Rgb> colours) {
  const int last = static_cast<int>(std::ssize(colours)) - 1;
  for (int i = 0; i <= last; ++i) {
    const Rgb& colour = colours[i];
    const int level = i * 255 / std::max(last, 1);
    if (colour.blue != level || colour.green != level || colour.red != level) return false;
  }
  return true;
}

const std::array<Rgb, 256>& fixed_palette(std::int32_t dither_mode) {
  return dither_mode == 2 ? kSystemColours : kUniformColours;
}

std::uint8_t nearest_colour(Rgb colour, std::span<const Rgb> palette) {
  int least = INT_MAX;
  std::size_t found = 0;
  for (std::size_t i = 0; i < palette.size(); ++i) {
    const int distance = halved_distance(colour, palette[i]);
    if (distance < least) {
      least = distance;
      found = i;
    }
  }
  return byte(found);
}

}  // namespace tq::pixels
