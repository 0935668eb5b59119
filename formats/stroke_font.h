// Letters of straight strokes, for what is drawn from text.
#pragma once

#include <array>
#include <cstdint>

namespace tq::formats {

// From point to point, in quarters of a grid of 6 x 13: capitals stand between 4 and 40 from the top, below
// them is room for the tails of small letters.
struct Stroke {
  std::int8_t from_x, from_y, to_x, to_y;
};
inline constexpr int kGlyphWidth = 24, kGlyphHeight = 52, kGlyphBaseline = 40;

struct Glyph {
  static constexpr int kMost = 40;

  std::array<Stroke, kMost> strokes{};
  int count = 0;
};

// Of a character of Windows-1252; a box for what there is no letter for.
Glyph glyph_of(std::uint8_t character);

}  // namespace tq::formats
