// A picture goes to its device in bands, pixel by pixel: the system never scales it.
#include "show/draw.h"

#include <algorithm>

#include "core/context.h"
#include "pixels/colours.h"
#include "platform/surface.h"
#include "show/dib_copy.h"
#include "show/render.h"
#include "show/wipe.h"

namespace tq::show {
namespace {

using platform::Box;
using platform::Drawing;

constexpr std::int64_t kBandBytes = 256 << 10;
constexpr std::int64_t kPrintedBandBytes = 1 << 20;  // printers fail on large ones
constexpr std::int64_t kMostKept = 64 << 20;
constexpr std::int32_t kFarthest = 1 << 28;  // from the device's corner, pixels

Rect common(const Rect& a, const Rect& b) {
  const std::int32_t x = std::max(a.x, b.x), y = std::max(a.y, b.y);
  const std::int32_t right = std::min(a.x + a.width, b.x + b.width);
  const std::int32_t bottom = std::min(a.y + a.height, b.y + b.height);
  return {x, y, std::max(right - x, 0), std::max(bottom - y, 0)};
}

bool is_empty(const Rect& rect) {
  return rect.width < 1 || rect.height < 1;
}

// The same picture in a part of its window.
Layout layout_of_part(Layout layout, const Rect& part) {
  layout.x.at -= part.x;
  layout.y.at -= part.y;
  layout.window = {part.width, part.height};
  return layout;
}

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

// An image on a device.
class Plot {
 public:
  Plot(ImageHandle handle, void* context, bool prints = false)
      : handle_(handle),
        drawing_(context),
        device_(context),
        serial_(image_record(handle).serial),
        prints_(prints) {}

  // Finds the window on the device and the picture in it.
  Status open(const Rect& place, const img_view* view);
  Status print(bool scaled_by_device);
  Status display();
  Status wipe(std::int32_t effect, std::int32_t steps);

 private:
  ImageRecord& image() const { return image_record(handle_); }
  Status fit_to_page(const Rect& place, const img_view* view);
  bool shows_through() const;
  bool is_grey() const;
  Rect picture() const { return {layout_.x.at, layout_.y.at, layout_.x.shown, layout_.y.shown}; }
  Rect seen() const { return common(picture(), {0, 0, window_.width, window_.height}); }

  Status next_band();
  Status draw(const Rect& part, std::int32_t operation);
  Status draw_band(const Rect& band, std::int32_t operation, std::uint8_t* pixels);
  Status draw_bits(const Rect& band, std::uint8_t* pixels, std::uint8_t* levels);
  Status draw_all();
  Status draw_whole(std::uint8_t* pixels);
  Status put_whole(const Rect& part, std::int32_t operation, const std::uint8_t* pixels) const;
  Status keep_whole(const std::uint8_t*& pixels);
  Status send_rows();
  Status put(const Rect& band, const HeaderBlock& header, const void* rows, std::int32_t from_x,
             std::int32_t operation) const;

