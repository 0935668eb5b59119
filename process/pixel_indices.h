// Rows of palette images as indices.
#pragma once

#include <cstdint>

namespace tq::process {

// Calls `put(x, index)` for every pixel of a row of 1, 4, 8 or 16 bits; samples of 16 bits have the
// index in their high byte.
template <class Put>
void for_each_index(const std::uint8_t* row, int bits, std::int32_t width, Put&& put) {
  switch (bits) {
    case 1:
      for (std::int32_t x = 0; x < width; ++x) put(x, row[x / 8] >> (7 - x % 8) & 1);
      break;
    case 4:
      for (std::int32_t x = 0; x < width; ++x) {
        put(x, x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15);
      }
      break;
    case 8:
#pragma GCC unroll 8
      for (std::int32_t x = 0; x < width; ++x) put(x, row[x]);
      break;
    default:
      for (std::int32_t x = 0; x < width; ++x) put(x, row[2 * x + 1]);
      break;
  }
}

}  // namespace tq::process
