// Records that draw lines and shapes, and the objects that they draw with.
#include "formats/wmf/player.h"

namespace tq::wmf {
namespace {

Rgb colour_of(std::uint32_t stored) {
  return {byte(stored >> 16), byte(stored >> 8), byte(stored), 0};
}

constexpr int kCorners = 256;  // of an ellipse

}  // namespace

void Player::add_object(const Object& object) {
  while (first_free_ < kMostObjects && objects_[first_free_].kind != Object::Kind::none)
    ++first_free_;
  if (first_free_ < kMostObjects) objects_[first_free_] = object;
}

bool Player::play_object(const Record& record) {
  const auto word = [&](int index) { return records_->i16(record, index); };
  switch (record.function) {
    case kCreatePen: {
      constexpr int kNoPen = 5;
      Object object{.kind = Object::Kind::pen};
      object.pen.style = word(0);
      object.pen.is_drawn = object.pen.style != kNoPen;
      object.pen.width = std::abs(word(1));
      object.pen.colour = colour_of(records_->u32(record, 3));
      add_object(object);
      return true;
    }
    case kCreateBrush: {
      constexpr int kHollow = 1, kHatched = 2;
      Object object{.kind = Object::Kind::brush};
      const int style = word(0);
      object.brush.kind = style == kHollow    ? Brush::Kind::none
                          : style == kHatched ? Brush::Kind::hatched
                                              : Brush::Kind::solid;
      object.brush.colour = colour_of(records_->u32(record, 1));
      object.brush.hatch = word(3);
      add_object(object);
      return true;
    }
    case kCreateDibPattern:
    case kCreatePattern: {
      // Its pattern is not drawn: the grey that many of them stand for.
      Object object{.kind = Object::Kind::brush};
      object.brush.colour = {128, 128, 128, 0};
      add_object(object);
      return true;
    }
    case kCreateFont:
    case kCreatePalette:
    case kCreateRegion:
      add_object({.kind = Object::Kind::other});
      return true;
    case kSelectObject:
    case kDeleteObject: {
      const int index = records_->u16(record, 0);
      if (index >= kMostObjects) return true;
      Object& object = objects_[index];
      if (record.function == kDeleteObject) {
        object = {};
        first_free_ = std::min(first_free_, index);
      } else if (object.kind == Object::Kind::pen) {
        state_.ink.pen = object.pen;
        const Axis& axis = state_.x;
        const std::int64_t width = to_dots(axis.length(object.pen.width));
        state_.ink.pen.width = static_cast<std::int32_t>(std::clamp<std::int64_t>(width, 1, 4096));
      } else if (object.kind == Object::Kind::brush) {
        state_.ink.brush = object.brush;
      }
      return true;
    }
    default:
      return false;
  }
}

bool Player::play_mode(const Record& record) {
  const int value = records_->i16(record, 0);
  switch (record.function) {
    case kSetBackgroundColour:
      state_.ink.background = colour_of(records_->u32(record, 0));
      return true;
    case kSetBackgroundMode:
      state_.ink.is_opaque = value != 1;
      return true;
    case kSetFillMode:
      state_.ink.is_winding = value == 2;
      return true;
    case kSetOperation:
      state_.ink.mix = value == 1    ? Mix::black
                       : value == 6  ? Mix::inverse
                       : value == 7  ? Mix::differing
                       : value == 9  ? Mix::both
                       : value == 11 ? Mix::nothing
                       : value == 15 ? Mix::either
                       : value == 16 ? Mix::white
                                     : Mix::copy;
      return true;
    case kMoveTo:
      state_.y_place = value;
      state_.x_place = records_->i16(record, 1);
      return true;
    default:
      return false;
  }
}

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
  const Point from = map(word(3), word(2)), to = map(word(1), word(0));
  return {to_dots(std::min(from.x, to.x)), to_dots(std::min(from.y, to.y)),
          to_dots(std::max(from.x, to.x)), to_dots(std::max(from.y, to.y))};
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

// A rectangle with quarters of an ellipse as corners; those of an ellipse are all of it.
Status Player::draw_rounded(const Area& area, double corner_width, double corner_height) {
  constexpr double kCosine = 0.99969881869620425, kSine = 0.024541228522912288;
  if (area.is_empty()) return kOk;
  const auto for_each_edge = [&](double inset, auto&& edge) {
    const double left = area.left + inset, right = area.right - inset;
    const double top = area.top + inset, bottom = area.bottom - inset;
    const double wide = std::min(corner_width, right - left) / 2;
    const double high = std::min(corner_height, bottom - top) / 2;
    double x = 1, y = 0;
    const auto corner = [&] {
      return Spot{x >= 0 ? right - wide + wide * x : left + wide + wide * x,
                  y >= 0 ? bottom - high + high * y : top + high + high * y};
    };
    const Spot first = corner();
    Spot last = first;
    for (int i = 1; i < kCorners; ++i) {
      const double turned = x * kCosine - y * kSine;
      y = x * kSine + y * kCosine;
      x = turned;
      const Spot next = corner();
      edge(last, next);
      last = next;
    }
    edge(last, first);
  };
  TQ_TRY(painting_.begin(kCorners));
  for_each_edge(0, [&](Spot from, Spot to) { painting_.add_edge(from, to); });
  fill_shape();
  for_each_edge(0.5,
                [&](Spot from, Spot to) { painting_.line(state_.clip, state_.ink, from, to); });
  return kOk;
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
