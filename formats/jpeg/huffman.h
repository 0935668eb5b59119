// Huffman tables: canonical codes (ITU-T T.81 Annex C), look-ups for decoding, codes for encoding.
#pragma once

#include <array>
#include <cstdint>

#include "formats/jpeg/tables.h"

namespace tq::formats {

// False when a code needs more bits than its length has.
bool codes_fit(const HuffmanSpec& spec);

// What stands in the next kLookupBits bits, if it is there in whole: a symbol and, behind it, the
// value bits that the symbol announces, already made a value.
//   bits  0..6   how many bits that takes, 0: the code is longer or there is none
//   bit   7      kWhole: the value is there; else the symbol alone is
//   bits  8..15  whole: the zeros in front of the value; else the symbol
//   bits 16..31  the value, signed; never 0 in an entry of an AC table that is whole
using LookupEntry = std::uint32_t;
inline constexpr int kLookupBits = 10;
inline constexpr LookupEntry kWhole = 0x80;

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
        return {values[static_cast<std::size_t>(code + offset[length])], length};
      }
    }
    return {};
  }
};

constexpr void build_lookup(const HuffmanSpec& spec, HuffmanClass kind, DecodeTable& table);

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

constexpr LookupEntry symbol_entry(int symbol, int length) {
  return static_cast<LookupEntry>(symbol) << 8 | static_cast<LookupEntry>(length);
}

// The entries of all continuations of one code.
constexpr void fill_code(HuffmanClass kind, int symbol, int length, LookupEntry* entries) {
  const int free_bits = kLookupBits - length;
  const bool is_dc = kind == HuffmanClass::dc;
  const int size = is_dc ? symbol : symbol & 15;
  const int run = is_dc ? 0 : symbol >> 4;
  if (size > free_bits || (size == 0 && !is_dc)) {
    for (int i = 0; i < 1 << free_bits; ++i) entries[i] = symbol_entry(symbol, length);
    return;
  }
  const int same = 1 << (free_bits - size);  // entries per value
  const LookupEntry rest =
      kWhole | static_cast<LookupEntry>(run) << 8 | static_cast<LookupEntry>(length + size);
  for (int value_bits = 0; value_bits < 1 << size; ++value_bits) {
    const LookupEntry entry = static_cast<LookupEntry>(extend(value_bits, size)) << 16 | rest;
    for (int i = 0; i < same; ++i) *entries++ = entry;
  }
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
      fill_code(kind, spec.values[index], length, &table.lookup[filled]);
      filled += std::size_t{1} << (kLookupBits - length);
    }
    // Canonical codes leave no gap: everything below the limit belongs to this or a shorter length.
    table.limit[length] = code << (16 - length);
  }
  for (; filled < table.lookup.size(); ++filled) table.lookup[filled] = 0;
}

}  // namespace tq::formats
