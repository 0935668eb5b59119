// What a caller wants of a scan, and what a source says that it can do.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "core/status.h"
#include "include/tarnquill.h"

namespace tq::scan {

class ScanOptions {
 public:
  static constexpr std::int32_t kFirst = IMG_SCAN_RESOLUTION, kLast = IMG_SCAN_MAX_PAGES;

  static constexpr bool is_known(std::int32_t option) {
    return option >= kFirst && option <= kLast;
  }
  // What the library itself goes by; no source is asked.
  static constexpr bool is_local(std::int32_t option) {
    return option >= IMG_SCAN_DIALOG && option != IMG_SCAN_PAPER_LOADED;
  }
  // Along one of the axes, or both.
  static constexpr bool is_area(std::int32_t option) {
    return option >= IMG_SCAN_LEFT && option <= IMG_SCAN_HEIGHT;
  }

  Status set(std::int32_t option, std::int32_t value);  // unsupported
  std::int32_t get(std::int32_t option) const { return values_[option]; }
  bool is_set(std::int32_t option) const { return is_set_[option]; }

 private:
  std::array<std::int32_t, kLast + 1> values_{};
  std::array<bool, kLast + 1> is_set_{};
};

// Collects the values that a source can take in the caller's memory; those beyond it are counted.
struct ValueList {
  std::span<std::int32_t> room;
  std::int32_t count = 0;
  bool is_range = false;

  void add(std::int64_t value) {
    const auto kept = static_cast<std::int32_t>(value);
    if (count < std::ssize(room)) room[count] = kept;
    ++count;
  }
  void set_range(std::int64_t least, std::int64_t most, std::int64_t step) {
    is_range = true;
    add(least);
    add(most);
    add(step);
  }
};

// The numbers of a source, as 65536ths, and those of the interface.
constexpr std::int64_t kOne = 65536;

constexpr std::int64_t divide_rounded(std::int64_t value, std::int64_t by) {
  return (value >= 0 ? value + by / 2 : value - by / 2) / by;
}
constexpr std::int64_t from_thousandths(std::int64_t value) {
  return divide_rounded(value * kOne, 1000);
}
constexpr std::int64_t to_thousandths(std::int64_t number) {
  return divide_rounded(number * 1000, kOne);
}

// Why a call failed.
struct Reason {
  std::int32_t code = 0;  // the source's own
  const char* words = "";
};

}  // namespace tq::scan
