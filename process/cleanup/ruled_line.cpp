// A line is a band of nearly one thickness. What is as thick, but hangs on both of its sides at about
// the same place, crosses it.
#include "process/cleanup/ruled_line.h"

#include <cstdlib>

namespace tq::process {
namespace {

constexpr std::int32_t kSmoothing = 16;  // columns each way

}  // namespace

Status RuledLine::find(const ImageRecord& page, const Component& component,
                       std::span<const LinePiece> pieces, bool& found) {
  found = false;
  width_ = page.width;
  left_ = component.left, right_ = component.right;
  if (component.width() < size_.length) return kOk;
  // More than a few degrees are no ruled line, more than a line's thickness is a filled area.
  if (component.height() > 2 * std::int64_t{size_.thickness} + component.width() / 12) return kOk;
  if (component.pixels > component.width() * (2 * std::int64_t{size_.thickness} + 1)) return kOk;
  if (columns_.size() == 0) {
    TQ_TRY(columns_.allocate(width_));
    TQ_TRY(sums_.allocate(std::int64_t{width_} + 1));
    TQ_TRY(page_rows_.allocate(page));
  }
  std::ranges::fill(columns_.pixels(), Column{});
  for (const LinePiece& piece : pieces) {
    for (std::int32_t x = piece.first; x < piece.end; ++x) {
      Column& column = columns_[x];
      if (column.empty()) column = {piece.y, piece.y + 1};
      column = {std::min(column.top, piece.y), std::max(column.bottom, piece.y + 1)};
    }
  }
  thickness_ = usual_thickness();
  if (thickness_ > size_.thickness) return kOk;
  ragged_ = std::max(1, (thickness_ + 2) / 4);
  smooth();
  TQ_TRY(read_ink(page, component));
  follow(left_ - 1, -1);
  follow(right_, 1);
  // A line over letters that hang on it is a part of them, unless it goes on and on.
  std::int64_t hanging = 0;
  for (std::int32_t x = left_; x < right_; ++x) {
    const Column column = columns_[x];
    hanging += hangs_on(x, column.top - 1, -1) || hangs_on(x, column.bottom, 1) ? 1 : 0;
  }
  const std::int64_t width = std::int64_t{right_} - left_;
  found =
      width >= 4 * std::int64_t{size_.length} ? 4 * hanging <= 3 * width : 5 * hanging <= 2 * width;
  return kOk;
}

// Of the columns, the middle one.
std::int32_t RuledLine::usual_thickness() const {
  const std::int32_t most = size_.thickness + 1;
  std::int64_t below = 0;
  const std::int64_t half = (std::int64_t{right_} - left_) / 2;
  for (std::int32_t thickness = 0; thickness < most; ++thickness) {
    for (std::int32_t x = left_; x < right_; ++x) {
      below += columns_[x].bottom - columns_[x].top == thickness ? 1 : 0;
    }
    if (below > half) return thickness;
  }
  return most;
}

// Where columns are too thick, by strokes along the line, or too thin, by rows that were left out,
// the line goes on as it does beside.
void RuledLine::smooth() {
  const std::int32_t most = thickness_ + 1 + thickness_ / 3;
  // Twice the middle of those that are as thick as the line, added up; and their number.
  std::int64_t sum = 0, count = 0;
  std::int32_t behind = left_, before = left_;
  const auto is_usual = [&](const Column& c) {
    const std::int32_t thickness = c.bottom - c.top;
    return thickness > 0 && thickness <= most && 2 * thickness >= thickness_;
  };
  for (std::int32_t x = left_; x < right_; ++x) {
    for (; before < right_ && before <= x + kSmoothing; ++before) {
      if (!is_usual(columns_[before])) continue;
      sum += columns_[before].top + columns_[before].bottom, ++count;
    }
    for (; behind < x - kSmoothing; ++behind) {
      if (!is_usual(columns_[behind])) continue;
      sum -= columns_[behind].top + columns_[behind].bottom, --count;
    }
    const Column& c = columns_[x];
    sums_[x] = count > 0 ? static_cast<std::int32_t>((sum + count / 2) / count) : c.top + c.bottom;
  }
  for (std::int32_t x = left_; x < right_; ++x) {
    Column& c = columns_[x];
    const std::int32_t top = (sums_[x] - thickness_ + 1) >> 1;
    const Column fitted{top, top + thickness_};
    c = is_usual(c) ? Column{std::min(c.top, fitted.top), std::max(c.bottom, fitted.bottom)}
                    : fitted;
  }
}

Status RuledLine::read_ink(const ImageRecord& page, const Component& component) {
  const std::int32_t more = 2 * ragged_ + thickness_ + 2;
  const std::int32_t first = std::max(component.top - more, 0);
  const std::int32_t end = std::min(component.bottom, page.height - more) + more;
  top_ = first, rows_ = std::min(end, page.height) - first;
  stride_ = static_cast<std::ptrdiff_t>(row_bytes(width_, 1));
  TQ_TRY(ink_.allocate(std::int64_t{rows_} * stride_));
  TQ_TRY(erased_.allocate(std::int64_t{rows_} * stride_));
  for (std::int32_t y = 0; y < rows_; ++y) {
    transitions_to_bits(page_rows_.read(page, top_ + y), width_,
                        ink_.pixels().subspan(static_cast<std::size_t>(y * stride_),
                                              static_cast<std::size_t>(stride_)));
  }
  return kOk;
}

// A slanting line ends in a step that is shorter than what was taken for a row of it.
void RuledLine::follow(std::int32_t from, std::int32_t step) {
  const Column last = columns_[from - step];
  std::int32_t middle = (last.top + last.bottom) >> 1;
  for (std::int32_t x = from; x >= 0 && x < width_ && std::abs(x - from) < size_.length;
       x += step) {
    std::int32_t top = middle;
    if (!has_ink(x, top) && has_ink(x, top - 1)) --top;
    if (!has_ink(x, top) && has_ink(x, top + 1)) ++top;
    if (!has_ink(x, top)) return;
    std::int32_t bottom = top + 1;
    while (has_ink(x, top - 1) && bottom - top <= thickness_ + ragged_) --top;
    while (has_ink(x, bottom) && bottom - top <= thickness_ + ragged_) ++bottom;
    if (bottom - top > thickness_ + ragged_) return;
    columns_[x] = {top, bottom};
    middle = (top + bottom) >> 1;
    (step < 0 ? left_ : right_) = step < 0 ? x : x + 1;
  }
}

// Whether ink beside the line goes on behind its ragged edge; `edge` is the first row beside it.
bool RuledLine::hangs_on(std::int32_t x, std::int32_t edge, std::int32_t step) const {
  if (!has_ink(x, edge + step * ragged_)) return false;
  for (std::int32_t i = -ragged_; i <= ragged_; ++i) {
    if (has_ink(x + i, edge)) return true;
  }
  return false;
}

Status RuledLine::find_strokes(GrowingBuffer<Stroke>& strokes, bool above) const {
  strokes.shrink(0);
  for (std::int32_t x = left_; x < right_; ++x) {
    const Column c = columns_[x];
    if (!(above ? hangs_on(x, c.top - 1, -1) : hangs_on(x, c.bottom, 1))) continue;
    if (strokes.size() > 0 && strokes.values().back().end == x) {
      ++strokes.values().back().end;
    } else {
      TQ_TRY(strokes.reserve_and_add({x, x + 1}));
    }
  }
  return kOk;
}

void RuledLine::set_erased(std::int32_t x, std::int32_t y, bool erased) const {
  if (x < 0 || x >= width_ || y < top_ || y >= top_ + rows_) return;
  std::uint8_t& bits = erased_[(y - top_) * stride_ + x / 8];
  const int bit = 0x80 >> x % 8;
  bits = byte(erased ? bits | bit : bits & ~bit);
}

// What joins them, from one side of the line to the other.
void RuledLine::keep_crossing(const Stroke& above, const Stroke& below) const {
  const Column at_top = columns_[above.middle()], at_bottom = columns_[below.middle()];
  const std::int64_t first = at_top.top - ragged_, end = at_bottom.bottom + ragged_;
  for (std::int64_t y = first; y < end; ++y) {
    const auto between = [&](std::int64_t a, std::int64_t b) {
      return static_cast<std::int32_t>(a + (b - a) * (2 * (y - first) + 1) / (2 * (end - first)));
    };
    const std::int32_t right = between(above.end, below.end);
    for (std::int32_t x = between(above.first, below.first); x < right; ++x) {
      set_erased(x, static_cast<std::int32_t>(y), false);
    }
  }
}

Status RuledLine::add_erased(GrowingBuffer<LinePiece>& erased) {
  TQ_TRY(find_strokes(above_, true));
  TQ_TRY(find_strokes(below_, false));
  for (std::int32_t x = left_; x < right_; ++x) {
    const Column c = columns_[x];
    const std::int32_t top = hangs_on(x, c.top - 1, -1) ? c.top : c.top - ragged_;
    const std::int32_t bottom = hangs_on(x, c.bottom, 1) ? c.bottom : c.bottom + ragged_;
    for (std::int32_t y = top; y < bottom; ++y) set_erased(x, y, true);
  }
  // A stroke may slant by as much as 50 degrees on its way through.
  const std::int32_t reach = (thickness_ + 2 * ragged_) * 6 / 5 + 1;
  std::size_t next = 0;
  for (const Stroke& above : above_.values()) {
    while (next < below_.size() && below_[next].middle() < above.middle() - reach) ++next;
    const Stroke* nearest = nullptr;
    const auto distance = [&](const Stroke& s) { return std::abs(s.middle() - above.middle()); };
    for (std::size_t i = next; i < below_.size() && below_[i].middle() <= above.middle() + reach;
         ++i) {
      if (nearest == nullptr || distance(below_[i]) < distance(*nearest)) nearest = &below_[i];
    }
    if (nearest != nullptr) keep_crossing(above, *nearest);
  }
  for (std::int32_t y = 0; y < rows_; ++y) {
    const auto is_erased = [&](std::int32_t x) {
      return (erased_[y * stride_ + x / 8] >> (7 - x % 8) & 1) != 0;
    };
    for (std::int32_t x = left_; x < right_; ++x) {
      if (!is_erased(x)) continue;
      const std::int32_t first = x;
      while (x < right_ && is_erased(x)) ++x;
      TQ_TRY(erased.reserve_and_add({top_ + y, first, x}));
    }
  }
  return kOk;
}

}  // namespace tq::process
