// Where an image lies on its device, and the bands that go there.
#include "show/plot.h"

#include <algorithm>

#include "core/context.h"
#include "core/run_storage.h"
#include "pixels/colours.h"

namespace tq::show {
namespace {

using platform::Box;

constexpr std::int64_t kBandBytes = 256 << 10;
constexpr std::int32_t kFarthest = 1 << 28;  // from the device's corner, pixels

}  // namespace

Rect common(const Rect& a, const Rect& b) {
  const std::int32_t x = std::max(a.x, b.x), y = std::max(a.y, b.y);
  const std::int32_t right = std::min(a.x + a.width, b.x + b.width);
  const std::int32_t bottom = std::min(a.y + a.height, b.y + b.height);
  return {x, y, std::max(right - x, 0), std::max(bottom - y, 0)};
}

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

HeaderBlock band_header(std::int32_t width, std::int32_t height, int bits) {
  HeaderBlock header = dib_header(width, height, bits);
  header.header.biHeight = -height;
  header.header.biSizeImage = 0;
  header.palette = pixels::grey_ramp();
  return header;
}

// What is there before; on paper white.
Status Plot::read_below(const Rect& part, std::uint8_t* pixels) const {
  const Box from{window_.x + part.x, window_.y + part.y, part.width, part.height};
  if (!surface_.readable) {
    std::memset(pixels, 255, std::size_t{4} * part.width * part.height);
    return kOk;
  }
  return drawing_.read(from, pixels) ? StatusCode::ok : StatusCode::write_failed;
}

// The same picture in a part of its window.
Layout Plot::layout_of(const Rect& part) const {
  Layout layout = layout_;
  layout.x.at -= part.x;
  layout.y.at -= part.y;
  layout.window = {part.width, part.height};
  return layout;
}

// The raster operation is the device's.
Status Plot::render_part(const Rect& part, const Canvas& canvas) const {
  Paint paint = paint_;
  paint.raster_operation = kCopy;
  Manner manner = manner_;
  manner.look.see_through = image().raster_operation == kCopy;
  TQ_TRY(list_waiting_rows(image()));  // each time it is shown they are less work
  return render(image(), layout_of(part), paint, manner, canvas);
}

Status Plot::draw_band(const Rect& band, std::int32_t operation, std::uint8_t* pixels) {
  const bool grey = is_grey() && !shows_through() && !paint_.has_background;
  const int bits = grey ? 8 : 32;
  const Canvas canvas{pixels, static_cast<std::intptr_t>(row_bytes(band.width, bits)), 0,
                      band.height, grey ? IMG_PIXELS_GREY : IMG_PIXELS_BGRX};
  if (shows_through()) TQ_TRY(read_below(band, pixels));
  TQ_TRY(render_part(band, canvas));
  return put(band, band_header(band.width, band.height, bits), pixels, 0, operation);
}

// A part of the window, in bands.
Status Plot::draw(const Rect& part, std::int32_t operation) {
  const Rect seen_part = common(part, clip_);
  if (is_empty(seen_part)) return kOk;
  const bool bits = prints_ && image().bits == 1 && !paint_.has_background;
  if (prints_ && !bits && surface_.bits == 1) return draw_diffused(seen_part, operation);
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

}  // namespace tq::show
