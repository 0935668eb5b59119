// From colours to the indices of an octree's palette.
#pragma once

#include "core/memory.h"
#include "process/nearest_colour.h"
#include "process/octree.h"

namespace tq::process {

// Palette indices of colours: the tree's answer, or the nearest entry where it has none. Each is
// worked out once, as long as no other colour takes its place.
class IndexFinder {
 public:
  IndexFinder(const Octree& tree, std::span<const Rgb> palette) : tree_(tree), palette_(palette) {}

  Status allocate() {
    TQ_TRY(cells_.allocate(1 << 15));
    return known_.allocate(kKnown);
  }

  std::uint8_t find(Rgb colour) {
    const std::uint16_t cell = cells_.data()[CellColours::cell(colour)];
    return (cell & kWhole) != 0 ? static_cast<std::uint8_t>(cell) : find_slowly(colour);
  }

  // Blue in the low byte, red in the third.
  std::uint8_t find_bytes(std::uint32_t bytes) {
    return find({static_cast<std::uint8_t>(bytes), static_cast<std::uint8_t>(bytes >> 8),
                 static_cast<std::uint8_t>(bytes >> 16), 0});
  }

 private:
  // The tree and the distances look at 7 bits of a channel, except on the tree's last level.
  struct KnownColour {
    std::uint32_t key;  // 7 bits a channel and a mark that the entry is in use
    std::uint8_t index;
  };
  static constexpr std::uint32_t kKnown = 1 << 15;
  static constexpr std::uint16_t kWhole = 0x100;  // one leaf has all colours of the cell

  std::uint8_t find_slowly(Rgb colour);

  const Octree& tree_;
  std::span<const Rgb> palette_;
  RowBuffer<std::uint16_t> cells_;
  RowBuffer<KnownColour> known_;
  Rgb last_{0, 0, 0, 255};  // no colour yet
  std::uint8_t last_index_ = 0;
};

// Errors of a colour's channels, or its channels: blue, green, red, unused.
struct Channels {
  std::int16_t channel[4];
};

// One row of Floyd-Steinberg diffusion. What a pixel has received from the row above is never more
// than 255, so 16 bits hold it. `below` has one element more at either end.
struct TreeRow {
  std::int32_t width;
  const Rgb* colours;
  const Channels* received;
  Channels* below;
  const Channels* palette;
  std::uint8_t* indices;
};

}  // namespace tq::process
