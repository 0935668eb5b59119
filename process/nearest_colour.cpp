// A search for each cell, once.
#include "process/nearest_colour.h"

#include <algorithm>
#include "pixels/colours.h"

namespace tq::process {

Status CellColours::allocate() {
  constexpr int kCells = 1 << 15;
  TQ_TRY(entries_.allocate(kCells));
  std::fill(entries_.pixels().begin(), entries_.pixels().end(), Entry{255, 255, 255, 0});
  return kOk;
}

CellColours::Entry CellColours::fill(Rgb colour) {
  const std::uint8_t index = pixels::nearest_colour(colour, palette_);
  const Rgb found = palette_[index];
  Entry& entry = entries_.data()[cell(colour)];
  entry = {found.blue, found.green, found.red, index};
  return entry;
}

}  // namespace tq::process
