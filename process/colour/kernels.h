// The row kernels of the operations on colours, and what they work on. They are plain functions
// over one row; the portable ones are the reference, faster ones for some processors give the same
// bytes.
#pragma once

#include <bit>
#include <cstdint>
#include <span>

#include "core/dib.h"
#include "core/memory.h"
#include "core/numbers.h"
#include "platform/cpu.h"

namespace tq::process {

// The least grey that turns white, by x & 7.
struct LeastWhite {
  std::uint8_t grey[8];
};

// The upper four bits of red, green and blue, in this order.
constexpr std::uint16_t key_of(Rgb c) {
  return word((c.red >> 4) << 8 | (c.green >> 4) << 4 | c.blue >> 4);
}

// A palette entry and its index, where colours have an unused byte.
struct IndexedColour {
  std::uint8_t blue, green, red, index;
};

// Colours that agree in the upper five bits of each channel share a cell.
inline constexpr int kCells = 1 << 15;
constexpr int cell_of(Rgb c) {
  return (c.red >> 3) << 10 | (c.green >> 3) << 5 | c.blue >> 3;
}

// The nearest of 256 colours for every cell. The first colour of a cell that is asked for decides
// for all of them; callers rely on the result.
class CellColours {
 public:
  // Entry 0 of `palette` is black.
  explicit CellColours(std::span<const Rgb, 256> palette) : palette_(palette) {}
  Status allocate();

  IndexedColour find(Rgb colour) {
    const IndexedColour entry = entries()[cell_of(colour)];
    return is_free(entry) ? fill(colour) : entry;
  }

  // What find does, in steps: for kernels that have colours in registers. Entry 0 is black, so no
  // colour of the palette looks like a free one.
  const IndexedColour* entries() const { return entries_.data(); }
  static constexpr bool is_free(IndexedColour e) { return e.index == 0 && e.blue == 255; }
  IndexedColour fill(Rgb colour);

 private:
  std::span<const Rgb, 256> palette_;
  RowBuffer<IndexedColour> entries_;
};

// A colour whose channels may leave 0 .. 255: red, green, blue, unused.
struct WideColour {
  WideColour() = default;
  explicit WideColour(Rgb c) : channel{c.red, c.green, c.blue, 0} {}
  std::int32_t channel[4];
};

// Rows that are diffused to the 16 colours together, from the top, and the one below, which only
// receives errors; these have no bounds. All have two pixels of margin.
struct WideRows {
  static constexpr int kMost = 2;
  int width;
  int count;
  WideColour* row[kMost + 1];
  std::uint8_t* out[kMost];
};

class Octree;

// Palette indices of colours: the tree's answer, or the nearest entry where it has none. Each is
// worked out once, as long as no other colour takes its place.
class IndexFinder {
 public:
  // `exact`: only colours that have an entry of their own will be asked for.
  IndexFinder(const Octree& tree, std::span<const Rgb> palette, bool exact);
  Status allocate();

  IndexedColour find(Rgb colour) {
    const IndexedColour entry = entries()[cell_of(colour)];
    return std::bit_cast<std::uint32_t>(entry) == unknown() ? find_slowly(colour) : entry;
  }

  // A whole row, when there are no errors to spread.
  void find_row(std::span<const Rgb> colours, std::uint8_t* indices);

  // What find does, in steps: for kernels that have colours in registers. An entry stands for all
  // colours of its cell.
  const IndexedColour* entries() const { return cells_.data(); }
  std::uint32_t unknown() const { return std::bit_cast<std::uint32_t>(unknown_); }
  IndexedColour find_slowly(Rgb colour);

 private:
  IndexedColour entry_of(std::uint8_t index) const;
  std::uint8_t index_of(Rgb colour);

  // The tree and the distances look at 7 bits of a channel, except on the tree's last level, where
  // all leaves of an exact tree are.
  struct KnownColour {
    std::uint32_t key;  // the bits that count and a mark that the entry is in use
    std::uint8_t index;
  };
  static constexpr int kKnown = 1 << 15;

  const Octree& tree_;
  std::span<const Rgb> palette_;
  bool exact_;
  IndexedColour unknown_;  // index 0 with another colour than entry 0 has
  RowBuffer<IndexedColour> cells_;
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
  int width;
  const Rgb* colours;
  const Channels* received;
  Channels* below;
  std::uint8_t* indices;
};

// A row of Stucki diffusion cut into 16 lanes: position i of all of them lies together. See
// stucki.cpp for what values and shares are.
struct StuckiLanes {
  static constexpr int kLanes = 16;
  int width;
  int piece;                    // pixels of a lane, a multiple of 16; kLanes of them cover the row
  std::uint8_t* levels;         // piece * kLanes
  std::int16_t* values;         // the same, with one more at either end
  std::int8_t* shares[3];       // the same with two more positions at either end
  std::uint8_t* white;          // piece * kLanes, 255 or 0
  const std::int8_t* share_of;  // by value
};

struct Kernels {
  // `bgr` has 3 * width bytes, not one more is read.
  void (*keys_24)(const std::uint8_t* bgr, std::uint16_t* keys, int width);

  // A set bit, leftmost first, where the grey is not below `least`; (width + 7) / 8 bytes.
  void (*at_least)(const std::uint8_t* grey, const LeastWhite& least, std::uint8_t* bits,
                   int width);

  // One row of error diffusion against the colours of `cells`; both rows have two pixels of margin.
  void (*diffuse_to_cells)(Rgb* current, Rgb* next, CellColours& cells, std::uint8_t* out,
                           int width);

  void (*widen_channels)(const Rgb* colours, WideColour* out, int width);
  void (*diffuse_to_sixteen)(const WideRows& rows);

  void (*diffuse_to_tree_rightward)(const TreeRow& row, IndexFinder& finder);
  void (*diffuse_to_tree_leftward)(const TreeRow& row, IndexFinder& finder);

  // Grey levels plus what the two rows above give; the shares have two more at either end.
  void (*add_stucki_rows)(const std::uint8_t* levels, const std::int8_t* above,
                          const std::int8_t* second_above, std::int16_t* values, int width);

  // A whole row. `levels` has piece * kLanes bytes, 0 behind the row; so many bits come out. Null
  // where lanes do not pay.
  void (*diffuse_stucki_lanes)(const StuckiLanes& lanes, const std::uint8_t* levels, bool rightward,
                               std::uint8_t* bits);
};

extern const Kernels kPortableKernels;
void add_ssse3_kernels(Kernels& kernels);
void add_avx2_kernels(Kernels& kernels);

// The fastest for a processor, and for this one, less what is masked.
Kernels select_kernels(const platform::CpuFeatures& features);
inline Kernels kernels() {
  return select_kernels(platform::cpu_features());
}

}  // namespace tq::process
