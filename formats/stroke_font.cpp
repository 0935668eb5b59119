// The letters: digits are columns, letters are rows of the grid, blanks lie between strokes.
#include "formats/stroke_font.h"

#include <algorithm>
#include <string_view>

namespace tq::formats {
namespace {

// From the blank to the tilde.
// clang-format off
constexpr std::string_view kAscii[] = {
    "", "3b3h 3j3k", "2b2d 4b4d", "2c1j 5c4j 0e6e 0h6h", "6d5c1c0d0e1f5g6h6i5j1j0i 3b3k",
    "6b0k 1b0c0d1e2d2c1b 5h4i4j5k6j6i5h", "6k1d1c2b3b4c4d0h0j1k3k6h", "3b3d",
    "4a3c2e2h3j4l", "2a3c4e4h3j2l", "3c3i 0d6h 6d0h", "3d3j 0g6g", "3j3k2m", "1g5g", "3j3k", "6b0k",
    "2b0d0i2k4k6i6d4b2b 2h4e", "1d3b3k 1k5k", "0d0c1b5b6c6e0k6k", "0c1b5b6c6e5f2f 5f6g6j5k1k0j",
    "5k5b0h6h", "6b0b0f4f6g6i5k1k0j", "5b2b0e0j1k5k6j6g5f1f0g", "0b6b2k",
    "1f0e0c1b5b6c6e5f1f0g0j1k5k6j6g5f", "1k4k6h6c5b1b0c0e1f5f6e", "3e3f 3j3k", "3e3f 3j3k2m",
    "6c0g6k", "0f6f 0i6i", "0c6g0k", "0d0c1b5b6c6e3g3h 3j3k",
    "5h5e4d2d1e1h2i4i5h6h6c5b1b0c0j1k5k", "0k3b6k 1h5h", "0b0k5k6j6g5f0f 5f6e6c5b0b",
    "6c5b2b0d0i2k5k6j", "0b0k4k6i6d4b0b", "6b0b0k6k 0f4f", "6b0b0k 0f4f", "6c5b2b0d0i2k5k6j6g3g",
    "0b0k 6b6k 0f6f", "1b5b 3b3k 1k5k", "2b6b 5b5i4k1k0i", "0b0k 6b0h 2f6k", "0b0k6k", "0k0b3g6b6k",
    "0k0b6k6b", "2b0d0i2k4k6i6d4b2b", "0k0b5b6c6f5g0g", "2b0d0i2k4k6i6d4b2b 4i6l",
    "0k0b5b6c6f5g0g 3g6k", "6c5b1b0c0e1f5f6g6j5k1k0j", "0b6b 3b3k", "0b0i2k4k6i6b", "0b3k6b",
    "0b1k3f5k6b", "0b6k 6b0k", "0b3f6b 3f3k", "0b6b0k6k", "4a2a2l4l", "0b6k", "2a4a4l2l", "1e3b5e",
    "0l6l", "2a4c", "1e4e5f5k 5g2g0h0j1k3k5j", "0a0k 0f2e4e6g6i4k2k0j", "6f4e2e0g0i2k4k6j",
    "6a6k 6f4e2e0g0i2k4k6j", "0h6h6g4e2e0g0i2k5k6j", "5a4a3b3k 1e5e", "6e6l5n1n0m 6f4e2e0g0i2k4k6j",
    "0a0k 0f2e4e6f6k", "3b3c 2e3e3k 1k5k", "4b4c 2e4e4m3n1n", "0a0k 5e0h 2g6k", "2a3a3j4k5k",
    "0e0k 0f1e2e3f3k 3f4e5e6f6k", "0e0k 0f2e4e6f6k", "2e0g0i2k4k6i6g4e2e", "0e0n 0f2e4e6g6i4k2k0j",
    "6e6n 6f4e2e0g0i2k4k6j", "1e1k 1g3e5e6f", "6f5e1e0f0g6h6j5k1k0j", "3b3j4k5k 1e5e",
    "0e0j1k4k6i 6e6k", "0e3k6e", "0e1k3f5k6e", "0e6k 6e0k", "0e3k 6e3k1n0n", "0e6e0k6k",
    "5a4a3b3e2f3g3k4l5l", "3a3m", "1a2a3b3e4f3g3k2l1l", "0g1f2f4h5h6g",
};
// clang-format on
constexpr std::string_view kBox = "0b6b6k0k0b";

struct Extra {
  std::uint8_t character;
  std::string_view strokes;
};
constexpr Extra kExtras[] = {
    {0x80, "6c4b2c1e1h2j4k6j 0f4f 0g4g"},
    {0x82, "3j3k2m"},
    {0x84, "2j2k1m 5j5k4m"},
    {0x85, "0j0k 3j3k 6j6k"},
    {0x86, "3b3l 1e5e"},
    {0x87, "3b3l 1e5e 1i5i"},
    {0x88, "1c3a5c"},
    {0x8B, "4e2g4i"},
    {0x8C, "6b2b0d0i2k6k 3b3k 3f6f"},
    {0x91, "3b3d"},
    {0x92, "3b3d"},
    {0x93, "2b2d 4b4d"},
    {0x94, "2b2d 4b4d"},
    {0x95, "2f4f4h2h2f 3f3h"},
    {0x96, "1g5g"},
    {0x97, "0g6g"},
    {0x99, "0b2b 1b1e 3e3b4d6b6e"},
    {0x9B, "2e4g2i"},
    {0x9C, "3h6h6g5e4e3g3i4k6j 3g2e1e0g0i1k2k3i"},
    {0xA0, ""},
    {0xA1, "3e3f 3h3n"},
    {0xA2, "6f4e2e0g0i2k4k6j 3c3m"},
    {0xA3, "6c5b3b2c2j0k6k 0g4g"},
    {0xA4, "2e1g2i4i5g4e2e 0d2e 6d4e 0j2i 6j4i"},
    {0xA5, "0b3f6b 3f3k 1g5g 1i5i"},
    {0xA6, "3a3e 3h3m"},
    {0xA7, "5b2b1c5f5g4h 2e1f1g5j4l1l"},
    {0xA9, "2b0d0i2k4k6i6d4b2b 4e3d2e2h3i4h"},
    {0xAA, "2b4b4e2e2d4d"},
    {0xAB, "3e1g3i 6e4g6i"},
    {0xAC, "0g6g6i"},
    {0xAD, "1g5g"},
    {0xAE, "2b0d0i2k4k6i6d4b2b 2i2d4d4f2f4i"},
    {0xAF, "0a6a"},
    {0xB0, "3b2c3d4c3b"},
    {0xB1, "3d3i 0f6f 0k6k"},
    {0xB2, "2b4b4c2e4e"},
    {0xB3, "2b4b3c4d4e2e"},
    {0xB5, "0e0n 0j2k4k6i 6e6k"},
    {0xB6, "6b6k 4b4k 4b1b0c0e1f4f"},
    {0xB7, "3g3h"},
    {0xB9, "2c3b3e"},
    {0xBA, "2b4b4e2e2b"},
    {0xBB, "0e2g0i 3e5g3i"},
    {0xBC, "0c1b1e 6b0k 6i4i5g5k"},
    {0xBD, "0c1b1e 6b0k 4g6g6h4k6k"},
    {0xBE, "0b2b1c2d0e 6b0k 6i4i5g5k"},
    {0xBF, "3d3e 3g0j0l1m5m6l"},
    {0xC6, "6b3b0k 6k3k3b 3f5f 1h3h"},
    {0xD0, "1b1k4k6i6d4b1b 0f3f"},
    {0xD7, "1d5j 5d1j"},
    {0xDE, "0b0k 0d5d6e6g5h0h"},
    {0xDF, "0k0c1b3b4c4e2f5g6h6j5k3k"},
    {0xE6, "0f1e2e3f3j2k1k0j0i1h6h6f5e4e3f 3j4k5k6j"},
    {0xF0, "2a5d6g6i4k2k0i0g2e5f 5b2c"},
    {0xF7, "0g6g 3d3e 3i3j"},
    {0xFE, "0a0n 0f2e4e6g6i4k2k0j"},
};

// A letter, and what stands above, below or across it.
struct Accented {
  std::uint8_t first;  // of the characters that follow each other
  std::string_view letters, accents;
};
constexpr Accented kAccented[] = {
    {0x8A, "S", "v"},
    {0x8E, "Z", "v"},
    {0x9A, "s", "v"},
    {0x9E, "z", "v"},
    {0x9F, "Y", ":"},
    {0xC0, "AAAAAA", "`'^~:o"},
    {0xC7, "CEEEEIIII", ",`'^:`'^:"},
    {0xD1, "NOOOOO", "~`'^~:"},
    {0xD8, "OUUUUY", "/`'^:'"},
    {0xE0, "aaaaaa", "`'^~:o"},
    {0xE7, "ceeeeiiii", ",`'^:`'^:"},
    {0xF1, "nooooo", "~`'^~:"},
    {0xF8, "ouuuuy", "/`'^:'"},
    {0xFF, "y", ":"},
    {0xA8, " ", ":"},
    {0xB4, " ", "'"},
    {0xB8, " ", ","},
    {0x98, " ", "~"},
    {0x89, "%", "."},
    {0x83, "f", ","},
};

std::string_view accent_of(char accent) {
  switch (accent) {
    case '`':
      return "2a4c";
    case '\'':
      return "4a2c";
    case '^':
      return "1c3a5c";
    case 'v':
      return "1a3c5a";
    case '~':
      return "1c2b4c5b";
    case ':':
      return "1b1c 5b5c";
    case 'o':
      return "3a2b3c4b3a";
    case ',':
      return "3k4l3m2m";
    case '/':
      return "0k6e";
    default:
      return "6m6n";
  }
}

// `lowered`: in three quarters of the height, for what goes above it.
void add(std::string_view text, bool lowered, Glyph& glyph) {
  constexpr int kQuarters = 4, kBaseline = 10;
  int x = -1, y = 0;
  for (std::size_t i = 0; i + 1 < text.size();) {
    if (text[i] == ' ') {
      x = -1;
      ++i;
      continue;
    }
    const int to_x = kQuarters * (text[i] - '0'), row = text[i + 1] - 'a';
    const int to_y = lowered ? kQuarters * kBaseline - 3 * (kBaseline - row) : kQuarters * row;
    if (x >= 0 && glyph.count < Glyph::kMost) {
      glyph.strokes[static_cast<std::size_t>(glyph.count++)] = {
          static_cast<std::int8_t>(x), static_cast<std::int8_t>(y), static_cast<std::int8_t>(to_x),
          static_cast<std::int8_t>(to_y)};
    }
    x = to_x;
    y = to_y;
    i += 2;
  }
}

}  // namespace

Glyph glyph_of(std::uint8_t character) {
  Glyph glyph;
  if (character >= ' ' && character <= '~') {
    add(kAscii[character - ' '], false, glyph);
    return glyph;
  }
  const Extra* const extra = std::ranges::find(kExtras, character, &Extra::character);
  if (extra != std::end(kExtras)) {
    add(extra->strokes, false, glyph);
    return glyph;
  }
  for (const Accented& row : kAccented) {
    const int i = character - row.first;
    if (i < 0 || i >= static_cast<int>(row.letters.size())) continue;
    const char letter = row.letters[static_cast<std::size_t>(i)];
    const char accent = row.accents[static_cast<std::size_t>(i)];
    const bool above = accent != ',' && accent != '/' && accent != '.';
    add(letter == 'i' ? std::string_view("2e3e3k 1k5k") : kAscii[letter - ' '],
        above && letter >= 'A' && letter <= 'Z', glyph);
    add(accent_of(accent), false, glyph);
    return glyph;
  }
  add(kBox, false, glyph);
  return glyph;
}

}  // namespace tq::formats
