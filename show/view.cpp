// Fit, place, points there and back. Sides are fractions of integers: nothing depends on a machine.
#include "show/view.h"

#include <algorithm>
#include <numeric>

namespace tq::show {
namespace {

constexpr int kFlags =
    IMG_VIEW_SQUARE | IMG_VIEW_TOP_LEFT | IMG_VIEW_BACKGROUND | IMG_VIEW_NO_TONE | IMG_VIEW_KEEP;

// A value of 0 or above as a fraction.
struct Fraction {
  std::int64_t over, under;
};

struct Division {
  std::int64_t whole, rest;  // of what it was divided by
};

// value * over / under, below 2^62 each; what has more than 40 bits is 2^40.
Division multiply(std::int64_t value, const Fraction& by) {
  constexpr std::int64_t kMost = std::int64_t{1} << 40;
  const std::int64_t whole = value / by.under, rest = value % by.under;
  Division sum{0, 0};
  for (int bit = 62; bit >= 0; --bit) {
    const std::int64_t once = by.over >> bit & 1;
    sum.whole = 2 * sum.whole + once * whole;
    sum.rest = 2 * sum.rest + once * rest;
    while (sum.rest >= by.under) {
      sum.rest -= by.under;
      ++sum.whole;
    }
    if (sum.whole > kMost) return {kMost, 0};
  }
  return sum;
}

// The nearest side, at least 1 pixel; halves upwards.
std::int64_t rounded(std::int64_t value, const Fraction& by) {
  const Division product = multiply(value, by);
  const bool up = product.rest >= by.under - product.rest;
  return std::max<std::int64_t>(product.whole + (up ? 1 : 0), 1);
}

struct Sides {
  std::int64_t width, height;
};

// What all fits are made of: the turned source and how its pixels are stretched.
struct Picture {
  std::int64_t width, height;  // of the turned source, pixels
  Resolution dots;             // along the window's axes
  Fraction stretch_x{1, 1}, stretch_y{1, 1};

  void stretch() {
    const std::int64_t common = std::gcd(dots.x, dots.y);
    if (dots.x > dots.y) stretch_y = {dots.x / common, dots.y / common};
    if (dots.y > dots.x) stretch_x = {dots.y / common, dots.x / common};
  }
  // The picture's height by its width, and the other way round.
  Fraction high() const {
    return {height * stretch_y.over * stretch_x.under, width * stretch_x.over * stretch_y.under};
  }
  Fraction wide() const { return {high().under, high().over}; }

