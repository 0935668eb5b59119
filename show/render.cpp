// Picks the part of the picture that is seen and lays its rows into the window, as they are or, of a
// sheet that lies on its side, as columns.
#include "show/render.h"

#include <algorithm>

#include "core/context.h"
#include "pixels/tone_table.h"

namespace tq::show {
namespace {

// The shown pixels of an axis that are in first .. end - 1 of the window.
Part part_of(const Axis& axis, std::int64_t first, std::int64_t end, const Manner& manner,
             int bits) {
  const Sampling sampling = choose_sampling(axis, manner.alias, manner.quality, bits);
  const auto cut = [&](std::int64_t at) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(at - axis.at, 0, axis.shown));
  };
  return {.axis = axis, .spans = Spans(axis, sampling), .first = cut(first), .end = cut(end)};
}

}  // namespace

Manner Manner::of_settings() {
  const Settings& settings = context().settings;
  return {settings.alias, settings.alias_quality, {.colour = settings.auto_color != 0}};
}

Paint choose_paint(const ImageRecord& image, const img_view& view) {
  Paint paint;
  paint.raster_operation = image.raster_operation;
  paint.has_background = (view.flags & IMG_VIEW_BACKGROUND) != 0;
  paint.background = view.background;
  if ((view.flags & IMG_VIEW_NO_TONE) != 0) return paint;
  const bool has_gamma = image.gamma_is_set && image.gamma > 0;
  const int gamma = has_gamma ? std::clamp(image.gamma, 10, 1000) : 100;
  paint.has_tone = image.brightness != 0 || image.contrast != 0 || gamma != 100;
  if (paint.has_tone) paint.tone = pixels::tone_table(image.brightness, image.contrast, gamma);
  return paint;
}

Status render(const ImageRecord& image, const Layout& layout, const Paint& paint,
              const Manner& manner, const Canvas& canvas) {
  const std::int64_t end_row = std::int64_t{canvas.first_row} + canvas.rows;
  const Part right = part_of(layout.x, 0, layout.window.width, manner, image.bits);
  const Part down = part_of(layout.y, canvas.first_row, end_row, manner, image.bits);
  const bool empty = right.first == right.end || down.first == down.end;
  Painter painter(canvas, paint);
  if (paint.has_background) {
    painter.surround(layout.window.width,
                     empty ? Rect{}
                           : Rect{layout.x.at + right.first, layout.y.at + down.first,
                                  right.end - right.first, down.end - down.first});
  }
  if (empty) return kOk;
  const Part& columns = layout.swapped ? down : right;
  const Part& rows = layout.swapped ? right : down;
  const std::int32_t count = columns.end - columns.first;
  Look look = manner.look;
  look.see_through = look.see_through && paint.raster_operation == kCopy;
  ShownRows shown(image, look);
  TQ_TRY(shown.open(columns, rows));
  TQ_TRY(painter.open(count));
  // From one pixel of a row that is made to the next, and from one such row to the next.
  const std::ptrdiff_t pixel = canvas.pixel_bytes(), line = canvas.stride;
  const std::ptrdiff_t along = layout.swapped ? line : pixel,
                       across = layout.swapped ? pixel : line;
  std::uint8_t* at = canvas.pixels + pixel * (layout.x.at + right.first) +
                     line * (layout.y.at + down.first - canvas.first_row);
  const bool from_end = columns.axis.from_end;
  if (from_end) at += along * (count - 1);
  for (std::int32_t row = rows.first; row < rows.end; ++row, at += across) {
    painter.put(shown.read(row), count, at, from_end ? -along : along);
  }
  return kOk;
}

}  // namespace tq::show
