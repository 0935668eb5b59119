// What is drawn with: pens, brushes, fonts, modes; and what is left out.
#include "formats/wmf/player.h"

namespace tq::wmf {

void Player::add_object(const Object& object) {
  while (first_free_ < kMostObjects && objects_[first_free_].kind != Object::Kind::none)
    ++first_free_;
  if (first_free_ < kMostObjects) objects_[first_free_] = object;
}

void Player::add_brush(const Record& record) {
  constexpr int kHollow = 1, kHatched = 2;
  Object object{.kind = Object::Kind::brush};
  const int style = records_->i16(record, 0);
  object.brush.kind = style == kHollow    ? Brush::Kind::none
                      : style == kHatched ? Brush::Kind::hatched
                                          : Brush::Kind::solid;
  object.brush.colour = colour_of(records_->u32(record, 1));
  object.brush.hatch = records_->i16(record, 3);
  add_object(object);
}

void Player::add_pattern(const Record& record) {
  constexpr int kHeadBytes = 4;
  Object object{.kind = Object::Kind::brush};
  object.brush = {.kind = Brush::Kind::pattern,
                  .is_old = record.function == kCreatePattern,
                  .end = std::min(record.end(), records_->end())};
  object.brush.at = record.at + (object.brush.is_old ? 0 : kHeadBytes);
  add_object(object);
}

void Player::add_font(const Record& record) {
  constexpr int kBoldFrom = 600;  // as heavy as semibold
  const auto flag = [&](int offset) { return records_->u8(record, offset) != 0; };
  Object object{.kind = Object::Kind::font};
  object.font = {.height = records_->i16(record, 0),
                 .width = std::abs(records_->i16(record, 1)),
                 .angle = records_->i16(record, 2),
                 .is_bold = records_->i16(record, 4) >= kBoldFrom,
                 .is_italic = flag(10),
                 .is_underlined = flag(11),
                 .is_struck = flag(12)};
  add_object(object);
}

void Player::select(const Object& object) {
  switch (object.kind) {
    case Object::Kind::pen: {
      state_.ink.pen = object.pen;
      const std::int64_t width = to_dots(state_.x.length(object.pen.width));
      state_.ink.pen.width = static_cast<std::int32_t>(std::clamp<std::int64_t>(width, 1, 4096));
      break;
    }
    case Object::Kind::brush:
      state_.ink.brush = object.brush;
      break;
    case Object::Kind::font:
      state_.font = object.font;
      break;
    case Object::Kind::region:
      set_limits(rectangle_of(object.region));
      break;
    default:
      break;
  }
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
    case kCreateBrush:
      add_brush(record);
      return true;
    case kCreateDibPattern:
    case kCreatePattern:
      add_pattern(record);
      return true;
    case kCreateFont:
      add_font(record);
      return true;
    case kCreateRegion: {
      constexpr int kBox = 7;  // behind counts of what it consists of
      const Area box{word(kBox), word(kBox + 1), word(kBox + 2), word(kBox + 3)};
      Object object{.kind = Object::Kind::region};
      object.region = box;
      add_object(object);
      return true;
    }
    case kCreatePalette:
      add_object({.kind = Object::Kind::other});
      return true;
    case kSelectObject:
    case kDeleteObject: {
      const int index = records_->u16(record, 0);
      if (index >= kMostObjects) return true;
      if (record.function == kSelectObject) {
        select(objects_[index]);
      } else {
        objects_[index] = {};
        first_free_ = std::min(first_free_, index);
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
    case kSetTextColour:
      state_.text_colour = colour_of(records_->u32(record, 0));
      return true;
    case kSetTextAlignment:
      state_.alignment = value;
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

// In dots, whichever way the units run.
Area Player::rectangle_of(const Area& units) const {
  const Point from = map(units.left, units.top), to = map(units.right, units.bottom);
  return {to_dots(std::min(from.x, to.x)), to_dots(std::min(from.y, to.y)),
          to_dots(std::max(from.x, to.x)), to_dots(std::max(from.y, to.y))};
}

// Without any of what was left out before.
void Player::set_limits(const Area& limits) {
  state_.limits = limits;
  state_.has_limits = true;
  state_.clip = {.area = limits.cut_to({0, 0, frame_.width, frame_.height})};
}

bool Player::play_clip(const Record& record) {
  const auto word = [&](int index) { return records_->i16(record, index); };
  const Area canvas{0, 0, frame_.width, frame_.height};
  Clip& clip = state_.clip;
  switch (record.function) {
    case kIntersectClip:
      state_.limits =
          state_.has_limits ? state_.limits.cut_to(area_of(record, 0)) : area_of(record, 0);
      state_.has_limits = true;
      clip.area = state_.limits.cut_to(canvas);
      return true;
    case kExcludeClip:
      clip.add_hole(area_of(record, 0));
      return true;
    case kOffsetClip: {
      const auto moved = [](std::int32_t position, std::int64_t by) {
        constexpr std::int64_t kFarthest = 1 << 24;
        return static_cast<std::int32_t>(std::clamp(position + by, -kFarthest, kFarthest));
      };
      const std::int64_t x = to_dots(state_.x.offset(word(1)));
      const std::int64_t y = to_dots(state_.y.offset(word(0)));
      const auto move = [&](Area& area) {
        area = {moved(area.left, x), moved(area.top, y), moved(area.right, x),
                moved(area.bottom, y)};
      };
      if (state_.has_limits) move(state_.limits);
      if (state_.has_limits) clip.area = state_.limits.cut_to(canvas);
      for (int i = 0; i < clip.hole_count; ++i) move(clip.holes[i]);
      return true;
    }
    case kSelectClipRegion: {
      const int index = records_->u16(record, 0);
      if (index < kMostObjects && objects_[index].kind == Object::Kind::region) {
        select(objects_[index]);
      } else {
        // Nothing is left out.
        state_.has_limits = false;
        state_.limits = canvas;
        clip = {.area = canvas};
      }
      return true;
    }
    default:
      return false;
  }
}

}  // namespace tq::wmf
