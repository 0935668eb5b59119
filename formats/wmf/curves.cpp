// Ellipses, their parts, and rectangles whose corners are.
#include "formats/wmf/player.h"

namespace tq::wmf {
namespace {

// Of an ellipse, and how far it is from one to the next.
constexpr int kCorners = 256;
constexpr double kCosine = 0.99969881869620425, kSine = 0.024541228522912288;

// Those of an ellipse, of its centre, and the first again.
struct Path {
  std::array<Spot, kCorners + 4> spots{};
  std::size_t count = 0;

  void add(Spot spot) {
    if (count < spots.size()) spots[count++] = spot;
  }
  std::span<const Spot> all() const { return std::span(spots).first(count); }
};

// Where a point is seen from the centre of an area, were it a circle of radius 1.
Spot direction_of(const Area& area, Point point) {
  const double wide = (double(area.right) - area.left) / 2;
  const double high = (double(area.bottom) - area.top) / 2;
  const double x = (double(point.x) / kDot - area.left - wide) / wide;
  const double y = (double(point.y) / kDot - area.top - high) / high;
  const double length = std::sqrt(x * x + y * y);
  return length > 0 ? Spot{x / length, y / length} : Spot{1, 0};
}

// Counter-clockwise from one to the other; all around when they are the same.
Path arc_path(const Area& area, double inset, Spot first, Spot last) {
  const double wide = (double(area.right) - area.left) / 2;
  const double high = (double(area.bottom) - area.top) / 2;
  const auto place = [&](Spot at) {
    return Spot{area.left + wide + at.x * std::max(wide - inset, 0.0),
                area.top + high + at.y * std::max(high - inset, 0.0)};
  };
  Path path;
  Spot at = first;
  for (int i = 0; i < kCorners; ++i) {
    constexpr double kSame = 1e-9;
    path.add(place(at));
    const double ahead = at.y * last.x - at.x * last.y, along = at.x * last.x + at.y * last.y;
    const bool is_near = along >= kCosine && ahead >= 0;
    if (is_near && (i > 0 || ahead > kSame)) break;
    at = {at.x * kCosine + at.y * kSine, at.y * kCosine - at.x * kSine};
  }
  path.add(place(last));
  return path;
}

}  // namespace

Status Player::draw_path(std::span<const Spot> shape, std::span<const Spot> outline) {
  TQ_TRY(painting_.begin(std::ssize(shape)));
  for (std::size_t i = 0; i < shape.size(); ++i)
    painting_.add_edge(shape[i], shape[(i + 1) % shape.size()]);
  fill_shape();
  return painting_.path(state_.clip, state_.ink, outline);
}

// A rectangle with quarters of an ellipse as corners; those of an ellipse are all of it.
Status Player::draw_rounded(const Area& area, double corner_width, double corner_height) {
  if (area.is_empty()) return kOk;
  const auto path_of = [&](double inset) {
    const double left = area.left + inset, right = area.right - inset;
    const double top = area.top + inset, bottom = area.bottom - inset;
    const double wide = std::min(corner_width, right - left) / 2;
    const double high = std::min(corner_height, bottom - top) / 2;
    Path path;
    double x = 1, y = 0;
    for (int i = 0; i < kCorners; ++i) {
      path.add({x >= 0 ? right - wide + wide * x : left + wide + wide * x,
                y >= 0 ? bottom - high + high * y : top + high + high * y});
      const double turned = x * kCosine - y * kSine;
      y = x * kSine + y * kCosine;
      x = turned;
    }
    path.add(path.spots[0]);
    return path;
  };
  return draw_path(path_of(0).all().first(kCorners), path_of(0.5).all());
}

// Arcs are a line only, pies go to the centre, chords straight from end to end.
Status Player::draw_arc(const Record& record) {
  const auto word = [&](int index) { return records_->i16(record, index); };
  const Area area = area_of(record, 4);
  if (area.is_empty()) return kOk;
  const Spot first = direction_of(area, map(word(3), word(2)));
  const Spot last = direction_of(area, map(word(1), word(0)));
  const Spot centre{(double(area.left) + area.right) / 2, (double(area.top) + area.bottom) / 2};
  Path shape = arc_path(area, 0, first, last), outline = arc_path(area, 0.5, first, last);
  if (record.function == kArc) return painting_.path(state_.clip, state_.ink, outline.all());
  if (record.function == kPie) {
    shape.add(centre);
    outline.add(centre);
  }
  outline.add(outline.spots[0]);
  return draw_path(shape.all(), outline.all());
}

}  // namespace tq::wmf
