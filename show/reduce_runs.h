// Run lists in columns, without a pixel of them being drawn: a run adds what it covers of the columns
// where it begins and ends, and one sum over the columns fills what lies between.
#pragma once

#include <span>

#include "core/memory.h"
#include "core/run_storage.h"
#include "show/spans.h"

namespace tq::show {

class RunColumns {
 public:
  // `columns` ascend in the image.
  Status open(std::span<const Span> columns, const Spans& spans, std::int32_t width);

  // The black pixels of a row, times a weight; of `one` in half of the time.
  void add(Transitions row, std::uint32_t weight);

  // Makes a sum for each column of what has been gathered, or adds it to one, and begins anew.
  void take(std::span<const std::uint32_t> totals, bool add, std::span<std::uint64_t> sums);

 private:
  // Of a place between two pixels: the first column that has something behind it, and how much.
  struct Place {
    std::int32_t column = 0;
    std::uint32_t behind = 0;
  };
  struct Change {
    std::int64_t part = 0, whole = 0;  // of this column; of each one behind it
  };

  // Both in one number, of rows that weigh one: this column's part in the low bits. A row changes them by
  // one whole and by no more than a column's total, so that so many rows have room.
  static constexpr int kPartBits = 44;
  static constexpr std::int32_t kMostRows = 1 << 18;

  template <class Add>
  void each_change(Transitions row, Add&& add) const;
  Change sum_of(const Change& change, std::int64_t packed) const;
  void unpack();

  std::int32_t first_ = 0, end_ = 0;  // of the pixels that columns have
  bool sees_end_ = false;             // of every row
  std::uint32_t one_ = 0;
  RowBuffer<Place> places_;
  RowBuffer<Change> changes_;
  RowBuffer<std::int64_t> packed_;
  std::int32_t packed_rows_ = 0;
};

}  // namespace tq::show
