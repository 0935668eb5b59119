// Where a picture lies in a window, and which pixel of the image lies under which of the window.
#pragma once

#include "core/image_record.h"
#include "include/tarnquill.h"

namespace tq::show {

inline constexpr std::int32_t kLongestSide = 1 << 26;  // of a picture, device pixels

// One axis of the window: `pixels` of the image, in the window's direction, become `shown` of the
// device.
struct Axis {
  std::int32_t pixels = 0, shown = 0;
  std::int32_t at = 0;     // where the picture begins in the window
  std::int32_t first = 0;  // of the image's pixels
  bool from_end = false;   // of the image's pixels the last is shown first

  // The pixel of the image, counted in the window's direction, that is nearest to a shown one, and
  // the other way round.
  std::int32_t pixel_of(std::int64_t shown_pixel) const {
    return static_cast<std::int32_t>((2 * shown_pixel + 1) * pixels / (2 * std::int64_t{shown}));
  }
  std::int32_t shown_of(std::int64_t pixel) const {
    return static_cast<std::int32_t>((2 * pixel + 1) * shown / (2 * std::int64_t{pixels}));
  }
  // Counted in the image.
  std::int32_t in_image(std::int32_t pixel) const {
    return first + (from_end ? pixels - 1 - pixel : pixel);
  }
};

struct Layout {
  Rect source;  // of the image's pixels
  Size window;
  Axis x, y;                                // of the window
  bool swapped;                             // the window's x is the image's y
  std::int32_t scroll_x = 0, scroll_y = 0;  // clamped
};

// The caller's struct, of which only the bytes that he knows are read: unsupported for none.
Status read_view(const img_view* view, img_view& out);

// unsupported: unknown values, or a side above kLongestSide; empty_display_rect: a window without
// pixels; bad_image: nothing of the image is in the source rectangle.
Status lay_out(const ImageRecord& image, const img_view& view, Layout& layout);

// As the public interface hands them out.
void describe(const Layout& layout, img_layout& out);
bool window_to_image(const Layout& layout, std::int32_t x, std::int32_t y, std::int32_t& image_x,
                     std::int32_t& image_y);
bool image_to_window(const Layout& layout, std::int32_t image_x, std::int32_t image_y,
                     std::int32_t& x, std::int32_t& y);

// Change a view; on failure it stays.
Status zoom_view(const ImageRecord& image, img_view& view, std::int32_t x, std::int32_t y,
                 std::int32_t zoom);
Status scroll_view(const ImageRecord& image, img_view& view, std::int32_t dx, std::int32_t dy);

}  // namespace tq::show
