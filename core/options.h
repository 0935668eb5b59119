// What a caller may switch on beside the settings: numbered values, all 0 at first, and 0 is always
// what callers have relied on.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "include/tarnquill.h"

namespace tq {

class Options {
 public:
  // -1: there is no such option.
  std::int32_t get(std::int32_t option) const { return is_known(option) ? values_[option] : -1; }

  // Without a look at the table, for what every export asks.
  template <std::int32_t kOption>
  std::int32_t get() const {
    static_assert(kOption > 0 && kOption < kMost);
    return values_[kOption];
  }

  // Of an option that is a limit: `none` where there is none.
  std::int64_t limit(std::int32_t option, std::int64_t none) const {
    const std::int32_t value = get(option);
    return value > 0 ? value : none;
  }

  // False, and nothing changes, for an unknown option or a value that it cannot have.
  bool set(std::int32_t option, std::int32_t value) {
    if (!is_known(option) || !fits(option, value)) return false;
    values_[option] = value;
    return true;
  }

 private:
  struct Range {
    std::int32_t option, least, most;  // of values beside 0
  };
  static constexpr Range kRanges[] = {
      {IMG_OPTION_READING, 1, 1},
      {IMG_OPTION_DETECTION, 1, 1},
      {IMG_OPTION_ORIENTATION, 1, 1},
      {IMG_OPTION_INKS, 1, 1},
      {IMG_OPTION_STRICT, 1, 1},
      {IMG_OPTION_EXTENDED_FORMATS, 1, 1},
      {IMG_OPTION_MAX_PIXELS, 1, INT32_MAX},
      {IMG_OPTION_MAX_KBYTES, 1, INT32_MAX},
      {IMG_OPTION_MAX_PAGES, 1, INT32_MAX},
      {IMG_OPTION_MAX_SCANS, 1, INT32_MAX},
      {IMG_OPTION_JPEG_WRITING, 1, 1},
      {IMG_OPTION_JPEG_OPTIMISE, 1, 1},
      {IMG_OPTION_JPEG_PROGRESSIVE, 1, 1},
      {IMG_OPTION_PDF_WRITING, 1, 1},
      {IMG_OPTION_PDF_PAGE_WIDTH, 1, 144000},
      {IMG_OPTION_PDF_PAGE_HEIGHT, 1, 144000},
      {IMG_OPTION_PDF_MARGIN, 1, 72000},
      {IMG_OPTION_PDF_FIT, 1, 3},
      {IMG_OPTION_PDF_DEFAULT_DPI, 1, 4800},
      {IMG_OPTION_PDF_LOSSLESS, 1, 1},
      {IMG_OPTION_SAFE_SAVING, 1, 1},
      {IMG_OPTION_UTF8_NAMES, 1, 1},
      {IMG_OPTION_SERIALISE, 1, 1},
      {IMG_OPTION_TIFF_STRIP_BYTES, 4096, 1 << 30},
      {IMG_OPTION_TIFF_JPEG, 7, 7},
      {IMG_OPTION_TIFF_G3_K, 1, 4},
      {IMG_OPTION_TIFF_G3_FILL, 1, 1},
      {IMG_OPTION_TIFF_PHOTOMETRIC, 1, 1},
      {IMG_OPTION_TIFF_BYTE_ORDER, 1, 1},
      {IMG_OPTION_TIFF_PREDICTOR, 1, 1},
  };
  static constexpr int kMost = 64;

  static constexpr const Range* find(std::int32_t option) {
    const Range* const found =
        std::find_if(std::begin(kRanges), std::end(kRanges),
                     [=](const Range& range) { return range.option == option; });
    return found == std::end(kRanges) ? nullptr : found;
  }
  static constexpr bool is_known(std::int32_t option) { return find(option) != nullptr; }
  static constexpr bool fits(std::int32_t option, std::int32_t value) {
    const Range& range = *find(option);
    if (option == IMG_OPTION_TIFF_G3_K && value == 3) return false;
    return value == 0 || (value >= range.least && value <= range.most);
  }

  std::array<std::int32_t, kMost> values_{};
};

}  // namespace tq
