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

// The typical tables of Annex K; index 0 is luminance, 1 chrominance.
extern const std::array<HuffmanSpec, 2> kTypicalDc;
extern const std::array<HuffmanSpec, 2> kTypicalAc;

// Row-major, scaled by the quality. The chrominance table is this encoder's own.
extern const std::array<std::uint8_t, kBlock> kBaseLuminance;
extern const std::array<std::uint8_t, kBlock> kBaseChrominance;

}  // namespace tq::formats
