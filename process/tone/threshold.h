// Where levels of grey part into dark and light ones.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "core/memory.h"

namespace tq::process {

// How many pixels have each level. No image has more than 2^32 - 1 of them.
using LevelCounts = std::array<std::uint32_t, 256>;

class LevelCounter {
 public:
  // `pixels`: about how many there will be. Of many, neighbours are counted two by two.
  Status allocate(std::int64_t pixels);
  void add(std::span<const std::uint8_t> levels);
  LevelCounts counts() const;

 private:
  static constexpr std::size_t kLevels = 256;
  std::size_t add_pairs(std::span<const std::uint8_t> levels);

  std::array<LevelCounts, 4> tables_{};
  RowBuffer<std::uint32_t> pairs_;  // by the second level, then the first one
};

// Otsu's rule: the level, 0 to 254, at or below which pixels are dark, so that the variance between
// dark and light ones is greatest; the middle where several levels in turn are equally good. 127
// where all pixels have the same level: a white page stays white and a black one black.
int otsu_level(const LevelCounts& counts);

// The mean of the levels above `level` less that of the others; 0 where either are none.
double class_distance(const LevelCounts& counts, int level);

}  // namespace tq::process
