// Counts of levels, and Otsu's rule over them (IEEE Transactions on Systems, Man and Cybernetics 9,
// 1979).
#include "process/tone/threshold.h"

#include <cstddef>

namespace tq::process {
namespace {

constexpr int kMiddle = 127;

struct Class {
  double pixels = 0, sum = 0;
};

// Of levels 0 to `level`.
Class class_up_to(const LevelCounts& counts, int level) {
  Class found;
  for (int i = 0; i <= level; ++i) {
    found.pixels += counts[i];
    found.sum += double{1} * counts[i] * i;
  }
  return found;
}

}  // namespace

void add_levels(std::span<const std::uint8_t> levels, LevelCounts& counts) {
  // Equal neighbours are the rule; two tables keep them from waiting for each other.
  LevelCounts others{};
  std::size_t x = 0;
  for (; x + 2 <= levels.size(); x += 2) {
    ++counts[levels[x]];
    ++others[levels[x + 1]];
  }
  if (x < levels.size()) ++counts[levels[x]];
  for (std::size_t i = 0; i < counts.size(); ++i) counts[i] += others[i];
}

int otsu_level(const LevelCounts& counts) {
  const Class all = class_up_to(counts, 255);
  Class dark;
  double best = -1;
  int first = kMiddle, last = kMiddle;
  for (int level = 0; level < 255; ++level) {
    dark.pixels += counts[level];
    dark.sum += double{1} * counts[level] * level;
    const double light = all.pixels - dark.pixels;
    if (dark.pixels <= 0 || light <= 0) continue;
    const double apart = all.pixels * dark.sum - dark.pixels * all.sum;
    const double value = apart * apart / (dark.pixels * light);
    if (value > best) {
      best = value;
      first = last = level;
    } else if (value == best && last == level - 1) {
      last = level;
    }
  }
  return (first + last) / 2;
}

double class_distance(const LevelCounts& counts, int level) {
  const Class all = class_up_to(counts, 255), dark = class_up_to(counts, level);
  const double light = all.pixels - dark.pixels;
  if (dark.pixels <= 0 || light <= 0) return 0;
  return (all.sum - dark.sum) / light - dark.sum / dark.pixels;
}

}  // namespace tq::process
