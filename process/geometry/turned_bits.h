// Pixels of 1 bit along a slanting line.
#pragma once

#include "process/geometry/kernels.h"
#include "process/process.h"

namespace tq::process {

// Whether lines with these steps keep to rows of the image, from left to right, so that the bits of a
// few pixels can be taken together.
bool keeps_to_rows(const Walk& walk);

// Rows of `source_bytes` bytes along walks that keep to them.
class TurnedBits {
 public:
  Status allocate(int width, std::int64_t source_bytes);  // of the result

  // Bits first to last - 1 of `row` become the pixels at the places of the walk. The other bits stay.
  void copy_nearest(const Walk& walk, Row row, int first, int last);

  // Bits of whole bytes: white where at least half of the weight of a place's four neighbours is.
  void blend(const Walk& walk, Row row, int first, int last);

 private:
  std::ptrdiff_t source_bytes_ = 0, stride_ = 0;
  RowBuffer<std::uint8_t> rows_;  // four, for what is put together
};

}  // namespace tq::process
