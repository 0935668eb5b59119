// Huffman tables: canonical codes (ITU-T T.81 Annex C), look-ups for decoding, codes for encoding.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "formats/jpeg/tables.h"

namespace tq::formats {

// False when a code needs more bits than its length has.
bool codes_fit(const HuffmanSpec& spec);

// As wide as the processor's registers.
using BitWord = std::conditional_t<sizeof(void*) >= 8, std::uint64_t, std::uint32_t>;
inline constexpr int kWordBits = 8 * sizeof(BitWord);
// What a code and its value bits may take for both to be read at once.
inline constexpr int kMostWhole = kWordBits == 64 ? 32 : 24;

// What begins with the next kLookupBits bits: a code and, behind it, the bits of a value. Only the
// first field is waited for by the next look-up.
//   bits  0..7   length of both
//   bits  8..15  the zeros in front of the value
//   bits 16..23  length of the code
//   bits 24..29  kWordBits - 1 - length of the value
// or, with kNoValue set, a symbol that has no value or cannot be read at once:
//   bits  8..15  the symbol
//   bits 16..23  length of the code, 0: it is longer or there is none
using LookupEntry = std::uint32_t;
inline constexpr int kLookupBits = 10;
inline constexpr LookupEntry kNoValue = 0x80000000;

enum class HuffmanClass : std::uint8_t { dc, ac };

struct Symbol {
  int value = 0;
  int length = 0;  // bits; 0: no such code
};

struct DecodeTable {
  std::array<LookupEntry, std::size_t{1} << kLookupBits> lookup;
  // Codes longer than kLookupBits: one above the largest of each length, left-aligned in 16 bits,
  // and what takes a code to the index of its symbol.
  std::array<std::uint32_t, 17> limit;
  std::array<std::int32_t, 17> offset;
  std::array<std::uint8_t, 256> values;

  // The symbol at the start of these 16 bits, of a code that is not shorter than `length`.
  constexpr Symbol find(std::uint32_t bits, int length) const {
    for (; length <= 16; ++length) {
      if (bits < limit[length]) {
        const auto code = static_cast<std::int32_t>(bits >> (16 - length));
        return {values[code + offset[length]], length};
      }
    }
    return {};
  }
};

// The table of `spec`: a constant one when it is one of the typical tables, which most files have,
// else `own` after it has been built.
const DecodeTable& decode_table(const HuffmanSpec& spec, HuffmanClass kind, DecodeTable& own);

// The code of every symbol.
struct EncodeTable {
  std::array<std::uint16_t, 256> code;
  std::array<std::uint8_t, 256> length;
};
constexpr EncodeTable encode_table(const HuffmanSpec& spec) {
  EncodeTable table{};
  std::uint32_t code = 0;
  std::size_t index = 0;
  for (std::size_t length = 1; length <= 16; ++length, code <<= 1) {
    for (int i = 0; i < spec.counts[length - 1]; ++i, ++index, ++code) {
      table.code[spec.values[index]] = static_cast<std::uint16_t>(code);
      table.length[spec.values[index]] = static_cast<std::uint8_t>(length);
    }
  }
  return table;
}

// ITU-T T.81 Annex F, EXTEND: the value of `size` bits.
constexpr std::int32_t extend(std::int32_t bits, int size) {
  if (size == 0) return 0;
  return bits < 1 << (size - 1) ? bits - (1 << size) + 1 : bits;
}

constexpr LookupEntry lookup_entry(HuffmanClass kind, int symbol, int length) {
  const bool is_dc = kind == HuffmanClass::dc;
  const int size = is_dc ? symbol : symbol & 15;
  const int run = is_dc ? 0 : symbol >> 4;
  if (length + size > kMostWhole || (is_dc ? size > 16 : size == 0)) {
    return kNoValue | static_cast<LookupEntry>(symbol << 8 | length << 16);
  }
  return static_cast<LookupEntry>((length + size) | run << 8 | length << 16 |
                                  (kWordBits - 1 - size) << 24);
}

constexpr void build_lookup(const HuffmanSpec& spec, HuffmanClass kind, DecodeTable& table) {
  table.values = spec.values;
  std::uint32_t code = 0;
  std::int32_t index = 0;
  std::size_t filled = 0;
  for (int length = 1; length <= 16; ++length, code <<= 1) {
    table.offset[length] = index - static_cast<std::int32_t>(code);
    for (int i = 0; i < spec.counts[length - 1]; ++i, ++index, ++code) {
      if (length > kLookupBits) continue;
      const LookupEntry entry = lookup_entry(kind, spec.values[index], length);
      const std::size_t end = filled + (std::size_t{1} << (kLookupBits - length));
      while (filled < end) table.lookup[filled++] = entry;
    }
    // Canonical codes leave no gap: everything below the limit belongs to this or a shorter length.
    table.limit[length] = code << (16 - length);
  }
  while (filled < table.lookup.size()) table.lookup[filled++] = kNoValue;
}

}  // namespace tq::formats
