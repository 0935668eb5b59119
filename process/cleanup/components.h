// Components of a 1-bit image: what hangs together, found from the runs of its rows, which come one
// after the other from the top. Rows that nobody needs any more are forgotten, so that a page of any
// height takes the memory of a few.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "core/memory.h"

namespace tq::process {

// Values in a block that grows.
template <class Value>
class GrowingBuffer {
  static_assert(std::is_trivially_copyable_v<Value>);

 public:
  // Room for `more` values, so that as many can be added.
  Status reserve(std::uint64_t more) {
    const std::uint64_t needed = (size_ + more) * sizeof(Value);
    if (needed <= block_.size()) return kOk;
    const std::uint64_t ample = std::min(needed + needed / 2 + 1024, kLargestBlock);
    const std::uint64_t wanted = std::max(needed, ample);
    return block_.data() == nullptr ? block_.allocate(wanted) : block_.resize(wanted);
  }
  void add(const Value& value) { data()[size_++] = value; }
  Status reserve_and_add(const Value& value) {
    TQ_TRY(reserve(1));
    add(value);
    return kOk;
  }
  void shrink(std::size_t size) { size_ = size; }
  void drop_front(std::size_t count) {
    size_ -= count;
    if (count > 0) std::memmove(data(), data() + count, size_ * sizeof(Value));
  }
  Value* data() const { return reinterpret_cast<Value*>(block_.data()); }
  std::size_t size() const { return size_; }
  std::span<Value> values() const { return {data(), size_}; }
  Value& operator[](std::size_t i) const { return values()[i]; }

 private:
  GlobalBlock block_;
  std::size_t size_ = 0;
};

// Columns first .. end - 1 of a row, all of one colour.
struct Run {
  std::int32_t first, end;
  std::uint32_t component;
};

struct Component {
  std::int32_t left, top, right, bottom;  // of its box; the last two lie behind it
  std::int64_t pixels;
  std::uint32_t joined;  // what it has become a part of, or itself
  std::uint16_t mark;    // its finder's: 0 at first
  bool in_use;

  std::int64_t width() const { return std::int64_t{right} - left; }
  std::int64_t height() const { return std::int64_t{bottom} - top; }
  std::int64_t longer_side() const { return std::max(width(), height()); }
};

class Components {
 public:
  // Whether pixels hang together that touch at a corner.
  enum class Neighbours : std::uint8_t { four, eight };
  enum class Colour : std::uint8_t { black, white };
  Components(Neighbours neighbours, Colour colour) : neighbours_(neighbours), colour_(colour) {}

  // The next row, by the ascending positions where the colour changes, from white.
  Status add_row(std::span<const std::int32_t> changes, std::int32_t width);

  std::int32_t first_row() const { return first_row_; }  // that is remembered
  std::int32_t rows() const { return first_row_ + static_cast<std::int32_t>(ends_.size()); }
  std::span<const Run> row(std::int32_t y) const;

  // Forgets the rows before y.
  void forget_rows(std::int32_t y);

  // From here until the next row is added, `Run::component` is an index into all(): the components of
  // the rows that are remembered, with what they had in rows before. They are in the order of their
  // first pixels.
  void settle();
  std::span<Component> all() const { return components_.values(); }

 private:
  std::uint32_t find(std::uint32_t component) const;
  std::uint32_t join(std::uint32_t a, std::uint32_t b) const;
  std::size_t start_of(std::size_t row) const { return row == 0 ? 0 : ends_[row - 1]; }
  void add_run(const Run*& above, const Run* above_end, std::int32_t first, std::int32_t end);

  Neighbours neighbours_;
  Colour colour_;
  std::int32_t first_row_ = 0;
  GrowingBuffer<Run> runs_;
  GrowingBuffer<std::size_t> ends_;  // per row, in `runs_`
  GrowingBuffer<Component> components_;
};

}  // namespace tq::process
