// Nearest pixels of 1 bit along a slanting line.
#pragma once

#include "process/geometry/kernels.h"
#include "process/process.h"

namespace tq::process {

// Whether lines with these steps keep to rows of the image, from left to right, so that the bits of a
// few pixels can be taken together.
bool keeps_to_rows(const Walk& walk);

// Bits first to last - 1 of `row` become the pixels at the places of the walk, whose rows have
// `row_bytes` bytes. The other bits stay.
void copy_turned_bits(const Walk& walk, std::ptrdiff_t row_bytes, Row row, int first, int last);

}  // namespace tq::process
