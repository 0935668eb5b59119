// Exports that show images: views, and their pixels in memory.
#include <cstddef>
#include <cstdlib>

#include "api/abi.h"
#include "core/run_storage.h"
#include "dispatch/animation.h"
#include "include/tarnquill.h"
#include "show/render.h"
#include "show/wipe.h"

using tq::ImageRecord;
using tq::kOk;
using tq::Status;
using tq::StatusCode;
using tq::api::store;
using tq::api::with_pixels;
using tq::show::Layout;

namespace {

// Calls `operation(record, view, layout)` for a view that can be shown.
template <class Operation>
std::int32_t with_layout(std::int32_t image, const img_view* view, Operation&& operation) {
  return with_pixels(image, [&](ImageRecord& record) -> Status {
    img_view known;
    Layout layout;
    TQ_TRY(tq::show::read_view(view, known));
    TQ_TRY(tq::show::lay_out(record, known, layout));
    return operation(record, known, layout);
  });
}

// The same for what changes a view: of the caller's struct only what scrolls is written.
template <class Change>
std::int32_t change_view(std::int32_t image, img_view* view, Change&& change) {
  return with_pixels(image, [&](ImageRecord& record) -> Status {
    constexpr std::size_t kReached = offsetof(img_view, device_dpi_x);
    img_view known;
    TQ_TRY(tq::show::read_view(view, known));
    if (view->bytes < static_cast<std::int32_t>(kReached)) return StatusCode::unsupported;
    TQ_TRY(change(record, known));
    view->fit = known.fit;
    view->zoom = known.zoom;
    view->scroll_x = known.scroll_x;
    view->scroll_y = known.scroll_y;
    return kOk;
  });
}

// Whether the rows are in the window and their bytes do not overlap.
bool is_canvas(const Layout& layout, const tq::show::Canvas& canvas) {
  const bool known = canvas.format == IMG_PIXELS_GREY || canvas.format == IMG_PIXELS_BGR ||
                     canvas.format == IMG_PIXELS_BGRX;
  const std::int64_t row = std::int64_t{layout.window.width} * canvas.pixel_bytes();
  const std::int64_t end = std::int64_t{canvas.first_row} + canvas.rows;
  return known && canvas.pixels != nullptr && canvas.first_row >= 0 && canvas.rows >= 0 &&
         end <= layout.window.height && (canvas.stride >= row || canvas.stride <= -row);
}

}  // namespace

std::int32_t IMG_CALL IMG_view_layout(std::int32_t image, const img_view* view, img_layout* out) {
  return with_layout(image, view, [=](ImageRecord&, const img_view&, const Layout& layout) {
    if (out != nullptr) tq::show::describe(layout, *out);
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_window_to_image(std::int32_t image, const img_view* view, std::int32_t x,
                                          std::int32_t y, std::int32_t* image_x,
                                          std::int32_t* image_y) {
  return with_layout(image, view, [=](ImageRecord&, const img_view&, const Layout& layout) {
    std::int32_t column = 0, row = 0;
    const bool inside = tq::show::window_to_image(layout, x, y, column, row);
    store(image_x, column);
    store(image_y, row);
    return Status::from_raw(inside ? 1 : 0);
  });
}

std::int32_t IMG_CALL IMG_image_to_window(std::int32_t image, const img_view* view,
                                          std::int32_t image_x, std::int32_t image_y,
                                          std::int32_t* x, std::int32_t* y) {
  return with_layout(image, view, [=](ImageRecord&, const img_view&, const Layout& layout) {
    std::int32_t right = 0, down = 0;
    const bool inside = tq::show::image_to_window(layout, image_x, image_y, right, down);
    store(x, right);
    store(y, down);
    return Status::from_raw(inside ? 1 : 0);
  });
}

std::int32_t IMG_CALL IMG_zoom_view(std::int32_t image, img_view* view, std::int32_t x,
                                    std::int32_t y, std::int32_t zoom) {
  return change_view(image, view, [=](const ImageRecord& record, img_view& known) {
    return tq::show::zoom_view(record, known, x, y, zoom);
  });
}

std::int32_t IMG_CALL IMG_scroll_view(std::int32_t image, img_view* view, std::int32_t dx,
                                      std::int32_t dy) {
  return change_view(image, view, [=](const ImageRecord& record, img_view& known) {
    return tq::show::scroll_view(record, known, dx, dy);
  });
}

std::int32_t IMG_CALL IMGLOW_wipe_rects(std::int32_t effect, std::int32_t step, std::int32_t steps,
                                        std::int32_t width, std::int32_t height,
                                        std::int32_t* rects, std::int32_t room) {
  const auto list = [&](std::span<tq::Rect> out) {
    return tq::show::wipe_rects(effect, step, steps, {width, height}, out);
  };
  static_assert(sizeof(tq::Rect) == 4 * sizeof *rects);
  const Status count = list({});
  if (rects == nullptr || count.failed() || count.raw() > room) return count.raw();
  const std::size_t there = count.raw();
  return list({reinterpret_cast<tq::Rect*>(rects), there}).raw();
}

std::int32_t IMG_CALL IMG_get_frame_delay(const char* name, std::int32_t frame) {
  const tq::Serialised serialised;
  const tq::StreamWork work;
  return tq::dispatch::frame_delay(name, frame).raw();
}

std::int32_t IMG_CALL IMG_open_animation(const char* name) {
  const tq::Serialised serialised;
  const tq::StreamWork work;
  return tq::api::made(tq::dispatch::open_animation(name).raw());
}

std::int32_t IMG_CALL IMG_next_frame(std::int32_t canvas, std::int32_t* delay,
                                     std::int32_t* frame) {
  const std::int32_t drawn = with_pixels(canvas, [=](ImageRecord&) {
    const tq::StreamWork work;
    tq::dispatch::FrameTime time;
    const Status next = tq::dispatch::next_frame(tq::ImageHandle{canvas}, time);
    if (next.ok()) {
      store(delay, time.delay);
      store(frame, time.frame);
    }
    return next;
  });
  if (drawn > 0) tq::report_image(canvas, tq::ImageEvent::changed);
  return drawn;
}

std::int32_t IMG_CALL IMGLOW_render_view(std::int32_t image, const img_view* view,
                                         std::int32_t pixels_format, void* pixels,
                                         std::intptr_t stride, std::int32_t first_row,
                                         std::int32_t rows) {
  return with_layout(
      image, view, [=](ImageRecord& record, const img_view& known, const Layout& layout) -> Status {
        const tq::show::Canvas canvas{static_cast<std::uint8_t*>(pixels), stride, first_row, rows,
                                      pixels_format};
        if (!is_canvas(layout, canvas)) return StatusCode::unsupported;
        const tq::show::Paint paint = tq::show::choose_paint(record, known);
        if (!tq::show::can_operate(paint.raster_operation)) return StatusCode::unsupported;
        TQ_TRY(list_waiting_rows(record));  // each time it is shown they are less work
        return tq::show::render(record, layout, paint, tq::show::Manner::of_settings(), canvas);
      });
}