  ImageHandle handle_;
  Drawing drawing_;
  void* device_;
  std::uint64_t serial_;
  platform::Surface surface_;
  img_view view_{};
  Layout layout_{};
  Paint paint_;
  Manner manner_ = Manner::of_settings();
  Rect window_;  // on the device
  Rect clip_;    // in the window
  bool prints_;
};

Status Plot::open(const Rect& place, const img_view* view) {
  if (!platform::query_surface(device_, surface_)) return StatusCode::unsupported;
  if (view != nullptr) TQ_TRY(read_view(view, view_));
  view_.bytes = sizeof view_;
  if (view == nullptr) view_.fit = IMG_FIT_WINDOW;
  if (view_.device_dpi_x == 0) view_.device_dpi_x = surface_.dpi_x;
  if (view_.device_dpi_y == 0) view_.device_dpi_y = surface_.dpi_y;
  const bool whole_page = prints_ && (place.x | place.y | place.width | place.height) == 0;
  Box window{place.x, place.y, place.width, place.height};
  if (whole_page) {
    window = {0, 0, surface_.width, surface_.height};
    if (view == nullptr) view_.fit = IMG_FIT_SIZE;
  } else if (place.width < 1 || place.height < 1) {
    return StatusCode::empty_display_rect;
  } else if (!drawing_.to_device(window)) {
    return StatusCode::write_failed;
  }
  const auto is_far = [](std::int32_t at) { return at < -kFarthest || at > kFarthest; };
  if (is_far(window.x) || is_far(window.y) || window.width > kLongestSide ||
      window.height > kLongestSide) {
    return StatusCode::unsupported;
  }
  window_ = {window.x, window.y, window.width, window.height};
  view_.width = window.width;
  view_.height = window.height;
  TQ_TRY(lay_out(image(), view_, layout_));
  const bool larger = layout_.x.shown > window.width || layout_.y.shown > window.height;
  if (whole_page && view == nullptr && larger) {
    view_.fit = IMG_FIT_WINDOW;
    TQ_TRY(lay_out(image(), view_, layout_));
  }
  paint_ = choose_paint(image(), view_);
  if (!drawing_.begin()) return StatusCode::write_failed;
  const Box clip = drawing_.clip();
  clip_ = common({0, 0, window.width, window.height},
                 {clip.x - window.x, clip.y - window.y, clip.width, clip.height});
  Rect shown = seen();
  shown.x += window_.x;
  shown.y += window_.y;
  image().display = shown;
  return kOk;
}

bool Plot::shows_through() const {
  const bool copies = image().raster_operation == kCopy;
  return image().has_transparent && image().bits <= 8 && copies && !paint_.has_background;
}

bool Plot::is_grey() const {
  return Samples(image(), manner_.look).channels() == 1;
}

// The caller's callback may do anything to the image.
Status Plot::next_band() {
  if (!prints_) return kOk;
  const ImageRecord* const before = find_image(handle_, serial_);
  const ImageRecord was = *before;
  TQ_TRY(report_progress(layout_.window.height));
  const ImageRecord* const now = find_image(handle_, serial_);
  const bool same = now != nullptr && now->dib != nullptr && now->width == was.width &&
                    now->height == was.height && now->bits == was.bits &&
                    now->in_runs == was.in_runs;
  return same ? StatusCode::ok : StatusCode::bad_handle;
}

Status Plot::put(const Rect& band, const HeaderBlock& header, const void* rows, std::int32_t from_x,
                 std::int32_t operation) const {
  const Box to{window_.x + band.x, window_.y + band.y, band.width, band.height};
  const bool done = drawing_.put(to, &header, rows, from_x, static_cast<std::uint32_t>(operation));
  return done ? StatusCode::ok : StatusCode::write_failed;
}

// Rows from the top.
HeaderBlock band_header(std::int32_t width, std::int32_t height, int bits) {
  HeaderBlock header = dib_header(width, height, bits);
  header.header.biHeight = -height;
  header.header.biSizeImage = 0;
  header.palette = pixels::grey_ramp();
  return header;
}

Status Plot::draw_band(const Rect& band, std::int32_t operation, std::uint8_t* pixels) {
  const bool grey = is_grey() && !shows_through() && !paint_.has_background;
  const int bits = grey ? 8 : 32;
  const Canvas canvas{pixels, static_cast<std::intptr_t>(row_bytes(band.width, bits)), 0,
                      band.height, grey ? IMG_PIXELS_GREY : IMG_PIXELS_BGRX};
  if (shows_through()) {
    const Box from{window_.x + band.x, window_.y + band.y, band.width, band.height};
    if (!surface_.readable) {
      std::memset(pixels, 255, static_cast<std::size_t>(canvas.stride) * band.height);
    } else if (!drawing_.read(from, pixels)) {
      return StatusCode::write_failed;
    }
  }
  Paint paint = paint_;
  paint.raster_operation = kCopy;  // the rest is the device's
  Manner manner = manner_;
  manner.look.see_through = image().raster_operation == kCopy;
  TQ_TRY(render(image(), layout_of_part(layout_, band), paint, manner, canvas));
  return put(band, band_header(band.width, band.height, bits), pixels, 0, operation);
}

// Of 1 bit as 1 bit, so that text stays sharp.
Status Plot::draw_bits(const Rect& band, std::uint8_t* pixels, std::uint8_t* levels) {
  const Canvas canvas{levels, band.width, 0, band.height, IMG_PIXELS_GREY};
  const Manner manner{0, 1, {.see_through = false, .levels = true}};
  TQ_TRY(render(image(), layout_of_part(layout_, band), {}, manner, canvas));
  const auto stride = static_cast<std::ptrdiff_t>(row_bytes(band.width, 1));
  std::memset(pixels, 0, static_cast<std::size_t>(stride) * band.height);
  for (std::ptrdiff_t y = 0; y < band.height; ++y) {
    const std::uint8_t* const from = levels + y * band.width;
    std::uint8_t* const out = pixels + y * stride;
    for (std::ptrdiff_t x = 0; x < band.width; ++x)
      out[x / 8] |= byte((from[x] & 1) << (7 - x % 8));
  }
  HeaderBlock header = band_header(band.width, band.height, 1);
  const std::span<const Rgb> palette = palette_of(image());
  for (int i = 0; i < 2; ++i) {
    const Rgb c = palette[i];
    header.palette[i] = c;
    if (paint_.has_tone) {
      header.palette[i] = {paint_.tone[c.blue], paint_.tone[c.green], paint_.tone[c.red], 0};
    }
  }
  if (image().has_transparent && (image().transparent_colour & 255) < 2) {
    header.palette[image().transparent_colour & 1] = {255, 255, 255, 0};
  }
  return put(band, header, pixels, 0, image().raster_operation);
}

// A part of the window, in bands.
Status Plot::draw(const Rect& part, std::int32_t operation) {
  const Rect seen_part = common(part, clip_);
  if (is_empty(seen_part)) return kOk;
  const bool bits = prints_ && image().bits == 1 && !paint_.has_background;
  const std::int64_t row = row_bytes(seen_part.width, 32);
  const std::int64_t most = prints_ ? kPrintedBandBytes : kBandBytes;
  const auto rows = static_cast<std::int32_t>(
      std::clamp<std::int64_t>(most / (bits ? row / 32 + 1 : row), 1, seen_part.height));
  RowBuffer<std::uint8_t> pixels, levels;
  TQ_TRY(pixels.allocate(bits ? row_bytes(seen_part.width, 1) * rows : row * rows));
  if (bits) TQ_TRY(levels.allocate(std::int64_t{seen_part.width} * rows));
  for (std::int32_t y = 0; y < seen_part.height; y += rows) {
    TQ_TRY(next_band());
    const Rect band{seen_part.x, seen_part.y + y, seen_part.width,
                    std::min(rows, seen_part.height - y)};
    TQ_TRY(bits ? draw_bits(band, pixels.data(), levels.data())
                : draw_band(band, operation, pixels.data()));
  }
  return kOk;
}

// What is around the picture, if that is painted, and the picture.
Status Plot::draw_all() {
  const Rect inner = seen();
  if (paint_.has_background) {
    const std::int32_t bottom = inner.y + inner.height, right = inner.x + inner.width;
    const Rect around[] = {{0, 0, window_.width, inner.y},
                           {0, bottom, window_.width, window_.height - bottom},
                           {0, inner.y, inner.x, inner.height},
                           {right, inner.y, window_.width - right, inner.height}};
    for (const Rect& part : around) TQ_TRY(draw(part, kCopy));
  }
  return draw(inner, image().raster_operation);
}

// The whole window, into memory.
Status Plot::draw_whole(std::uint8_t* pixels) {
  const Canvas canvas{pixels, std::intptr_t{4} * window_.width, 0, window_.height, IMG_PIXELS_BGRX};
  Paint paint = paint_;
  paint.raster_operation = kCopy;
  Manner manner = manner_;
  manner.look.see_through = image().raster_operation == kCopy;
  return render(image(), layout_, paint, manner, canvas);
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

Status Plot::wipe(std::int32_t effect, std::int32_t steps) {
  RowBuffer<std::uint8_t> pixels;
  TQ_TRY(pixels.allocate(std::int64_t{4} * window_.width * window_.height));
  if (shows_through()) {
    const Box window{window_.x, window_.y, window_.width, window_.height};
    if (!surface_.readable) {
      std::memset(pixels.data(), 255, pixels.size());
    } else if (!drawing_.read(window, pixels.data())) {
      return StatusCode::write_failed;
    }
  }
  TQ_TRY(draw_whole(pixels.data()));
  const std::int32_t operation = image().raster_operation;
  const Rect all = paint_.has_background ? Rect{0, 0, window_.width, window_.height} : seen();
  const std::int32_t delay = std::clamp(context().settings.wipe_delay, 0, 1000);
  const Size size{window_.width, window_.height};
  RowBuffer<Rect> rects;
  for (std::int32_t step = 0; step < steps; ++step) {
    const Status count = wipe_rects(effect, step, steps, size, {});
    TQ_TRY(count);
    TQ_TRY(rects.allocate(count.raw()));
    (void)wipe_rects(effect, step, steps, size, rects.pixels());
    for (const Rect& rect : rects.pixels()) {
      TQ_TRY(put_whole(common(rect, all), operation, pixels.data()));
    }
    if (step + 1 == steps) break;
    const bool goes_on = report_progress(steps).ok();
    if (goes_on) platform::wait_milliseconds(delay);
    if (goes_on) continue;
    // At once: what the other steps would have brought.
    for (++step; step < steps; ++step) {
      const Status rest = wipe_rects(effect, step, steps, size, {});
      TQ_TRY(rest);
      TQ_TRY(rects.allocate(rest.raw()));
      (void)wipe_rects(effect, step, steps, size, rects.pixels());
      for (const Rect& rect : rects.pixels()) {
        TQ_TRY(put_whole(common(rect, all), operation, pixels.data()));
      }
    }
  }
  return kOk;
}

// The image's own rows in bands whose edges on the page meet.
Status Plot::send_rows() {
  const Rect source = layout_.source;
  const std::int64_t row = row_bytes(source.width, 32);
  const auto rows = static_cast<std::int32_t>(
      std::clamp<std::int64_t>(kPrintedBandBytes / row, 1, source.height));
  const auto edge = [&](std::int64_t y) {
    return static_cast<std::int32_t>((2 * y * layout_.y.shown + source.height) /
                                     (2 * std::int64_t{source.height}));
  };
  RowBuffer<std::uint8_t> block;
  for (std::int32_t y = 0; y < source.height; y += rows) {
    TQ_TRY(next_band());
    ImageRecord band = image();
    band.crop = {source.x, source.y + y, source.width, std::min(rows, source.height - y)};
    const std::uint64_t bytes = dib_copy_bytes(band);
    TQ_TRY(block.allocate(static_cast<std::int64_t>(bytes)));
    TQ_TRY(copy_dib(band, block.data()));
    BitmapInfoHeader header;
    std::memcpy(&header, block.data(), sizeof header);
    std::uint8_t* const colours = block.data() + sizeof header;
    std::uint8_t* const stored = colours + std::size_t{4} * header.biClrUsed;
    const std::size_t toned =
        header.biClrUsed > 0 ? stored - colours : block.data() + block.size() - stored;
    for (std::size_t i = 0; paint_.has_tone && i < toned; ++i) {
      colours[i] = paint_.tone[colours[i]];
    }
    const std::uint32_t transparent = image().transparent_colour & 255;
    if (image().has_transparent && transparent < header.biClrUsed) {
      std::memset(colours + std::size_t{4} * transparent, 255, 3);
    }
    const std::int32_t top = edge(y), bottom = edge(y + band.crop.height);
    const Box to{window_.x + layout_.x.at, window_.y + layout_.y.at + top, layout_.x.shown,
                 bottom - top};
    if (bottom == top) continue;
    if (!drawing_.stretch(to, block.data(), stored,
                          static_cast<std::uint32_t>(image().raster_operation))) {
      return StatusCode::write_failed;
    }
  }
  return kOk;
}

Status Plot::print(bool scaled_by_device) {
  const bool turned = layout_.swapped || layout_.x.from_end || layout_.y.from_end;
  const std::int64_t shown = std::int64_t{layout_.x.shown} * layout_.y.shown;
  const bool reduces = std::int64_t{layout_.source.width} * layout_.source.height > shown;
  const bool cut = layout_.x.shown > window_.width || layout_.y.shown > window_.height;
  const bool sends = scaled_by_device && !turned && !reduces && !cut && !paint_.has_background;
  return sends ? send_rows() : draw_all();
}

}  // namespace

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

Status print_bitmap(ImageHandle image, void* context, const Rect& place, const img_view* view,
                    bool scaled_by_device) {
  Plot plot(image, context, true);
  TQ_TRY(plot.open(place, view));
  return plot.print(scaled_by_device);
}

Status print_pages(const PrintOrder& order) {
  for (const std::int32_t image : order.images) {
    TQ_TRY(validate_image_handle(ImageHandle{image}));
    if (image_record(ImageHandle{image}).dib == nullptr) return StatusCode::out_of_memory;
  }
  img_view view{};
  if (order.view != nullptr) TQ_TRY(read_view(order.view, view));
  platform::PrintJob job;
  std::int32_t copies = order.copies;
  bool no_printer = false;
  if (!job.open(order.printer, copies, no_printer)) {
    return no_printer ? StatusCode::cannot_open : StatusCode::write_failed;
  }
  if (!job.begin(order.title, order.output_file)) return StatusCode::write_failed;
  std::int32_t printed = 0;
  for (std::int32_t copy = 0; copy < copies; ++copy) {
    for (const std::int32_t number : order.images) {
      const ImageHandle handle{number};
      TQ_TRY(validate_image_handle(handle));  // a callback may have deleted it
      const ImageRecord& image = image_record(handle);
      const bool sideways = (image.display_angle + std::int64_t{view.angle}) / 90 % 2 != 0;
      void* const page = job.begin_page((image.crop.width > image.crop.height) != sideways);
      if (page == nullptr) return StatusCode::write_failed;
      TQ_TRY(print_bitmap(handle, page, {}, order.view, false));
      if (!job.end_page()) return StatusCode::write_failed;
      ++printed;
    }
  }
  return job.end() ? Status::from_raw(printed) : Status(StatusCode::write_failed);
}

}  // namespace tq::show
