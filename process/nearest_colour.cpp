// Searches in palettes.
#include "process/nearest_colour.h"

#include <climits>

namespace tq::process {

std::uint8_t nearest_colour(Rgb colour, std::span<const Rgb> palette) {
  int least = INT_MAX;
  std::size_t found = 0;
  for (std::size_t i = 0; i < palette.size(); ++i) {
    const int distance = halved_distance(colour, palette[i]);
    if (distance < least) {
      least = distance;
      found = i;
    }
  }
  return static_cast<std::uint8_t>(found);
}

Status CellColours::allocate() {
  constexpr int kCells = 1 << 15;
  TQ_TRY(entries_.allocate(kCells));
  std::fill(entries_.pixels().begin(), entries_.pixels().end(), Entry{255, 255, 255, 0});
  return kOk;
}

CellColours::Entry CellColours::fill(Rgb colour) {
  const std::uint8_t index = nearest_colour(colour, palette_);
  const Rgb found = palette_[index];
  Entry& entry = entries_.data()[cell(colour)];
  entry = {found.blue, found.green, found.red, index};
  return entry;
}

}  // namespace tq::process
