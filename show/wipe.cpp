// Effects as rectangles. What a step uncovers lies between two places of its own, so that steps meet
// without a gap.
#include "show/wipe.h"

#include <algorithm>

namespace tq::show {
namespace {

constexpr std::int32_t kSquare = 16;  // pixels
constexpr std::int32_t kBlinds = 8;

class Rects {
 public:
  Rects(Size window, std::span<Rect> out) : window_(window), out_(out) {}

  // From .. to in both directions, as far as it is in the window.
  void add(std::int64_t left, std::int64_t top, std::int64_t right, std::int64_t bottom) {
    right = std::min<std::int64_t>(right, window_.width);
    bottom = std::min<std::int64_t>(bottom, window_.height);
    if (left >= right || top >= bottom) return;
    const auto side = [](std::int64_t value) { return static_cast<std::int32_t>(value); };
    if (count_ < std::ssize(out_)) {
      out_[count_] = {side(left), side(top), side(right - left), side(bottom - top)};
    }
    ++count_;
  }
  void add_columns(std::int64_t left, std::int64_t right) { add(left, 0, right, window_.height); }
  void add_rows(std::int64_t top, std::int64_t bottom) { add(0, top, window_.width, bottom); }
  std::int32_t count() const { return count_; }

 private:
  Size window_;
  std::span<Rect> out_;
  std::int32_t count_ = 0;
};

// The time of a step, from 0 to 1: what it takes of a length.
struct Step {
  std::int64_t now, next, all;
  std::int64_t begin(std::int64_t length) const { return length * now / all; }
  std::int64_t end(std::int64_t length) const { return length * next / all; }
  // The other way round in time.
  Step reversed() const { return {all - next, all - now, all}; }
  // Of the half of the time that begins with `half`.
  Step within(std::int64_t half) const {
    const auto place = [&](std::int64_t at) {
      return std::clamp<std::int64_t>(2 * at - half * all, 0, all);
    };
    return {place(now), place(next), all};
  }
};

// Halves of a length that grow from its middle.
template <class Add>
void split(const Step& step, std::int64_t length, Add&& add) {
  const std::int64_t middle = length / 2, rest = length - middle;
  add(middle - step.end(middle), middle - step.begin(middle));
  add(middle + step.begin(rest), middle + step.end(rest));
}

// A frame around the middle, from one box to the next larger.
void box(const Step& step, Size window, Rects& rects) {
  const auto low = [](std::int64_t side, std::int64_t grown) { return side / 2 - grown; };
  const std::int64_t x = window.width / 2, y = window.height / 2;
  const std::int64_t more_x = window.width - x, more_y = window.height - y;
  const std::int64_t left = low(window.width, step.end(x)), right = x + step.end(more_x);
  const std::int64_t top = low(window.height, step.end(y)), bottom = y + step.end(more_y);
  const std::int64_t in_left = low(window.width, step.begin(x)), in_right = x + step.begin(more_x);
  const std::int64_t in_top = low(window.height, step.begin(y));
  const std::int64_t in_bottom = y + step.begin(more_y);
  rects.add(left, top, right, in_top);
  rects.add(left, in_top, in_left, in_bottom);
  rects.add(in_right, in_top, right, in_bottom);
  rects.add(left, in_bottom, right, bottom);
}

// Where blind or field `i` begins.
std::int64_t blind(std::int64_t length, std::int64_t i) {
  return length * i / kBlinds;
}

template <class Add>
void blinds(const Step& step, std::int64_t length, Add&& add) {
  for (int i = 0; i < kBlinds; ++i) {
    const std::int64_t from = blind(length, i), own = blind(length, i + 1) - from;
    add(from + step.begin(own), from + step.end(own));
  }
}

// The black fields from the left in the first half of the time, then the white ones.
void checkerboard(const Step& step, Size window, Rects& rects) {
  for (int row = 0; row < kBlinds; ++row) {
    for (int column = 0; column < kBlinds; ++column) {
      const Step own = step.within((row + column) % 2);
      const std::int64_t from = blind(window.width, column);
      const std::int64_t width = blind(window.width, column + 1) - from;
      rects.add(from + own.begin(width), blind(window.height, row), from + own.end(width),
                blind(window.height, row + 1));
    }
  }
}

void staircase(const Step& step, Size window, Rects& rects) {
  const std::int64_t across = (window.width + std::int64_t{kSquare} - 1) / kSquare;
  const std::int64_t down = (window.height + std::int64_t{kSquare} - 1) / kSquare;
  const std::int64_t begin = step.begin(across + down - 1), end = step.end(across + down - 1);
  for (std::int64_t row = std::max<std::int64_t>(begin - across + 1, 0); row < std::min(down, end);
       ++row) {
    const std::int64_t from = std::max<std::int64_t>(begin - row, 0);
    rects.add(from * kSquare, row * kSquare, std::min(end - row, across) * kSquare,
              (row + 1) * kSquare);
  }
}

// In the order of a shift register that passes through all numbers of 16 bits but 0. Squares of larger
// windows are larger, so that there are enough numbers.
void dissolve(const Step& step, Size window, Rects& rects) {
  constexpr std::int64_t kNumbers = 65535;
  std::int64_t side = kSquare, across = 0, down = 0;
  for (;; side *= 2) {
    across = (window.width + side - 1) / side;
    down = (window.height + side - 1) / side;
    if (across * down <= kNumbers) break;
  }
  const std::int64_t begin = step.begin(across * down), end = step.end(across * down);
  std::uint32_t number = 1;
  std::int64_t place = 0;
  for (std::int64_t i = 0; i < kNumbers && place < end; ++i) {
    const std::int64_t square = std::int64_t{number} - 1;
    // x^16 + x^14 + x^13 + x^11 + 1
    number = number >> 1 ^ ((number & 1) != 0 ? 0xB400 : 0);
    if (square >= across * down || place++ < begin) continue;
    const std::int64_t x = square % across * side, y = square / across * side;
    rects.add(x, y, x + side, y + side);
  }
}

}  // namespace

Status wipe_rects(std::int32_t effect, std::int32_t step, std::int32_t steps, Size window,
                  std::span<Rect> out) {
  if (effect < 0 || effect > kLastEffect || step < 0 || step >= steps) {
    return StatusCode::unsupported;
  }
  if (window.width < 1 || window.height < 1) return StatusCode::empty_display_rect;
  Rects rects(window, out);
  const Step time{step, std::int64_t{step} + 1, steps};
  const std::int64_t width = window.width, height = window.height;
  const auto columns = [&](std::int64_t from, std::int64_t to) { rects.add_columns(from, to); };
  const auto rows = [&](std::int64_t from, std::int64_t to) { rects.add_rows(from, to); };
  switch (effect) {
    case 0:
      if (step == 0) rects.add_rows(0, height);
      break;
    case 1:
      columns(time.begin(width), time.end(width));
      break;
    case 2:
      columns(width - time.end(width), width - time.begin(width));
      break;
    case 3:
      rows(time.begin(height), time.end(height));
      break;
    case 4:
      rows(height - time.end(height), height - time.begin(height));
      break;
    case 5:
      split(time, width, columns);
      break;
    case 6:
      split(time.reversed(), width, columns);
      break;
    case 7:
      split(time, height, rows);
      break;
    case 8:
      split(time.reversed(), height, rows);
      break;
    case 9:
      box(time, window, rects);
      break;
    case 10:
      box(time.reversed(), window, rects);
      break;
    case 11:
      blinds(time, height, rows);
      break;
    case 12:
      blinds(time, width, columns);
      break;
    case 13:
      checkerboard(time, window, rects);
      break;
    case 14:
      staircase(time, window, rects);
      break;
    default:
      dissolve(time, window, rects);
      break;
  }
  return Status::from_raw(rects.count());
}

}  // namespace tq::show
