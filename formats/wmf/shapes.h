// Areas with straight edges, and lines, as they are painted dot by dot.
#pragma once

#include <cmath>
#include <cstring>
#include <span>
#include <utility>

#include "formats/wmf/canvas.h"

namespace tq::wmf {

// In dots; the centre of dot 0 is at 0.5.
struct Spot {
  double x = 0, y = 0;
};

struct Pen {
  bool is_drawn = true;
  int style = 0;
  std::int32_t width = 1;  // dots
  Rgb colour{0, 0, 0, 0};
};

struct Brush {
  enum class Kind : std::uint8_t { solid, none, hatched, pattern };

  Kind kind = Kind::solid;
  int hatch = 0;
  Rgb colour{255, 255, 255, 0};
  // The bitmap of a pattern in the stream.
  bool is_old = false;
  std::int64_t at = 0, end = 0;
};

// What a shape is painted with.
struct Ink {
  Pen pen;
  Brush brush;
  Mix mix = Mix::copy;
  bool is_winding = false;
  bool is_opaque = true;  // between the lines of hatches there is the background
  Rgb background{255, 255, 255, 0};
};

class Painting {
 public:
  Status open(Canvas& canvas);
  Canvas& tile() { return tile_; }  // what patterns repeat

  // A dot, a row of the brush.
  void dot(const Clip& clip, Mix mix, std::int32_t x, std::int32_t y, Rgb colour);
  void brush_row(const Clip& clip, const Ink& ink, std::int32_t y, std::int64_t left,
                 std::int64_t right);

  // Edges, as many as there is room for, then what they enclose.
  Status begin(std::int64_t most_edges);
  void add_edge(Spot from, Spot to);
  template <class PaintRow>
  void fill(const Clip& clip, bool is_winding, PaintRow&& paint_row);

  // Without its last dot.
  void line(const Clip& clip, const Ink& ink, Spot from, Spot to);
  // From spot to spot, as one line: a wide one paints no dot twice.
  Status path(const Clip& clip, const Ink& ink, std::span<const Spot> spots);

 private:
  struct Edge {
    double x, step;
    std::int32_t first, behind;  // rows
    std::int32_t direction, next;
  };

  // The place from `x` on where the winding changes, or the one behind `right`.
  std::int32_t next_change(std::int32_t x, std::int32_t right) const {
    const std::int32_t* const at = changes_.data();
    for (std::uint64_t pairs[4]; x + 7 <= right; x += 8) {
      std::memcpy(pairs, at + x, sizeof pairs);
      if ((pairs[0] | pairs[1] | pairs[2] | pairs[3]) != 0) break;
    }
    while (x <= right && at[x] == 0) ++x;
    return x;
  }
  void thin_line(const Clip& clip, const Ink& ink, Spot from, Spot to);
  void wide_line(const Clip& clip, const Ink& ink, Spot from, Spot to);
  void paint_pen(const Clip& clip, const Ink& ink);
  void add_circle(Spot centre, double radius);
  void add_corners(std::span<const Spot> corners);

  Canvas* canvas_ = nullptr;
  Canvas tile_;
  RowBuffer<Edge> edges_;
  RowBuffer<std::int32_t> first_edges_;  // of each row; -1: none
  RowBuffer<std::int32_t> changes_;      // of the winding, at each dot of a row
  std::int32_t count_ = 0, top_ = 0, bottom_ = 0;
  std::int64_t dashes_ = 0;  // dots since a pattern of dashes began
};

// Calls `paint_row(y, left, right)` for the parts of rows that are inside.
template <class PaintRow>
void Painting::fill(const Clip& clip, bool is_winding, PaintRow&& paint_row) {
  constexpr int kEdgeWork = 4, kNewEdgeWork = 48;
  std::int32_t active = -1;
  canvas_->spend(std::int64_t{kNewEdgeWork} * count_);
  for (std::int32_t y = top_; y < std::min(bottom_, clip.area.bottom); ++y) {
    for (std::int32_t i = std::exchange(first_edges_[y], -1); i >= 0;) {
      const std::int32_t next = edges_[i].next;
      edges_[i].next = active;
      active = i;
      i = next;
    }
    std::int32_t left = canvas_->width(), right = 0, edges = 0;
    for (std::int32_t* link = &active; *link >= 0; ++edges) {
      Edge& edge = edges_[*link];
      if (edge.behind <= y) {
        *link = edge.next;
        continue;
      }
      const double column = std::clamp(edge.x - 0.5, 0.0, double(canvas_->width()));
      const auto below = static_cast<std::int32_t>(column);
      const std::int32_t at = below + static_cast<std::int32_t>(below < column);
      changes_[at] += edge.direction;
      left = std::min(left, at);
      right = std::max(right, at);
      edge.x += edge.step;
      link = &edge.next;
    }
    const bool goes_on = canvas_->spend(edges * kEdgeWork + std::max(right - left, 0) / kEdgeWork);
    std::int32_t winding = 0, begun = left;
    for (std::int32_t x = next_change(left, right); x <= right; x = next_change(x, right)) {
      const std::int32_t change = std::exchange(changes_[x], 0);
      const auto inside = [&](std::int32_t around) {
        return is_winding ? around != 0 : (around & 1) != 0;
      };
      const bool was_inside = inside(winding);
      winding += change;
      if (!was_inside && inside(winding)) begun = x;
      if (was_inside && !inside(winding) && goes_on) paint_row(y, begun, x);
    }
    if (!goes_on) break;
  }
  std::ranges::fill(first_edges_.pixels(), -1);
}

}  // namespace tq::wmf
