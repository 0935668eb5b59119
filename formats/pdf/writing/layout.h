// Where a picture stands on its page.
#pragma once

#include <cstdint>

#include "core/dib.h"
#include "core/options.h"
#include "core/status.h"

namespace tq::pdf::writing {

inline constexpr std::int64_t kPoint = 10000;  // lengths count ten-thousandths of a point

struct Length {
  std::int64_t width = 0, height = 0;
};

struct Layout {
  Length page{};               // as it is shown
  Length picture{};            // likewise
  std::int64_t x = 0, y = 0;   // of its lower left corner
  int orientation = 1;         // of its pixels, 1 to 8 as TIFF counts
  std::int64_t user_unit = 1;  // points that a number of the page means

  // A viewer turns the page by so many degrees, which is all that the orientations without mirrors need.
  int rotation() const {
    return orientation == 3 ? 180 : orientation == 6 ? 90 : orientation == 8 ? 270 : 0;
  }
};

// What pictures are laid out by.
struct Sheet {
  std::int64_t width = 0, height = 0;  // 0 in either: pages are as large as their pictures
  std::int64_t margin = 0;
  std::int32_t fit = 0;
  std::int64_t default_dpi = 72;

  explicit Sheet(const Options& options);
};

// A picture of so many pixels; unsupported where margins leave nothing.
Status lay_out(const Sheet& sheet, std::int32_t width, std::int32_t height, Resolution resolution,
               int orientation, Layout& layout);

}  // namespace tq::pdf::writing
