// The tree that chooses a palette: colours go in one by one, leaves are merged when there are too
// many.
#pragma once

#include <array>
#include <cstring>
#include <span>

#include "core/dib.h"
#include "core/numbers.h"

namespace tq::process {

// Bits of a channel with two zeros between them.
inline constexpr std::array<std::uint32_t, 256> kSpreadBits = [] {
  std::array<std::uint32_t, 256> spread{};
  for (int value = 0; value < 256; ++value) {
    for (int bit = 0; bit < 8; ++bit) {
      spread[value] |= (value >> bit & 1u) << (3 * bit);
    }
  }
  return spread;
}();

// Calls `run(first, count)` for every stretch of equal colours.
template <class Run>
void for_each_run(std::span<const Rgb> colours, Run&& run) {
  std::size_t x = 0;
  while (x < colours.size()) {
    const std::size_t first = x++;
    const Rgb two[2] = {colours[first], colours[first]};
    while (x + 2 <= colours.size() && std::memcmp(&colours[x], two, sizeof two) == 0) x += 2;
    if (x < colours.size() && std::memcmp(&colours[x], two, sizeof *two) == 0) ++x;
    run(first, x - first);
  }
}

class Octree {
 public:
  // `most_colours` is 8 to 256.
  Status allocate(std::int32_t most_colours);

  // `count` pixels of this colour, one after the other.
  void insert(Rgb colour, std::size_t count) {
    Node& leaf = leaf_for(colour);
    leaf.count += static_cast<std::uint32_t>(count);
    leaf.blue += std::uint64_t{colour.blue} * count;
    leaf.green += std::uint64_t{colour.green} * count;
    leaf.red += std::uint64_t{colour.red} * count;
  }
  void insert(Rgb colour) {
    Node& leaf = leaf_for(colour);
    ++leaf.count;
    leaf.blue += colour.blue;
    leaf.green += colour.green;
    leaf.red += colour.red;
  }
  void insert_row(std::span<const Rgb> colours);

  // Whether every colour that went in has a leaf, and so a palette entry, of its own.
  bool is_exact() const { return leaf_level_ == kLevels - 1; }

  // Numbers the leaves and writes their mean colours. Returns how many; no insertion after it.
  std::int32_t write_palette(std::span<Rgb> palette);

  // Where a colour's path leads in the finished tree.
  struct Place {
    std::int32_t index;  // the leaf's, or -1: the path ends before one
    int level;           // of the leaf or of the missing node
  };
  Place find(Rgb colour) const;

 private:
  static constexpr int kLevels = 8;
  // 256 leaves and the one that is being added have at most 8 + 64 + 6 * 257 nodes on their paths.
  static constexpr int kNodes = 2048;

  using NodeIndex = std::uint16_t;
  static constexpr int kCellBits = 15;  // 5 bits a channel: what lies below one node of level 4
  static constexpr int kCellLevel = 4;
  static constexpr NodeIndex kNone = 0;  // the root is nobody's child
  static constexpr NodeIndex kRoot = 0;

  struct Node {
    std::uint64_t blue, green, red;  // sums of `count` colours
    std::uint32_t count;             // above 0: a leaf
    std::int32_t index;              // in the palette
    std::uint32_t path;              // the children's numbers from the root, 3 bits each
    NodeIndex children[8];
    NodeIndex next, previous;  // reducible nodes of the same level, the latest first
    NodeIndex parent;          // of a free node: the next free one
    std::int8_t level;
  };

  static std::uint32_t path_of(Rgb colour) {
    return kSpreadBits[colour.blue] << 2 | kSpreadBits[colour.green] << 1 | kSpreadBits[colour.red];
  }
  static int child_at(std::uint32_t path, int level) {
    return path >> (3 * (kLevels - 1 - level)) & 7;
  }
  Node& node(NodeIndex index) const { return nodes_.data()[index]; }
  Node& leaf_for(Rgb colour) {
    const std::uint32_t path = path_of(colour);
    const NodeIndex leaf = leaf_of_cell_.data()[path >> (3 * kLevels - kCellBits)];
    return node(leaf != kNone ? leaf : make_room(path));
  }
  NodeIndex make_room(std::uint32_t path);
  void becomes_leaf(NodeIndex index);
  NodeIndex create(NodeIndex parent, int child, int level);
  void release(NodeIndex index);
  void unlink(NodeIndex index);
  bool reduce();
  void number(NodeIndex index, std::span<Rgb> palette);

  RowBuffer<Node> nodes_;
  RowBuffer<NodeIndex> leaf_of_cell_;  // the leaf that all colours of a cell meet, if there is one
  NodeIndex free_ = kNone;
  NodeIndex reducible_[kLevels] = {};
  std::int32_t most_colours_ = 0, leaves_ = 0, written_ = 0;
  int leaf_level_ = kLevels - 1;
};

}  // namespace tq::process
