// One ruled line of a page: where it lies column by column, what crosses it, and what of it goes.
#pragma once

#include "process/cleanup/change_rows.h"
#include "process/cleanup/components.h"

namespace tq::process {

// How long a line is at least, and how thick at most, in pixels.
struct LineSize {
  std::int32_t length, thickness;
  // Of a row of a line: a slanting one has steps, a worn one holes.
  std::int32_t shortest_run() const { return std::max(length / 4, 8); }
  std::int32_t widest_hole() const { return thickness / 4; }
};

// Black columns of a row that belong to a line.
struct LinePiece {
  std::int32_t y, first, end;
};

class RuledLine {
 public:
  explicit RuledLine(LineSize size) : size_(size) {}

  // Whether the pieces, which make up `component`, are a line of the page.
  Status find(const ImageRecord& page, const Component& component,
              std::span<const LinePiece> pieces, bool& found);

  // Adds the pieces that go, without what crosses the line.
  Status add_erased(GrowingBuffer<LinePiece>& erased);

 private:
  struct Column {
    std::int32_t top, bottom;  // the last behind it; none: both 0
    bool empty() const { return top >= bottom; }
  };
  struct Stroke {  // of columns beside the line that hang on it
    std::int32_t first, end;
    std::int32_t middle() const { return first + (end - first) / 2; }
  };

  Status read_ink(const ImageRecord& page, const Component& component);
  bool has_ink(std::int32_t x, std::int32_t y) const {
    if (x < 0 || x >= width_ || y < top_ || y >= top_ + rows_) return false;
    return (ink_[(y - top_) * stride_ + x / 8] >> (7 - x % 8) & 1) == 0;
  }
  std::int32_t usual_thickness() const;
  void smooth();
  void follow(std::int32_t from, std::int32_t step);
  bool hangs_on(std::int32_t x, std::int32_t edge, std::int32_t step) const;
  Status find_strokes(GrowingBuffer<Stroke>& strokes, bool above) const;
  void keep_crossing(const Stroke& above, const Stroke& below) const;
  void set_erased(std::int32_t x, std::int32_t y, bool erased) const;

  LineSize size_;
  std::int32_t thickness_ = 0, ragged_ = 0;
  std::int32_t width_ = 0;             // of the page
  std::int32_t left_ = 0, right_ = 0;  // of the line
  std::int32_t top_ = 0, rows_ = 0;    // that are looked at
  std::ptrdiff_t stride_ = 0;
  RowBuffer<Column> columns_;  // of the page
  RowBuffer<std::int32_t> sums_;
  RowBuffer<std::uint8_t> ink_, erased_;  // 0 is ink; 1 is erased
  ChangeRows page_rows_;
  GrowingBuffer<Stroke> above_, below_;
};

}  // namespace tq::process
