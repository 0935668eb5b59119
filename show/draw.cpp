// Pictures in windows: what is kept of them, and effects.
#include "show/draw.h"

#include <algorithm>

#include "core/context.h"
#include "show/plot.h"
#include "show/wipe.h"

namespace tq::show {
namespace {

constexpr std::int64_t kMostKept = 64 << 20;

// All that a copy of a view depends on beside the image's pixels.
struct Key {
  img_view view;
  std::int32_t alias, quality, colour;
  std::int32_t gamma, brightness, contrast, operation;
  std::int32_t angle, transparent;
  Rect crop;
};

Key key_of(const ImageRecord& image, const img_view& view) {
  const Settings& settings = context().settings;
  return {.view = view,
          .alias = settings.alias,
          .quality = settings.alias_quality,
          .colour = settings.auto_color,
          .gamma = image.gamma_is_set ? image.gamma : 0,
          .brightness = image.brightness,
          .contrast = image.contrast,
          .operation = image.raster_operation,
          .angle = image.display_angle,
          .transparent = image.has_transparent ? image.transparent_colour & 255 : -1,
          .crop = image.crop};
}

}  // namespace

// The whole window, into memory.
Status Plot::draw_whole(std::uint8_t* pixels) {
  return render_part(
      {0, 0, window_.width, window_.height},
      {pixels, std::intptr_t{4} * window_.width, 0, window_.height, IMG_PIXELS_BGRX});
}

Status Plot::put_whole(const Rect& part, std::int32_t operation, const std::uint8_t* pixels) const {
  const Rect inside = common(part, clip_);
  if (is_empty(inside)) return kOk;
  const std::uint8_t* const rows = pixels + std::ptrdiff_t{4} * window_.width * inside.y;
  return put(inside, band_header(window_.width, inside.height, 32), rows, inside.x, operation);
}

// What was kept of this view, or is from now on; null where there is no memory for it.
Status Plot::keep_whole(const std::uint8_t*& pixels) {
  pixels = nullptr;
  const Key key = key_of(image(), view_);
  const std::int64_t bytes = std::int64_t{4} * window_.width * window_.height;
  if (bytes > kMostKept || shows_through()) return kOk;
  if (image().shown_copy != nullptr && std::memcmp(image().shown_copy, &key, sizeof key) == 0) {
    pixels = image().shown_copy + sizeof key;
    return kOk;
  }
  release_display_cache(image());
  std::uint8_t* const block = alloc_block(sizeof key + static_cast<std::uint64_t>(bytes));
  if (block == nullptr) return kOk;
  if (draw_whole(block + sizeof key).failed()) {
    free_block(block);
    return kOk;
  }
  std::memcpy(block, &key, sizeof key);
  image().shown_copy = block;
  pixels = block + sizeof key;
  return kOk;
}

Status Plot::display() {
  const std::uint8_t* whole = nullptr;
  if ((view_.flags & IMG_VIEW_KEEP) != 0) TQ_TRY(keep_whole(whole));
  if (whole == nullptr) return draw_all();
  if (!paint_.has_background) return put_whole(seen(), image().raster_operation, whole);
  if (image().raster_operation != kCopy) return draw_all();
  return put_whole({0, 0, window_.width, window_.height}, kCopy, whole);
}

// What one step of an effect brings of the window in memory.
Status Plot::uncover(std::int32_t effect, std::int32_t step, std::int32_t steps,
                     const std::uint8_t* pixels) const {
  const Size size{window_.width, window_.height};
  const Rect all = paint_.has_background ? Rect{0, 0, window_.width, window_.height} : seen();
  const Status count = wipe_rects(effect, step, steps, size, {});
  TQ_TRY(count);
  RowBuffer<Rect> rects;
  TQ_TRY(rects.allocate(count.raw()));
  (void)wipe_rects(effect, step, steps, size, rects.pixels());
  for (const Rect& rect : rects.pixels()) {
    TQ_TRY(put_whole(common(rect, all), image().raster_operation, pixels));
  }
  return kOk;
}

Status Plot::wipe(std::int32_t effect, std::int32_t steps) {
  RowBuffer<std::uint8_t> pixels;
  TQ_TRY(pixels.allocate(std::int64_t{4} * window_.width * window_.height));
  const Rect all{0, 0, window_.width, window_.height};
  if (shows_through()) TQ_TRY(read_below(all, pixels.data()));
  TQ_TRY(draw_whole(pixels.data()));
  const std::int32_t delay = std::clamp(context().settings.wipe_delay, 0, 1000);
  bool waits = true;  // else all that is left comes at once
  for (std::int32_t step = 0; step < steps; ++step) {
    TQ_TRY(uncover(effect, step, steps, pixels.data()));
    if (step + 1 == steps || !waits) continue;
    waits = report_progress(steps).ok();
    if (waits) platform::wait_milliseconds(delay);
  }
  return kOk;
}

Status display_bitmap(ImageHandle image, void* context, const Rect& place, const img_view* view) {
  Plot plot(image, context);
  TQ_TRY(plot.open(place, view));
  return plot.display();
}

Status display_wipe(ImageHandle image, void* context, const Rect& place, const img_view* view,
                    std::int32_t effect, std::int32_t steps) {
  if (effect < 0 || effect > kLastEffect || steps < 1) return StatusCode::unsupported;
  Plot plot(image, context);
  TQ_TRY(plot.open(place, view));
  return plot.wipe(effect, steps);
}

}  // namespace tq::show
