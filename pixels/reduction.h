// Reduction of rows to 8, 4 or 1 bits while they come, against the fixed palettes.
#pragma once

#include <array>
#include <span>

#include "core/memory.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::pixels {

// Where levels put a colour in a table of those of seven bits a channel: the four bits that choose one
// of 4096 cells on top, the three within it below.
struct ColourPlaces {
  std::array<std::uint32_t, 256> red, green, blue;
};
inline constexpr ColourPlaces kColourPlaces = [] {
  ColourPlaces places{};
  for (std::uint32_t level = 0; level < 256; ++level) {
    const std::uint32_t cell = level >> 4, inside = level >> 1 & 7;
    places.red[level] = cell << 17 | inside << 6;
    places.green[level] = cell << 13 | inside << 3;
    places.blue[level] = cell << 9 | inside;
  }
  return places;
}();

// What nearest_colour says of a palette of at most 256 colours, for many colours. It looks at seven bits
// of a channel, so a cell of 8 x 8 x 8 answers is filled when one of them is asked for.
class NearestColours {
 public:
  Status open(std::span<const Rgb> palette);  // which stays where it is

  std::uint8_t find(Rgb colour) {
    const std::uint32_t place = kColourPlaces.red[colour.red] | kColourPlaces.green[colour.green] |
                                kColourPlaces.blue[colour.blue];
    if (known_[place / kCell] == 0) fill(place / kCell);
    return table_[place];
  }

 private:
  static constexpr std::uint32_t kCell = 512, kCells = 4096;

  void fill(std::uint32_t cell);

  std::span<const Rgb> palette_;
  RowBuffer<std::uint8_t> table_, known_;
};

// Each pixel depends on its colour and place alone, so rows may arrive in any order.
class RowReducer {
 public:
  // Reduces to `bits`, if that lowers the source's depth.
  void choose(const HeaderBlock& source, std::int32_t bits, std::int32_t dither_mode);
  bool active() const { return bits_ != 0; }
  int bits() const { return bits_; }
  const Rgb* palette() const;

  Status allocate(const HeaderBlock& source);  // buffers, when active

  // The row of source line y (0 = top), valid until the next call.
  Bytes reduce(Bytes row, int y);

 private:
  int bits_ = 0;
  bool plain_thresholds_ = false;  // dither mode 2: no ordered dither
  RowFormat source_;
  RowBuffer<Rgb> colours_;
  RowBuffer<std::uint8_t> reduced_;
  NearestColours nearest_;
};

}  // namespace tq::pixels
