// From colours to the indices of an octree's palette.
#pragma once

#include <bit>

#include "core/memory.h"
#include "process/nearest_colour.h"
#include "process/octree.h"

namespace tq::process {

// Palette indices of colours: the tree's answer, or the nearest entry where it has none. Each is
// worked out once, as long as no other colour takes its place.
class IndexFinder {
 public:
  // What is known about all colours of a cell: the palette entry with its index in the fourth byte.
  using Entry = CellColours::Entry;

  // `exact`: only colours that have an entry of their own will be asked for.
  IndexFinder(const Octree& tree, std::span<const Rgb> palette, bool exact);
  Status allocate();

  Entry find(Rgb colour) {
    const Entry entry = cells_.data()[CellColours::cell(colour)];
    return is_unknown(entry) ? find_slowly(colour) : entry;
  }

  // A whole row, when there are no errors to spread.
  void find_row(std::span<const Rgb> colours, std::uint8_t* indices);

  // What find does, in steps: for kernels that have colours in registers.
  const Entry* entries() const { return cells_.data(); }
  std::uint32_t unknown() const { return std::bit_cast<std::uint32_t>(unknown_); }
  Entry find_slowly(Rgb colour);

 private:
  bool is_unknown(Entry entry) const { return std::bit_cast<std::uint32_t>(entry) == unknown(); }
  Entry entry_of(std::uint8_t index) const;
  std::uint8_t index_of(Rgb colour);

  // The tree and the distances look at 7 bits of a channel, except on the tree's last level, where
  // all leaves of an exact tree are.
  struct KnownColour {
    std::uint32_t key;  // the bits that count and a mark that the entry is in use
    std::uint8_t index;
  };
  static constexpr std::uint32_t kKnown = 1 << 15;

  const Octree& tree_;
  std::span<const Rgb> palette_;
  bool exact_;
  Entry unknown_;  // index 0 with another colour than entry 0 has
  RowBuffer<Entry> cells_;
  RowBuffer<KnownColour> known_;
  Rgb last_{0, 0, 0, 255};  // no colour yet
  std::uint8_t last_index_ = 0;
};

// Errors of a colour's channels: blue, green, red, unused.
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
  std::uint8_t* indices;
};

}  // namespace tq::process
