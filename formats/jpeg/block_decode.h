// One block of a sequential scan.
#pragma once

#include <array>
#include <cstdint>

#include "formats/jpeg/bit_reader.h"
#include "formats/jpeg/frame.h"

namespace tq::formats {

// What happens to the coefficient at each place of the zigzag sequence, and behind it.
struct Place {
  std::uint16_t step;      // its quantiser
  std::uint16_t position;  // in the block, column by column
};
using Places = std::array<Place, kBlock + kRoomBehindBlock>;

inline Places places_of(const Quantiser& quantiser) {
  Places places{};
  for (std::size_t k = 0; k < places.size(); ++k) {
    places[k] = {k < kBlock ? quantiser[k] : std::uint16_t{0}, kColumnOrder[k]};
  }
  return places;
}

// Moves the predictor on to the block's DC coefficient; false when there is no such code.
inline bool decode_dc(BitReader& r, const DecodeTable& table, std::int32_t& predictor) {
  r.need(kMostWhole);
  const LookupEntry entry = table.lookup[r.peek(kLookupBits)];
  std::int32_t difference = 0;
  if ((entry & kNoValue) == 0) [[likely]] {
    difference = r.value(entry).value;
  } else {
    const Symbol size = r.symbol(table, entry);
    if (size.length == 0 || size.value > 16) return false;
    difference = extend(static_cast<std::int32_t>(r.take(size.value)), size.value);
  }
  predictor = static_cast<std::int32_t>(static_cast<std::uint32_t>(predictor) +
                                        static_cast<std::uint32_t>(difference));
  return true;
}

// The AC coefficients of a block that is all 0, the first one apart.
struct AcResult {
  bool valid;               // false: there is no such code
  std::uint32_t magnitude;  // the sum of the coefficients times their quantisers, by amount
};
inline AcResult decode_ac(BitReader& reader, const DecodeTable& table, const Places& places,
                          std::int16_t* block) {
  BitReader r = reader;
  std::uint32_t magnitude = 0;
  int k = 1;
  const auto store_value = [&](int run, Value v) {
    const Place place = places[k + run];
    magnitude += v.amount * place.step;
    block[place.position] = static_cast<std::int16_t>(v.value);
    k += run + 1;
  };
  const auto store = [&](LookupEntry entry) {
    store_value(static_cast<int>(entry >> 8 & 0xFF), r.value(entry));
  };
  bool valid = true;
  do {
    r.refill();
    LookupEntry entry = table.lookup[r.peek(kLookupBits)];
    if ((entry & kNoValue) == 0) [[likely]] {
      store(entry);
      if (kWordBits == 32 || k >= kBlock) continue;
      // What is left is enough for another one.
      entry = table.lookup[r.peek(kLookupBits)];
      if ((entry & kNoValue) == 0) [[likely]] {
        store(entry);
        continue;
      }
    }
    const Symbol symbol = r.symbol(table, entry);
    const int run = symbol.value >> 4;
    const int size = symbol.value & 15;
    if (size != 0) {
      const std::int32_t value = extend(static_cast<std::int32_t>(r.take(size)), size);
      store_value(run, {value, static_cast<std::uint32_t>(value < 0 ? -value : value)});
    } else if (run == 15) {
      k += 16;
    } else {
      valid = symbol.length != 0;
      break;
    }
  } while (k < kBlock);
  reader = r;
  return {valid, magnitude};
}

}  // namespace tq::formats
