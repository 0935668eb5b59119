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

Status LevelCounter::allocate(std::int64_t pixels) {
  // Less than this is counted before the table is cleared and summed up.
  constexpr std::int64_t kMany = 1 << 20;
  return pixels < kMany ? kOk : pairs_.allocate(kLevels * kLevels);
}

// Eight that are equal to the eight before only add to their number: so is paper, and each count would
// have to wait for the one before.
std::size_t LevelCounter::add_pairs(std::span<const std::uint8_t> levels) {
  std::uint32_t* const pairs = pairs_.data();
  const auto add = [pairs](std::uint64_t eight, std::uint32_t times) {
    pairs[eight & 0xFFFF] += times;
    pairs[eight >> 16 & 0xFFFF] += times;
    pairs[eight >> 32 & 0xFFFF] += times;
    pairs[eight >> 48] += times;
  };
  std::uint64_t last = 0;
  std::uint32_t times = 0;
  std::size_t x = 0;
  for (; x + 8 <= levels.size(); x += 8) {
    std::uint64_t eight;
    std::memcpy(&eight, &levels[x], sizeof eight);
    if (eight == last) {
      ++times;
      continue;
    }
    add(last, times);
    last = eight;
    times = 1;
  }
  add(last, times);
  return x;
}

void LevelCounter::add(std::span<const std::uint8_t> levels) {
  std::size_t x = pairs_.size() != 0 ? add_pairs(levels) : 0;
  // Equal neighbours are the rule; four tables keep them from waiting for each other.
  for (; x + 4 <= levels.size(); x += 4) {
    std::uint32_t four;
    std::memcpy(&four, &levels[x], sizeof four);
    ++tables_[0][four & 255];
    ++tables_[1][four >> 8 & 255];
    ++tables_[2][four >> 16 & 255];
    ++tables_[3][four >> 24];
  }
  for (; x < levels.size(); ++x) ++tables_[0][levels[x]];
}

LevelCounts LevelCounter::counts() const {
  LevelCounts counts{};
  for (const LevelCounts& table : tables_) {
    for (std::size_t i = 0; i < kLevels; ++i) counts[i] += table[i];
  }
  for (std::size_t at = 0; at < pairs_.size(); at += kLevels) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < kLevels; ++i) {
      const std::uint32_t count = pairs_.data()[at + i];
      counts[i] += count;
      sum += count;
    }
    counts[at / kLevels] += sum;
  }
  return counts;
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
