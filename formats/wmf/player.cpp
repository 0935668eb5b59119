// What the records do to the state, and which of them draw.
#include "formats/wmf/player.h"

#include <cmath>

namespace tq::wmf {
namespace {

enum MapMode : int {
  kText = 1,  // a unit is a dot
  kTwips = 6,
  kIsotropic = 7,
  kAnisotropic = 8,
};

// Units of the modes behind kText in an inch.
constexpr double kUnitsPerInch[] = {254, 2540, 100, 1000, 1440};
constexpr double kDotsPerInch = 96;

bool draws(int function) {
  constexpr int kDrawing[] = {
      kLineTo,     kPolygon,    kPolyline,      kEllipse,        kRectangle,
      kSetPixel,   kTextOut,    kPolyPolygon,   kRoundRectangle, kPatternBlt,
      kArc,        kPie,        kChord,         kBitBlt,         kDibBitBlt,
      kExtTextOut, kStretchBlt, kDibStretchBlt, kSetDibToDevice, kStretchDib};
  return std::ranges::find(kDrawing, function) != std::end(kDrawing);
}

double bounded(double value) {
  constexpr double kMost = 1e9;
  return std::clamp(value, -kMost, kMost);
}

}  // namespace

Status Player::open(const formats::DecodeRequest& request, Records& records, const Frame& frame,
                    Canvas* canvas) {
  request_ = &request;
  records_ = &records;
  canvas_ = canvas;
  frame_ = frame;
  state_.clip.area = {0, 0, frame.width, frame.height};
  state_.limits = state_.clip.area;
  state_.x = {double(frame.left), double(frame.right) - frame.left, 0, double(frame.width)};
  state_.y = {double(frame.top), double(frame.bottom) - frame.top, 0, double(frame.height)};
  TQ_TRY(objects_.allocate(kMostObjects));
  if (canvas != nullptr) TQ_TRY(painting_.open(*canvas));
  return saved_.allocate(kMostLevels);
}

Status Player::play(std::int64_t at, std::int64_t end) {
  records_->begin(at, end);
  Record record;
  while (records_->next(record)) {
    if (canvas_ != nullptr && !canvas_->spend(16)) break;
    if (draws(record.function)) {
      TQ_TRY(play_drawing(record));
    } else if (!play_object(record) && !play_mode(record) && !play_clip(record)) {
      play_state(record);
    }
  }
  return kOk;
}

// What is drawn in units of a mode is as large as it is beside the picture; upwards where the mode is no
// matter of dots.
void Player::set_map_mode(int mode) {
  if (mode < kText || mode > kAnisotropic) return;
  state_.has_units = mode < kIsotropic;
  if (!state_.has_units) return;
  const double per_inch = mode == kText ? kDotsPerInch : kUnitsPerInch[mode - 2];
  state_.x.extent = frame_.units_wide() * per_inch;
  state_.x.viewport_extent = double(frame_.width) * frame_.inch;
  state_.y.extent = frame_.units_high() * per_inch * (mode == kText ? 1 : -1);
  state_.y.viewport_extent = double(frame_.height) * frame_.inch;
}

// Of the window in units, of the viewport in dots of the usual resolution. What would be 0 is left out.
void Player::set_extent(const Record& record) {
  const auto parameter = [&](int index) { return records_->i16(record, index); };
  const auto set = [](double& extent, double value) {
    if (value != 0) extent = bounded(value);
  };
  const auto scale = [](double& extent, int factor, int divisor) {
    constexpr double kLeast = 1e-3;
    if (divisor == 0 || std::abs(extent * factor / divisor) < kLeast) return;
    extent = bounded(extent * factor / divisor);
  };
  switch (record.function) {
    case kSetWindowExtent:
      set(state_.y.extent, parameter(0));
      set(state_.x.extent, parameter(1));
      break;
    case kScaleWindow:
      scale(state_.y.extent, parameter(1), parameter(0));
      scale(state_.x.extent, parameter(3), parameter(2));
      break;
    case kSetViewportExtent:
      set(state_.y.viewport_extent, parameter(0) * frame_.dot_height());
      set(state_.x.viewport_extent, parameter(1) * frame_.dot_width());
      break;
    case kScaleViewport:
      scale(state_.y.viewport_extent, parameter(1), parameter(0));
      scale(state_.x.viewport_extent, parameter(3), parameter(2));
      break;
    default:
      break;
  }
}

void Player::restore(int level) {
  // Those above the deepest that is kept are only counted.
  const std::int64_t to = level > 0 ? level - 1 : levels_ + level;
  if (level == 0 || to < 0 || to >= levels_) return;
  levels_ = to;
  if (to < kMostLevels) state_ = saved_[static_cast<std::ptrdiff_t>(to)];
}

Status Player::play_drawing(const Record& record) {
  Blit blit;
  const bool has_bitmap = find_blit(record, blit);
  if (drawn_++ == 0 && has_bitmap) blit_ = blit;
  if (canvas_ == nullptr) return kOk;
  return has_bitmap ? draw_blit(blit) : draw_shape(record);
}

void Player::play_state(const Record& record) {
  const auto parameter = [&](int index) { return records_->i16(record, index); };
  switch (record.function) {
    case kSave:
      if (levels_ < kMostLevels) saved_[static_cast<std::ptrdiff_t>(levels_)] = state_;
      ++levels_;
      break;
    case kRestore:
      restore(parameter(0));
      break;
    case kSetMapMode:
      set_map_mode(parameter(0));
      break;
    case kSetWindowOrigin:
      state_.y.window = parameter(0);
      state_.x.window = parameter(1);
      break;
    case kOffsetWindow:
      state_.y.window = bounded(state_.y.window + parameter(0));
      state_.x.window = bounded(state_.x.window + parameter(1));
      break;
    case kSetViewportOrigin:
      state_.y.viewport = parameter(0) * frame_.dot_height();
      state_.x.viewport = parameter(1) * frame_.dot_width();
      break;
    case kOffsetViewport:
      state_.y.viewport = bounded(state_.y.viewport + parameter(0) * frame_.dot_height());
      state_.x.viewport = bounded(state_.x.viewport + parameter(1) * frame_.dot_width());
      break;
    default:
      if (!state_.has_units) set_extent(record);
      break;
  }
}

}  // namespace tq::wmf