  Sides natural(std::int64_t zoom) const {
    return {rounded(width, {stretch_x.over * zoom, stretch_x.under * 1000}),
            rounded(height, {stretch_y.over * zoom, stretch_y.under * 1000})};
  }
  Sides by_width(std::int64_t side) const { return {side, rounded(side, high())}; }
  Sides by_height(std::int64_t side) const { return {rounded(side, wide()), side}; }
};

// Whether a picture as wide as the window is no higher than it.
bool fits_by_width(const Picture& picture, const img_view& view) {
  const Division height = multiply(view.width, picture.high());
  return height.whole < view.height || (height.whole == view.height && height.rest == 0);
}

Status fit(const Picture& picture, const img_view& view, Sides& sides) {
  const std::int64_t zoom = view.zoom == 0 ? 1000 : view.zoom;
  const bool by_width = fits_by_width(picture, view);
  switch (view.fit) {
    case IMG_FIT_NONE:
      sides = picture.natural(zoom);
      return kOk;
    case IMG_FIT_SIZE:
      if (view.device_dpi_x < 1 || view.device_dpi_y < 1) return StatusCode::unsupported;
      if (picture.dots.x == 0 || picture.dots.y == 0) {
        sides = picture.natural(zoom);
      } else {
        sides = {rounded(picture.width, {view.device_dpi_x * zoom, picture.dots.x}),
                 rounded(picture.height, {view.device_dpi_y * zoom, picture.dots.y})};
      }
      return kOk;
    case IMG_FIT_WINDOW:
    case IMG_FIT_SHRINK: {
      sides = by_width ? picture.by_width(view.width) : picture.by_height(view.height);
      const Sides natural = picture.natural(1000);
      const bool larger = sides.width > natural.width || sides.height > natural.height;
      if (view.fit == IMG_FIT_SHRINK && larger) sides = natural;
      return kOk;
    }
    case IMG_FIT_FILL:
      sides = by_width ? picture.by_height(view.height) : picture.by_width(view.width);
      return kOk;
    case IMG_FIT_WIDTH:
      sides = picture.by_width(view.width);
      return kOk;
    case IMG_FIT_HEIGHT:
      sides = picture.by_height(view.height);
      return kOk;
    case IMG_FIT_STRETCH:
      sides = {view.width, view.height};
      return kOk;
    default:
      return StatusCode::unsupported;
  }
}

bool is_right_angle(std::int32_t degrees) {
  return degrees == 0 || degrees == 90 || degrees == 180 || degrees == 270;
}

Status find_source(const ImageRecord& image, const img_view& view, Rect& source) {
  Rect asked{view.source_x, view.source_y, view.source_width, view.source_height};
  const bool none = (asked.x | asked.y | asked.width | asked.height) == 0;
  if (none) asked = image.crop;
  const auto cut = [](std::int32_t first, std::int32_t side, std::int32_t most, std::int32_t& at,
                      std::int32_t& there) {
    const std::int64_t end = std::min<std::int64_t>(std::int64_t{first} + side, most);
    at = std::max(first, 0);
    there = static_cast<std::int32_t>(std::max<std::int64_t>(end - at, 0));
  };
  cut(asked.x, asked.width, image.width, source.x, source.width);
  cut(asked.y, asked.height, image.height, source.y, source.height);
  return source.width > 0 && source.height > 0 ? StatusCode::ok : StatusCode::bad_image;
}

// Where the picture begins; `scroll` becomes what counts.
std::int32_t place(std::int32_t shown, std::int32_t window, bool at_start, std::int32_t& scroll) {
  scroll = std::clamp(scroll, 0, std::max(shown - window, 0));
  if (shown > window) return -scroll;
  return at_start ? 0 : (window - shown) / 2;
}

std::int32_t most_scroll(const Axis& axis, std::int32_t window) {
  return std::max(axis.shown - window, 0);
}

// The nearest pixel of `count`; false when it was another one.
bool clamp_to(std::int64_t& pixel, std::int32_t count) {
  const std::int64_t asked = pixel;
  pixel = std::clamp<std::int64_t>(pixel, 0, count - 1);
  return pixel == asked;
}

std::int32_t thousandths(const Axis& axis) {
  const std::int64_t zoom =
      (2000 * std::int64_t{axis.shown} + axis.pixels) / (2 * std::int64_t{axis.pixels});
  return static_cast<std::int32_t>(std::min<std::int64_t>(zoom, INT32_MAX));
}

}  // namespace

Status read_view(const img_view* view, img_view& out) {
  out = {};
  if (view == nullptr || view->bytes < static_cast<std::int32_t>(sizeof view->bytes)) {
    return StatusCode::unsupported;
  }
  const std::size_t bytes = view->bytes;
  std::memcpy(&out, view, std::min(bytes, sizeof out));
  return kOk;
}

Status lay_out(const ImageRecord& image, const img_view& view, Layout& layout) {
  const bool known = view.fit >= IMG_FIT_NONE && view.fit <= IMG_FIT_SIZE && view.zoom >= 0 &&
                     is_right_angle(view.angle) && (view.flags & ~kFlags) == 0;
  if (!known) return StatusCode::unsupported;
  if (view.width < 1 || view.height < 1) return StatusCode::empty_display_rect;
  TQ_TRY(find_source(image, view, layout.source));
  const Rect& source = layout.source;
  const int turns = (view.angle + image.display_angle) / 90 % 4;
  layout.swapped = turns % 2 == 1;
  layout.x = {.pixels = source.width, .first = source.x, .from_end = turns == 2 || turns == 3};
  layout.y = {.pixels = source.height, .first = source.y, .from_end = turns == 1 || turns == 2};
  Resolution dots = resolution_of(image);
  if (layout.swapped) {
    std::swap(layout.x, layout.y);
    std::swap(dots.x, dots.y);
  }
  Picture picture{.width = layout.x.pixels, .height = layout.y.pixels, .dots = dots};
  const bool square = (view.flags & IMG_VIEW_SQUARE) != 0;
  if (!square && dots.x > 0 && dots.y > 0) picture.stretch();
  Sides sides{};
  TQ_TRY(fit(picture, view, sides));
  if (sides.width > kLongestSide || sides.height > kLongestSide) return StatusCode::unsupported;
  layout.window = {view.width, view.height};
  layout.x.shown = static_cast<std::int32_t>(sides.width);
  layout.y.shown = static_cast<std::int32_t>(sides.height);
  const bool top_left = (view.flags & IMG_VIEW_TOP_LEFT) != 0;
  layout.scroll_x = view.scroll_x;
  layout.scroll_y = view.scroll_y;
  layout.x.at = place(layout.x.shown, view.width, top_left, layout.scroll_x);
  layout.y.at = place(layout.y.shown, view.height, top_left, layout.scroll_y);
  return kOk;
}

void describe(const Layout& layout, img_layout& out) {
  const Axis &x = layout.x, &y = layout.y;
  out = {.x = x.at,
         .y = y.at,
         .width = x.shown,
         .height = y.shown,
         .scroll_x = layout.scroll_x,
         .scroll_y = layout.scroll_y,
         .scroll_width = most_scroll(x, layout.window.width),
         .scroll_height = most_scroll(y, layout.window.height),
         .zoom_x = thousandths(x),
         .zoom_y = thousandths(y)};
}

bool window_to_image(const Layout& layout, std::int32_t x, std::int32_t y, std::int32_t& image_x,
                     std::int32_t& image_y) {
  std::int64_t right = std::int64_t{x} - layout.x.at, down = std::int64_t{y} - layout.y.at;
  const bool in_x = clamp_to(right, layout.x.shown), in_y = clamp_to(down, layout.y.shown);
  image_x = layout.x.in_image(layout.x.pixel_of(right));
  image_y = layout.y.in_image(layout.y.pixel_of(down));
  if (layout.swapped) std::swap(image_x, image_y);
  return in_x && in_y;
}

bool image_to_window(const Layout& layout, std::int32_t image_x, std::int32_t image_y,
                     std::int32_t& x, std::int32_t& y) {
  if (layout.swapped) std::swap(image_x, image_y);
  const auto place = [](const Axis& axis, std::int32_t pixel, std::int32_t& out) {
    std::int64_t along = std::int64_t{pixel} - axis.first;
    const bool inside = clamp_to(along, axis.pixels);
    out = axis.at + axis.shown_of(axis.from_end ? axis.pixels - 1 - along : along);
    return inside;
  };
  const bool in_x = place(layout.x, image_x, x), in_y = place(layout.y, image_y, y);
  return in_x && in_y;
}

Status zoom_view(const ImageRecord& image, img_view& view, std::int32_t x, std::int32_t y,
                 std::int32_t zoom) {
  if (zoom < 1) return StatusCode::unsupported;
  Layout before, after;
  TQ_TRY(lay_out(image, view, before));
  img_view zoomed = view;
  if (view.fit != IMG_FIT_SIZE) zoomed.fit = IMG_FIT_NONE;
  zoomed.zoom = zoom;
  TQ_TRY(lay_out(image, zoomed, after));
  const auto scroll = [](const Axis& old, const Axis& now, std::int32_t at, std::int32_t window) {
    std::int64_t along = std::int64_t{at} - old.at;
    (void)clamp_to(along, old.shown);
    const std::int64_t there = (2 * along + 1) * now.shown / (2 * std::int64_t{old.shown});
    const std::int64_t wanted = there - at;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(wanted, 0, most_scroll(now, window)));
  };
  zoomed.scroll_x = scroll(before.x, after.x, x, view.width);
  zoomed.scroll_y = scroll(before.y, after.y, y, view.height);
  view = zoomed;
  return kOk;
}

Status scroll_view(const ImageRecord& image, img_view& view, std::int32_t dx, std::int32_t dy) {
  Layout layout;
  TQ_TRY(lay_out(image, view, layout));
  const auto moved = [](std::int64_t scroll, std::int32_t by, std::int32_t most) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(scroll + by, 0, most));
  };
  view.scroll_x = moved(layout.scroll_x, dx, most_scroll(layout.x, view.width));
  view.scroll_y = moved(layout.scroll_y, dy, most_scroll(layout.y, view.height));
  return kOk;
}

}  // namespace tq::show
