// One block of a sequential scan.
#pragma once

#include <cstdint>

#include "formats/jpeg/bit_reader.h"
#include "formats/jpeg/frame.h"

namespace tq::formats {

// Coefficients column by column, and the place for what leaves the block.
using BlockRoom = std::int16_t[kBlock + kRoomBehindBlock];

struct DecodedBlock {
  bool valid = true;  // false: there is no such code
  bool flat = true;   // no coefficient but the first
  // At least the sum of all coefficients times their quantisers, by amount.
  std::uint32_t magnitude = 0;
};

// The difference of a DC coefficient to the one before; false when there is no such code.
inline bool decode_dc(BitReader& r, const DecodeTable& table, std::int32_t& difference) {
  r.need(kWordBits == 64 ? 32 : 16);
  const LookupEntry entry = table.lookup[r.peek(kLookupBits)];
  if ((entry & kWhole) != 0) [[likely]] {
    r.skip(static_cast<int>(entry & 0x7F));
    difference = static_cast<std::int32_t>(entry) >> 16;
    return true;
  }
  const Symbol size = r.symbol(table, entry);
  if (size.length == 0 || size.value > 16) return false;
  difference = extend(static_cast<std::int32_t>(r.take(size.value)), size.value);
  return true;
}

// `block` is all 0. The AC coefficients are stored; `weights` are their quantisers.
inline DecodedBlock decode_ac(BitReader& reader, const DecodeTable& table, const Quantiser& weights,
                              BlockRoom& block) {
  BitReader r = reader;
  DecodedBlock result;
  const LookupEntry* const lookup = table.lookup.data();
  const std::uint16_t* const weight = weights.data();
  int k = 1;
  do {
    r.need(kWordBits == 64 ? 32 : 16);
    const LookupEntry entry = lookup[r.peek(kLookupBits)];
    std::int32_t value = static_cast<std::int32_t>(entry) >> 16;
    if (value != 0) [[likely]] {
      r.skip(static_cast<int>(entry & 0x7F));
      k += static_cast<int>(entry >> 8 & 0xFF);
    } else {
      const Symbol symbol = r.symbol(table, entry);
      if (symbol.length == 0) {
        result.valid = false;
        break;
      }
      const int run = symbol.value >> 4;
      const int size = symbol.value & 15;
      if (size == 0) {
        if (run < 15) break;
        k += 16;
        continue;
      }
      k += run;
      value = extend(static_cast<std::int32_t>(r.take(size)), size);
    }
    block[kColumnOrder[k]] = static_cast<std::int16_t>(value);
    if (k < kBlock) {
      const auto amount = static_cast<std::uint32_t>(value < 0 ? -value : value);
      result.magnitude += amount * weight[k];
      result.flat = false;
    }
    ++k;
  } while (k < kBlock);
  reader = r;
  return result;
}

}  // namespace tq::formats
