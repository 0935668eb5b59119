// Octree of colours: eight levels, one bit of blue, green and red each.
#include "process/colour/octree.h"

#include <algorithm>

namespace tq::process {

Status Octree::allocate(std::int32_t most_colours) {
  most_colours_ = most_colours;
  TQ_TRY(nodes_.allocate(kNodes));
  TQ_TRY(leaf_of_cell_.allocate(1 << kCellBits));
  node(kRoot).level = -1;
  for (int i = kNodes - 1; i > 0; --i) release(word(i));
  return kOk;
}

// In the order of their paths the cells below a node lie together.
void Octree::becomes_leaf(NodeIndex index) {
  const Node& leaf = node(index);
  if (leaf.level > kCellLevel) return;
  const int shift = 3 * (kCellLevel - leaf.level);
  std::fill_n(leaf_of_cell_.data() + (leaf.path << shift), std::size_t{1} << shift, index);
}

Octree::NodeIndex Octree::create(NodeIndex parent, int child, int level) {
  const NodeIndex made = free_;
  free_ = node(made).parent;
  node(made) = {};
  node(made).parent = parent;
  node(made).level = static_cast<std::int8_t>(level);
  node(made).path = node(parent).path << 3 | child;
  node(parent).children[child] = made;
  if (level < leaf_level_) {
    const NodeIndex first = reducible_[level];
    node(made).next = first;
    if (first != kNone) node(first).previous = made;
    reducible_[level] = made;
  }
  return made;
}

void Octree::release(NodeIndex index) {
  node(index).parent = free_;
  free_ = index;
}

void Octree::unlink(NodeIndex index) {
  const Node& gone = node(index);
  if (gone.next != kNone) node(gone.next).previous = gone.previous;
  if (gone.previous != kNone) {
    node(gone.previous).next = gone.next;
  } else {
    reducible_[gone.level] = gone.next;
  }
}

// Merges the children of the node that has the fewest pixels below it, on the deepest level that
// has such nodes: there all children are leaves. Of equal ones the latest goes.
bool Octree::reduce() {
  int level = kLevels - 2;
  while (level >= 0 && reducible_[level] == kNone) --level;
  if (level < 0) return false;
  NodeIndex chosen = kNone;
  std::uint64_t least = UINT64_MAX;
  for (NodeIndex i = reducible_[level]; i != kNone; i = node(i).next) {
    std::uint64_t pixels = 0;
    for (const NodeIndex child : node(i).children) {
      if (child != kNone) pixels += node(child).count;
    }
    if (pixels < least) {
      least = pixels;
      chosen = i;
    }
  }
  unlink(chosen);
  leaf_level_ = level;
  Node& merged = node(chosen);
  if (merged.count == 0) ++leaves_;
  for (NodeIndex& child : merged.children) {
    if (child == kNone) continue;
    const Node& leaf = node(child);
    merged.count += leaf.count;
    merged.blue += leaf.blue;
    merged.green += leaf.green;
    merged.red += leaf.red;
    release(child);
    child = kNone;
    --leaves_;
  }
  becomes_leaf(chosen);
  return true;
}

void Octree::insert_row(std::span<const Rgb> colours) {
  for_each_run(colours, [&](std::size_t first, std::size_t count) {
    if (count == 1) {
      insert(colours[first]);
    } else {
      insert(colours[first], count);
    }
  });
}

// The leaf on the path, made if need be.
Octree::NodeIndex Octree::make_room(std::uint32_t path) {
  for (;;) {
    NodeIndex at = kRoot;
    NodeIndex last_allowed = kRoot;  // the node on the path at the leaf level, if it goes that far
    int level = 0;
    for (; level < kLevels; ++level) {
      const NodeIndex child = node(at).children[child_at(path, level)];
      if (child == kNone) break;
      at = child;
      if (level == leaf_level_) last_allowed = at;
      if (node(at).count != 0) return at;
    }
    if (leaves_ >= most_colours_ && reduce()) continue;
    if (level > leaf_level_) {
      // Older branches reach deeper than leaves may be by now: the node there becomes a leaf that
      // still has children.
      at = last_allowed;
    } else {
      for (; level <= leaf_level_; ++level) at = create(at, child_at(path, level), level);
    }
    ++leaves_;
    becomes_leaf(at);
    return at;
  }
}

void Octree::number(NodeIndex index, std::span<Rgb> palette) {
  if (written_ == most_colours_) return;
  Node& here = node(index);
  if (here.count != 0) {
    const auto mean = [&](std::uint64_t sum) {
      return byte(std::min<std::uint64_t>(sum / here.count, 255));
    };
    here.index = written_;
    palette[written_++] = {mean(here.blue), mean(here.green), mean(here.red), 0};
  }
  for (const NodeIndex child : here.children) {
    if (child != kNone) number(child, palette);
  }
}

std::int32_t Octree::write_palette(std::span<Rgb> palette) {
  written_ = 0;
  number(kRoot, palette);
  return written_;
}

Octree::Place Octree::find(Rgb colour) const {
  const std::uint32_t path = path_of(colour);
  NodeIndex at = kRoot;
  for (int level = 0; level < kLevels; ++level) {
    at = node(at).children[child_at(path, level)];
    if (at == kNone) return {-1, level};
    if (node(at).count != 0) return {node(at).index, level};
  }
  return {-1, kLevels - 1};
}

}  // namespace tq::process
