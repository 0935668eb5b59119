// The bits of entropy-coded data, most significant first.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "formats/jpeg/huffman.h"

namespace tq::formats {

struct Value {
  std::int32_t value = 0;
  std::uint32_t amount = 0;  // without the sign
};

// Reads past what it is told to read: behind the data there are always enough zero bytes for a
// block (see EntropySource), so nothing here asks where they end. A plain value: the block
// functions keep a copy in registers.
struct BitReader {
  const std::uint8_t* next = nullptr;
  BitWord bits = 0;  // at the top; what is below `count` belongs to the bytes at `next`
  int count = 0;

  void refill() {
    BitWord word;
    std::memcpy(&word, next, sizeof word);
    if constexpr (std::endian::native == std::endian::little) {
      if constexpr (sizeof word == 8) {
        word = __builtin_bswap64(word);
      } else {
        word = __builtin_bswap32(word);
      }
    }
    bits |= word >> count;
    next += (kWordBits - 1 - count) >> 3;
    count |= kWordBits - 8;
  }
  // At least `wanted` bits, of the 24 that a refill leaves on every processor.
  void need(int wanted) {
    if (count < wanted) refill();
  }
  std::uint32_t peek(int wanted) const {  // 1 to 24
    return static_cast<std::uint32_t>(bits >> (kWordBits - wanted));
  }
  void skip(int taken) {
    bits <<= taken;
    count -= taken;
  }
  // 0 to 16 bits.
  std::uint32_t take(int wanted) {
    if (wanted == 0) return 0;
    need(wanted);
    const std::uint32_t value = peek(wanted);
    skip(wanted);
    return value;
  }
  // The symbol of `entry`, which has kNoValue. Its length is 0 when there is no such code.
  Symbol symbol(const DecodeTable& table, LookupEntry entry) {
    Symbol found{static_cast<int>(entry >> 8 & 0xFF), static_cast<int>(entry >> 16 & 0xFF)};
    if (found.length == 0) found = table.find(peek(16), kLookupBits + 1);
    skip(found.length);
    return found;
  }
  // The value of `entry`, which has not kNoValue. ITU-T T.81 Annex F, EXTEND: the value is negative
  // when its first bit is 0, and then the complement of its amount.
  Value value(LookupEntry entry) {
    using SignedWord = std::make_signed_t<BitWord>;
    const BitWord word = bits << (entry >> 16 & (kWordBits - 1));
    const auto sign = static_cast<BitWord>(static_cast<SignedWord>(~word) >> (kWordBits - 1));
    const BitWord amount = (word ^ sign) >> 1 >> (entry >> 24);
    skip(static_cast<int>(entry & 0xFF));
    return {static_cast<std::int32_t>((amount ^ sign) - sign), static_cast<std::uint32_t>(amount)};
  }
};

}  // namespace tq::formats
