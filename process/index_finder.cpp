// Searches behind the table of cells.
#include "process/index_finder.h"

namespace tq::process {

std::uint8_t IndexFinder::find_slowly(Rgb colour) {
  const std::uint32_t key = static_cast<std::uint32_t>(colour.red >> 1) << 14 |
                            static_cast<std::uint32_t>(colour.green >> 1) << 7 |
                            static_cast<std::uint32_t>(colour.blue >> 1) | 1u << 21;
  KnownColour& known = known_.data()[(key * 0x9E3779B1u) >> 17];
  if (known.key == key) return known.index;
  if (colour == last_) return last_index_;
  const Octree::Place place = tree_.find(colour);
  const std::uint8_t index =
      place.index >= 0 ? static_cast<std::uint8_t>(place.index) : nearest_colour(colour, palette_);
  if (place.level < 7) known = {key, index};
  last_ = colour;
  last_index_ = index;
  if (place.level <= 4 && place.index >= 0) {
    cells_.data()[CellColours::cell(colour)] = static_cast<std::uint16_t>(kWhole | index);
  }
  return index;
}

}  // namespace tq::process
