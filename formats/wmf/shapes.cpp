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
  canvas_->paint(clip, mix, y, x, x + std::int64_t{1}, [=](std::int32_t) { return colour; });
}

void Painting::brush_row(const Clip& clip, const Ink& ink, std::int32_t y, std::int64_t left,
                         std::int64_t right) {
  const Brush& brush = ink.brush;
  if (brush.kind == Brush::Kind::none) return;
  if (brush.kind == Brush::Kind::solid) {
    canvas_->paint(clip, ink.mix, y, left, right, [&](std::int32_t) { return brush.colour; });
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
    if (canvas_->is_spent()) return;
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
  constexpr int kCorners = 32;
  constexpr double kCosine = 0.98078528040323043, kSine = 0.19509032201612825;  // of one of them
  if (begin(kCorners + 2).failed()) return;
  const double radius = ink.pen.width / 2.0;
  const double wide = to.x - from.x, high = to.y - from.y;
  // The corners of a circle, of which those on the far side go along.
  double x = radius, y = 0;
  const auto corner = [&] {
    const bool is_far = x * wide + y * high > 0;
    return is_far ? Spot{to.x + x, to.y + y} : Spot{from.x + x, from.y + y};
  };
  Spot last = corner();
  for (int i = 0; i < kCorners; ++i) {
    const double turned = x * kCosine - y * kSine;
    y = x * kSine + y * kCosine;
    x = turned;
    const Spot next = corner();
    add_edge(last, next);
    last = next;
  }
  fill(clip, true, [&](std::int32_t row, std::int32_t left, std::int32_t right) {
    canvas_->paint(clip, ink.mix, row, left, right, [&](std::int32_t) { return ink.pen.colour; });
  });
}

}  // namespace tq::wmf
