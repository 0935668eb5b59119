// Filters of PNG rows (PNG, clause 9), as a coder of deflate likes them: one for each row.
#pragma once

#include <cstdint>
#include <span>

#include "core/memory.h"

namespace tq::coding {

class RowFilter {
 public:
  // `pixel_bytes`: from a byte to the one that it is compared with; at least 1. Rows of several pixels to a
  // byte, and of palette indices, are not worth filtering.
  Status open(std::int64_t row_bytes, int pixel_bytes, bool filtered);

  // The number of the filter, and the filtered row; valid until the next call.
  std::span<const std::uint8_t> filter(std::span<const std::uint8_t> row);

 private:
  static constexpr int kFilters = 5;
  std::ptrdiff_t bytes_ = 0, step_ = 1;
  bool filtered_ = false;
  RowBuffer<std::uint8_t> before_;                // with `step_` zeros in front
  RowBuffer<std::uint8_t> now_;                   // likewise
  RowBuffer<std::uint8_t> candidates_[kFilters];  // the filter's number in front
};

}  // namespace tq::coding
