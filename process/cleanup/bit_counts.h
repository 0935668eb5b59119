// How many bits of a word are set, without an instruction that not all processors have.
#pragma once

#include <cstdint>

namespace tq::process {

// Of each four.
constexpr std::uint64_t count_in_fours(std::uint64_t bits) {
  constexpr std::uint64_t kEverySecond = 0x5555555555555555, kEveryPair = 0x3333333333333333;
  bits -= bits >> 1 & kEverySecond;
  return (bits & kEveryPair) + (bits >> 2 & kEveryPair);
}

// The sum of such counts, of which no two neighbours are more than 15.
constexpr int sum_of_fours(std::uint64_t counts) {
  counts = (counts + (counts >> 4)) & 0x0F0F0F0F0F0F0F0F;
  return static_cast<int>(counts * 0x0101010101010101 >> 56);
}

constexpr int count_bits(std::uint64_t bits) {
  return sum_of_fours(count_in_fours(bits));
}

}  // namespace tq::process
