// Process-wide settings, read at every call.
#pragma once

#include <array>
#include <cstdint>

#include "core/image_record.h"
#include "include/tarnquill.h"

namespace tq {

inline constexpr int kSwitches = 67;

constexpr std::array<bool, kSwitches> all_but_text() {
  std::array<bool, kSwitches> on{};
  on.fill(true);
  on[38] = false;  // plain text: almost any ten printable bytes would pass
  on[66] = false;
  return on;
}

struct Settings {
  struct {
    img_progress_fn call = nullptr;
    std::intptr_t context = 0;
    bool on = false;
  } progress;
  std::int32_t decomp_reduction = 0;
  Size decomp_size;
  Rect decomp_rect;
  std::int32_t dither_mode = 1;
  std::array<bool, kSwitches> auto_detect = all_but_text();
  std::int32_t read_budget = 30000;  // bytes that a decoder reads at a time
  // Kept for the display layer.
  std::array<std::intptr_t, 2> display_functions{};
  std::int32_t auto_color = 0, alias = 0, alias_quality = 0, wipe_delay = 0;
};

Settings& settings();

// The code whose auto-detect switch `code` shares: compression variants share their format's.
constexpr std::int32_t base_code(std::int32_t code) {
  switch (code) {
    case 7:
    case 8:
    case 9:
    case 10:
    case 16:
    case 17:
    case 40:
      return 0;
    case 12:
      return 1;
    default:
      return code;
  }
}

// Tells the caller's progress callback, if there is one and reporting is on. Its negative answer is
// the result.
Status report_progress(std::int32_t value);

}  // namespace tq
