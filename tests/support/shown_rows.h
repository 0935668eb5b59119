// 1-bit pictures as text: '#' is black.
#pragma once

#include <string>
#include <vector>

#include "core/run_storage.h"
#include "tests/support/collecting_sink.h"

namespace tq::test {

using Art = std::vector<std::string>;

// Rows that were not delivered are empty.
inline Art art_of(const CollectingSink& sink) {
  const std::int32_t width = sink.header.header.biWidth;
  Art art;
  for (const std::vector<std::uint8_t>& row : sink.image()) {
    std::vector<std::uint8_t> bits(static_cast<std::size_t>(row_bytes(width, 1)));
    if (row.size() == bits.size()) {
      bits = row;
    } else if (!row.empty()) {
      std::vector<std::uint16_t> list(static_cast<std::size_t>(width));
      list.resize(static_cast<std::size_t>(read_run_list(row, width, list)));
      transitions_to_bits(list, width, bits);
    }
    std::string& text = art.emplace_back();
    for (std::int32_t x = 0; x < width && !row.empty(); ++x) {
      text += (bits[static_cast<std::size_t>(x / 8)] >> (7 - x % 8) & 1) != 0 ? '.' : '#';
    }
  }
  return art;
}

}  // namespace tq::test
