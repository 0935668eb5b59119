// Fixed tables of the standard and of this encoder.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace tq::formats {

inline constexpr int kBlock = 64;  // coefficients, or samples, of a block

// Row-major position of every place in the zigzag sequence.
inline constexpr std::array<std::uint8_t, kBlock> kZigzag = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,   //
    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,  //
    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,  //
    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// The decoder keeps its blocks column by column, as its row pass works on eight rows at once. A run
// that leaves the block ends in a place of its own behind it.
inline constexpr int kRoomBehindBlock = 16;
using DecodeOrder = std::array<std::uint8_t, kBlock + kRoomBehindBlock>;
constexpr DecodeOrder column_order() {
  DecodeOrder order{};
  order.fill(kBlock);
  for (std::size_t i = 0; i < kBlock; ++i) {
    order[i] = static_cast<std::uint8_t>((kZigzag[i] & 7) << 3 | kZigzag[i] >> 3);
  }
  return order;
}
inline constexpr DecodeOrder kColumnOrder = column_order();

// A Huffman table as a DHT segment holds it.
struct HuffmanSpec {
  std::array<std::uint8_t, 16> counts{};  // codes of 1 to 16 bits
  std::array<std::uint8_t, 256> values{};

  constexpr int size() const {
    int sum = 0;
    for (const int count : counts) sum += count;
    return sum;
  }
  friend constexpr bool operator==(const HuffmanSpec&, const HuffmanSpec&) = default;
};

// Quantisers of this encoder, row by row, which the quality scales: Table K.1, and a chrominance
// table that is not K.2; callers rely on its values.
// clang-format off
inline constexpr std::array<std::uint8_t, kBlock> kBaseLuminance = {
    16, 11, 10, 16, 24, 40, 51, 61,
    12, 12, 14, 19, 26, 58, 60, 55,
    14, 13, 16, 24, 40, 57, 69, 56,
    14, 17, 22, 29, 51, 87, 80, 62,
    18, 22, 37, 56, 68, 109, 103, 77,
    24, 35, 55, 64, 81, 104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101,
    72, 92, 95, 98, 112, 100, 103, 99};
inline constexpr std::array<std::uint8_t, kBlock> kBaseChrominance = {
    17, 18, 24, 46, 66, 99, 99, 99,
    18, 21, 26, 66, 99, 99, 99, 99,
    24, 26, 66, 99, 99, 99, 99, 99,
    47, 66, 99, 99, 99, 99, 99, 99,
    66, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99};
// clang-format on

}  // namespace tq::formats
