// Counts of levels, and Otsu's rule over them (IEEE Transactions on Systems, Man and Cybernetics 9,
// 1979).
#include "process/tone/threshold.h"

#include <cstddef>
#include <cstring>

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
  // Equal neighbours are the rule; four tables keep them from waiting for each other.
  LevelCounts others[3] = {};
  std::size_t x = 0;
  for (; x + 8 <= levels.size(); x += 8) {
    std::uint64_t eight;
    std::memcpy(&eight, &levels[x], sizeof eight);
    const auto low = static_cast<std::uint32_t>(eight),
               high = static_cast<std::uint32_t>(eight >> 32);
    ++counts[low & 255];
    ++others[0][low >> 8 & 255];
    ++others[1][low >> 16 & 255];
    ++others[2][low >> 24];
    ++counts[high & 255];
    ++others[0][high >> 8 & 255];
    ++others[1][high >> 16 & 255];
    ++others[2][high >> 24];
  }
  for (; x < levels.size(); ++x) ++counts[levels[x]];
  for (std::size_t i = 0; i < counts.size(); ++i) {
    counts[i] += others[0][i] + others[1][i] + others[2][i];
  }
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
