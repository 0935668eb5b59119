// Records that draw lines and shapes.
#include "formats/wmf/player.h"

namespace tq::wmf {

// The centre of the dot that a point falls on.
Spot Player::spot_of(const Record& record, std::int64_t index) const {
  const Point point = map(records_->i16(record, index), records_->i16(record, index + 1));
  return {to_dots(point.x) + 0.5, to_dots(point.y) + 0.5};
}

Status Player::draw_polygons(const Record& record, std::int64_t counts_at, std::int64_t polygons,
                             std::int64_t points_at) {
  // No more than the record, and the file, have.
  const std::int64_t there = std::min(record.end(), records_->end()) - record.at;
  const std::int64_t points = std::max<std::int64_t>((there / 2 - points_at) / 2, 0);
  const auto for_each_edge = [&](auto&& edge) {
    std::int64_t first = 0;
    for (std::int64_t i = 0; i < polygons && first < points && !canvas_->is_spent(); ++i) {
      const std::int64_t count =
          std::min<std::int64_t>(records_->u16(record, counts_at + i), points - first);
      Spot last = spot_of(record, points_at + 2 * (first + std::max<std::int64_t>(count, 1) - 1));
      for (std::int64_t k = 0; k < count; ++k) {
        const Spot next = spot_of(record, points_at + 2 * (first + k));
        edge(last, next);
        last = next;
      }
      first += count;
    }
  };
  TQ_TRY(painting_.begin(points));
  for_each_edge([&](Spot from, Spot to) { painting_.add_edge(from, to); });
  fill_shape();
  for_each_edge([&](Spot from, Spot to) { painting_.line(state_.clip, state_.ink, from, to); });
  return kOk;
}

void Player::fill_shape() {
  painting_.fill(state_.clip, state_.ink.is_winding,
                 [&](std::int32_t y, std::int32_t left, std::int32_t right) {
                   painting_.brush_row(state_.clip, state_.ink, y, left, right);
                 });
}

void Player::draw_polyline(const Record& record) {
  const std::int64_t there = std::min(record.end(), records_->end()) - record.at;
  const std::int64_t count = std::min<std::int64_t>(records_->u16(record, 0), (there / 2 - 1) / 2);
  for (std::int64_t i = 1; i < count && !canvas_->is_spent(); ++i) {
    painting_.line(state_.clip, state_.ink, spot_of(record, 2 * i - 1), spot_of(record, 2 * i + 1));
  }
}

// The sides of a record, bottom first, without the right and the bottom row of dots.
Area Player::area_of(const Record& record, int index) const {
  const auto word = [&](int i) { return records_->i16(record, index + i); };
  return rectangle_of({word(3), word(2), word(1), word(0)});
}

void Player::draw_rectangle(const Area& area) {
  if (area.is_empty()) return;
  const Clip& clip = state_.clip;
  const std::int32_t behind = std::min(area.bottom, clip.area.bottom);
  for (std::int32_t y = std::max(area.top, clip.area.top); y < behind && !canvas_->is_spent();
       ++y) {
    painting_.brush_row(clip, state_.ink, y, area.left, area.right);
  }
  const double left = area.left + 0.5, top = area.top + 0.5;
  const double right = area.right - 0.5, bottom = area.bottom - 0.5;
  const Spot corners[] = {{left, top}, {right, top}, {right, bottom}, {left, bottom}, {left, top}};
  for (int i = 0; i < 4; ++i) painting_.line(clip, state_.ink, corners[i], corners[i + 1]);
}

void Player::draw_pattern(const Record& record, int size, int place) {
  constexpr std::uint32_t kPatternCopy = 0x00F00021;
  const auto word = [&](int index) { return records_->i16(record, index); };
  const std::uint32_t operation = records_->u32(record, 0);
  const Point from = map(word(place + 1), word(place));
  const Point to = map(word(place + 1) + word(size + 1), word(place) + word(size));
  Ink ink = state_.ink;
  ink.mix = operation == kPatternInvert       ? Mix::differing
            : operation == kDestinationInvert ? Mix::inverse
            : operation == kBlackness         ? Mix::black
            : operation == kWhiteness         ? Mix::white
                                              : Mix::copy;
  const bool needs_brush =
      operation == kPatternCopy || ink.mix == Mix::copy || ink.mix == Mix::differing;
  if (!needs_brush) ink.brush = {};
  const std::int32_t left = to_dots(std::min(from.x, to.x)),
                     right = to_dots(std::max(from.x, to.x));
  const std::int32_t top = std::max(to_dots(std::min(from.y, to.y)), state_.clip.area.top);
  const std::int32_t bottom = std::min(to_dots(std::max(from.y, to.y)), state_.clip.area.bottom);
  for (std::int32_t y = top; y < bottom && !canvas_->is_spent(); ++y) {
    painting_.brush_row(state_.clip, ink, y, left, right);
  }
}

Status Player::draw_shape(const Record& record) {
  const auto word = [&](int index) { return records_->i16(record, index); };
  TQ_TRY(load_pattern());
  switch (record.function) {
    case kLineTo: {
      const Point from = map(state_.x_place, state_.y_place), to = map(word(1), word(0));
      painting_.line(state_.clip, state_.ink, {to_dots(from.x) + 0.5, to_dots(from.y) + 0.5},
                     {to_dots(to.x) + 0.5, to_dots(to.y) + 0.5});
      state_.y_place = word(0);
      state_.x_place = word(1);
      return kOk;
    }
    case kPolyline:
      draw_polyline(record);
      return kOk;
    case kPolygon:
      return draw_polygons(record, 0, 1, 1);
    case kPolyPolygon: {
      const std::int64_t polygons = records_->u16(record, 0);
      return draw_polygons(record, 1, polygons, 1 + polygons);
    }
    case kRectangle:
      draw_rectangle(area_of(record, 0));
      return kOk;
    case kEllipse: {
      const Area area = area_of(record, 0);
      return draw_rounded(area, double(area.right) - area.left, double(area.bottom) - area.top);
    }
    case kArc:
    case kPie:
    case kChord:
      return draw_arc(record);
    case kTextOut:
    case kExtTextOut:
      return draw_text(record);
    case kRoundRectangle:
      return draw_rounded(area_of(record, 2), double(state_.x.length(std::abs(word(1)))) / kDot,
                          double(state_.y.length(std::abs(word(0)))) / kDot);
    case kSetPixel: {
      const Point at = map(word(3), word(2));
      painting_.dot(state_.clip, Mix::copy, to_dots(at.x), to_dots(at.y),
                    colour_of(records_->u32(record, 0)));
      return kOk;
    }
    case kPatternBlt:
      draw_pattern(record, 2, 4);
      return kOk;
    case kDibBitBlt:
      draw_pattern(record, 5, 7);
      return kOk;
    default:
      return kOk;
  }
}

}  // namespace tq::wmf
