// Edges become rows, lines become dots.
#include "formats/wmf/shapes.h"

namespace tq::wmf {
namespace {

// Dots that are drawn and left out in turn, by the style of a pen.
struct Dashes {
  int count;
  int lengths[6];
};
constexpr Dashes kDashes[] = {
    {0, {}}, {2, {18, 6}}, {2, {3, 3}}, {4, {9, 6, 3, 6}}, {6, {9, 3, 3, 3, 3, 3}}};

bool is_gap(int style, std::int64_t dots) {
  if (style < 0 || style >= static_cast<int>(std::size(kDashes)) || kDashes[style].count == 0)
    return false;
  const Dashes& dashes = kDashes[style];
  std::int64_t all = 0;
  for (int i = 0; i < dashes.count; ++i) all += dashes.lengths[i];
  dots %= all;
  int i = 0;
  while (dots >= dashes.lengths[i]) dots -= dashes.lengths[i++];
  return i % 2 != 0;
}

// Corners of a circle, and how far it is from one to the next.
constexpr int kCircle = 32;
constexpr double kCircleCosine = 0.98078528040323043, kCircleSine = 0.19509032201612825;

// Whether a dot is on a line of a hatch, every eight dots: across, down, both diagonals, crosses.
bool is_hatched(int hatch, std::int32_t x, std::int32_t y) {
  constexpr int kEvery = 8;
  const bool across = y % kEvery == 0, down = x % kEvery == 0;
  const bool falling = (x - y) % kEvery == 0, rising = (x + y) % kEvery == 0;
  switch (hatch) {
    case 0:
      return across;
    case 1:
      return down;
    case 2:
      return falling;
    case 3:
      return rising;
    case 4:
      return across || down;
    default:
      return falling || rising;
  }
}

}  // namespace

Status Painting::open(Canvas& canvas) {
  canvas_ = &canvas;
  TQ_TRY(first_edges_.allocate(canvas.height()));
  std::ranges::fill(first_edges_.pixels(), -1);
  return changes_.allocate(canvas.width() + std::int64_t{1});
}

void Painting::dot(const Clip& clip, Mix mix, std::int32_t x, std::int32_t y, Rgb colour) {
  canvas_->fill(clip, mix, y, x, x + std::int64_t{1}, colour);
}

void Painting::brush_row(const Clip& clip, const Ink& ink, std::int32_t y, std::int64_t left,
                         std::int64_t right) {
  const Brush& brush = ink.brush;
  if (brush.kind == Brush::Kind::none) return;
  if (brush.kind == Brush::Kind::solid) {
    canvas_->fill(clip, ink.mix, y, left, right, brush.colour);
    return;
  }
  if (brush.kind == Brush::Kind::pattern) {
    constexpr int kWork = 4;  // a dot of it takes as long as so many others
    const std::int64_t seen = std::min<std::int64_t>(right, clip.area.right) -
                              std::max<std::int64_t>(left, clip.area.left);
    canvas_->spend((kWork - 1) * std::max<std::int64_t>(seen, 0));
    canvas_->paint(clip, ink.mix, y, left, right, [&](std::int32_t x) {
      return tile_.dot(x % tile_.width(), y % tile_.height());
    });
    return;
  }
  if (ink.is_opaque) {
    canvas_->paint(clip, ink.mix, y, left, right, [&](std::int32_t x) {
      return is_hatched(brush.hatch, x, y) ? brush.colour : ink.background;
    });
    return;
  }
  left = std::max<std::int64_t>(left, clip.area.left);
  right = std::min<std::int64_t>(right, clip.area.right);
  if (!canvas_->spend(std::max<std::int64_t>(right - left, 0))) return;
  for (std::int64_t x = left; x < right && !canvas_->is_spent(); ++x) {
    const auto at = static_cast<std::int32_t>(x);
    if (is_hatched(brush.hatch, at, y)) dot(clip, ink.mix, at, y, brush.colour);
  }
}

Status Painting::begin(std::int64_t most_edges) {
  count_ = 0;
  top_ = canvas_->height();
  bottom_ = 0;
  if (std::cmp_less_equal(most_edges, edges_.size())) return kOk;
  return edges_.allocate(most_edges);
}

void Painting::add_edge(Spot from, Spot to) {
  const bool is_up = from.y > to.y;
  if (is_up) std::swap(from, to);
  const double high = canvas_->height();
  const double first = std::clamp(std::ceil(from.y - 0.5), 0.0, high);
  const double behind = std::clamp(std::ceil(to.y - 0.5), 0.0, high);
  if (first >= behind || std::cmp_greater_equal(count_, edges_.size())) return;
  const double step = (to.x - from.x) / (to.y - from.y);
  const auto row = static_cast<std::int32_t>(first);
  edges_[count_] = {.x = from.x + (first + 0.5 - from.y) * step,
                    .step = step,
                    .first = row,
                    .behind = static_cast<std::int32_t>(behind),
                    .direction = is_up ? -1 : 1,
                    .next = first_edges_[row]};
  first_edges_[row] = count_++;
  top_ = std::min(top_, row);
  bottom_ = std::max(bottom_, static_cast<std::int32_t>(behind));
}

void Painting::line(const Clip& clip, const Ink& ink, Spot from, Spot to) {
  if (!ink.pen.is_drawn || canvas_->is_spent()) return;
  if (ink.pen.width > 1) return wide_line(clip, ink, from, to);
  thin_line(clip, ink, from, to);
}

// A dot in each row or column, whichever are more.
void Painting::thin_line(const Clip& clip, const Ink& ink, Spot from, Spot to) {
  constexpr int kDotWork = 4;
  const auto dots_of = [](double position) {
    return static_cast<std::int64_t>(std::floor(position));
  };
  const std::int64_t x = dots_of(from.x), y = dots_of(from.y);
  const std::int64_t wide = dots_of(to.x) - x, high = dots_of(to.y) - y;
  const bool is_flat = std::abs(wide) >= std::abs(high);
  const std::int64_t steps = std::max(std::abs(wide), std::abs(high));
  const std::int64_t begun = dashes_;
  dashes_ += steps;
  // Only those that can be seen.
  const std::int64_t start = is_flat ? x : y, way = is_flat ? wide : high;
  const std::int64_t low = is_flat ? clip.area.left : clip.area.top;
  const std::int64_t most = is_flat ? clip.area.right : clip.area.bottom;
  const std::int64_t first = way >= 0 ? low - start : start - most + 1;
  const std::int64_t behind = way >= 0 ? most - start : start - low + 1;
  for (std::int64_t i = std::max<std::int64_t>(first, 0); i < std::min(behind, steps); ++i) {
    if (!canvas_->spend(kDotWork)) return;
    if (is_gap(ink.pen.style, begun + i)) continue;
    const auto along = [&](std::int64_t length) {
      const std::int64_t twice = 2 * i * std::abs(length) + steps;
      return length >= 0 ? twice / (2 * steps) : -(twice / (2 * steps));
    };
    const std::int64_t at_x = x + along(wide), at_y = y + along(high);
    if (at_x < clip.area.left || at_x >= clip.area.right) continue;
    if (at_y < clip.area.top || at_y >= clip.area.bottom) continue;
    dot(clip, ink.mix, static_cast<std::int32_t>(at_x), static_cast<std::int32_t>(at_y),
        ink.pen.colour);
  }
}

// With round ends.
void Painting::wide_line(const Clip& clip, const Ink& ink, Spot from, Spot to) {
  if (begin(kCircle + 2).failed()) return;
  const double radius = ink.pen.width / 2.0;
  const double wide = to.x - from.x, high = to.y - from.y;
  // The corners of a circle, of which those on the far side go along.
  double x = radius, y = 0;
  const auto corner = [&] {
    const bool is_far = x * wide + y * high > 0;
    return is_far ? Spot{to.x + x, to.y + y} : Spot{from.x + x, from.y + y};
  };
  const Spot first = corner();
  Spot last = first;
  for (int i = 1; i < kCircle; ++i) {
    const double turned = x * kCircleCosine - y * kCircleSine;
    y = x * kCircleSine + y * kCircleCosine;
    x = turned;
    const Spot next = corner();
    add_edge(last, next);
    last = next;
  }
  add_edge(last, first);
  paint_pen(clip, ink);
}

void Painting::paint_pen(const Clip& clip, const Ink& ink) {
  fill(clip, true, [&](std::int32_t row, std::int32_t left, std::int32_t right) {
    canvas_->fill(clip, ink.mix, row, left, right, ink.pen.colour);
  });
}

// Clockwise, so that what lies in several of them stays inside.
void Painting::add_corners(std::span<const Spot> corners) {
  double twice_area = 0;
  Spot last = corners.back();
  for (const Spot& next : corners) {
    twice_area += last.x * next.y - next.x * last.y;
    last = next;
  }
  for (const Spot& next : corners) {
    twice_area >= 0 ? add_edge(last, next) : add_edge(next, last);
    last = next;
  }
}

void Painting::add_circle(Spot centre, double radius) {
  std::array<Spot, kCircle> corners{};
  Spot at{radius, 0};
  for (Spot& corner : corners) {
    corner = {centre.x + at.x, centre.y + at.y};
    at = {at.x * kCircleCosine - at.y * kCircleSine, at.x * kCircleSine + at.y * kCircleCosine};
  }
  add_corners(corners);
}

Status Painting::path(const Clip& clip, const Ink& ink, std::span<const Spot> spots) {
  if (!ink.pen.is_drawn || canvas_->is_spent()) return kOk;
  if (ink.pen.width <= 1) {
    for (std::size_t i = 1; i < spots.size(); ++i) thin_line(clip, ink, spots[i - 1], spots[i]);
    return kOk;
  }
  // Pieces that are as wide as the pen, a wedge between two of them, round ends and corners.
  constexpr int kEdges = 4 + 3, kRoundFromCosine = 2;
  TQ_TRY(begin(std::ssize(spots) * std::int64_t{kEdges + kCircle}));
  const double radius = ink.pen.width / 2.0;
  Spot before{};  // from the middle of the last piece to its side
  bool is_first = true;
  for (std::size_t i = 1; i < spots.size(); ++i) {
    const Spot from = spots[i - 1], to = spots[i];
    const double wide = to.x - from.x, high = to.y - from.y;
    const double length = std::sqrt(wide * wide + high * high);
    if (length <= 0) continue;
    const Spot side{-high / length * radius, wide / length * radius};
    const Spot piece[] = {{from.x + side.x, from.y + side.y},
                          {to.x + side.x, to.y + side.y},
                          {to.x - side.x, to.y - side.y},
                          {from.x - side.x, from.y - side.y}};
    add_corners(piece);
    const bool bends = before.x * side.x + before.y * side.y < radius * radius / kRoundFromCosine;
    if (is_first || bends) {
      add_circle(from, radius);
    } else {
      const double turn = before.x * side.y - before.y * side.x;
      const double out = turn > 0 ? -1 : 1;
      const Spot wedge[] = {from,
                            {from.x + out * before.x, from.y + out * before.y},
                            {from.x + out * side.x, from.y + out * side.y}};
      add_corners(wedge);
    }
    before = side;
    is_first = false;
  }
  if (!spots.empty()) add_circle(spots.back(), radius);
  paint_pen(clip, ink);
  return kOk;
}

}  // namespace tq::wmf
