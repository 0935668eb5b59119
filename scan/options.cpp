// The options' ranges.
#include "scan/options.h"

#include <climits>

namespace tq::scan {
namespace {

struct Range {
  std::int32_t least = 0, most = 0;
};

constexpr std::int32_t kMostDpi = 65535 * 1000;
constexpr std::int32_t kLongest = 1000 * 1000;  // thousandths of an inch

constexpr std::array<Range, ScanOptions::kLast + 1> kRanges = [] {
  std::array<Range, ScanOptions::kLast + 1> ranges{};
  ranges[IMG_SCAN_RESOLUTION] = {0, kMostDpi};
  ranges[IMG_SCAN_MODE] = {0, 24};
  for (const int option : {IMG_SCAN_FEEDER, IMG_SCAN_DUPLEX, IMG_SCAN_DIALOG}) {
    ranges[option] = {0, 1};
  }
  for (int option = IMG_SCAN_LEFT; option <= IMG_SCAN_HEIGHT; ++option) {
    ranges[option] = {0, kLongest};
  }
  ranges[IMG_SCAN_BRIGHTNESS] = ranges[IMG_SCAN_CONTRAST] = {-1000, 1000};
  ranges[IMG_SCAN_THRESHOLD] = {0, 255};
  ranges[IMG_SCAN_TRANSFER] = {0, 3};
  ranges[IMG_SCAN_PAPER_LOADED] = {1, 0};  // nothing may be set
  ranges[IMG_SCAN_MAX_PAGES] = {0, INT_MAX};
  return ranges;
}();

}  // namespace

Status ScanOptions::set(std::int32_t option, std::int32_t value) {
  if (!is_known(option)) return StatusCode::unsupported;
  const Range& range = kRanges[option];
  if (value < range.least || value > range.most) return StatusCode::unsupported;
  const bool is_depth = value == 0 || value == 1 || value == 8 || value == 24;
  if (option == IMG_SCAN_MODE && !is_depth) return StatusCode::unsupported;
  values_[option] = value;
  is_set_[option] = true;
  return kOk;
}

}  // namespace tq::scan
