// Searches behind the table of cells.
#include "process/index_finder.h"
#include "pixels/colours.h"

namespace tq::process {

IndexFinder::IndexFinder(const Octree& tree, std::span<const Rgb> palette, bool exact)
    : tree_(tree),
      palette_(palette),
      exact_(exact),
      unknown_{static_cast<std::uint8_t>(palette[0].blue ^ 1), palette[0].green, palette[0].red,
               0} {}

Status IndexFinder::allocate() {
  TQ_TRY(cells_.allocate(1 << 15));
  std::fill(cells_.pixels().begin(), cells_.pixels().end(), unknown_);
  return known_.allocate(kKnown);
}

IndexFinder::Entry IndexFinder::entry_of(std::uint8_t index) const {
  const Rgb colour = palette_[index];
  return {colour.blue, colour.green, colour.red, index};
}

IndexFinder::Entry IndexFinder::find_slowly(Rgb colour) {
  return entry_of(index_of(colour));
}

std::uint8_t IndexFinder::index_of(Rgb colour) {
  const std::uint32_t kept_bits = exact_ ? 0xFFFFFF : 0xFEFEFE;
  const std::uint32_t key = (std::bit_cast<std::uint32_t>(colour) & kept_bits) | 1u << 24;
  KnownColour& known = known_.data()[(key * 0x9E3779B1u) >> 17];
  if (known.key == key) return known.index;
  if (colour == last_) return last_index_;
  const Octree::Place place = tree_.find(colour);
  const std::uint8_t index = place.index >= 0 ? static_cast<std::uint8_t>(place.index)
                                              : pixels::nearest_colour(colour, palette_);
  if (place.level < 7 || exact_) known = {key, index};
  last_ = colour;
  last_index_ = index;
  if (place.level <= 4 && place.index >= 0) {
    cells_.data()[CellColours::cell(colour)] = entry_of(index);
  }
  return index;
}

void IndexFinder::find_row(std::span<const Rgb> colours, std::uint8_t* indices) {
  for_each_run(colours, [&](std::size_t first, std::size_t count) {
    std::fill_n(indices + first, count, index_of(colours[first]));
  });
}

}  // namespace tq::process
