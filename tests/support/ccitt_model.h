// Facsimile coding by the letter of ITU-T T.4 and T.6, pixel by pixel and bit by bit, and pages to
// code.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "formats/ccitt/ccitt.h"

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;
using Pixels = std::vector<bool>;  // true: black
using Page = std::vector<Pixels>;

Bytes ccitt_by_model(const formats::CcittCoding& coding, const Page& page);

// Bits one after another, the last byte filled up with 0.
Bytes packed(const std::string& bits, bool lsb_first = false);

// A row as the library has it: 1 is white, padded with 1 to a multiple of 4 bytes.
Bytes row_bits(const Pixels& row);

// Rows that look like a printed page: runs of about `run` pixels, most transitions at or near one
// of the row before, now and then a row of its own or an empty one.
Page printed_page(int width, int height, int run, unsigned seed);

}  // namespace tq::test
