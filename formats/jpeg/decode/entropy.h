// Entropy-coded data: Huffman codes (ITU-T T.81 Annex C), the bits that hold them, and the bytes of
// a scan with the stuffed ones taken out.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/memory.h"
#include "formats/jpeg/tables.h"
#include "io/chunk_reader.h"

namespace tq::jpeg {

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
  std::array<LookupEntry, 1 << kLookupBits> lookup;
  // Codes longer than kLookupBits: one above the largest of each length, left-aligned in 16 bits,
  // and what takes a code to the index of its symbol.
  std::array<std::uint32_t, 17> limit;
  std::array<std::int32_t, 17> offset;
  std::array<std::uint8_t, 256> values;

  // The symbol at the start of these 16 bits, of a code that is not shorter than `length`.
  constexpr Symbol find(std::uint32_t bits, int length) const {
    for (; length <= 16; ++length) {
      if (bits < limit[length]) {
        const int code = bits >> (16 - length);
        return {values[code + offset[length]], length};
      }
    }
    return {};
  }
};

// The table of `spec`: a constant one when it is one of the typical tables, which most files have,
// else `own` after it has been built.
const DecodeTable& decode_table(const HuffmanSpec& spec, HuffmanClass kind, DecodeTable& own);

// ITU-T T.81 Annex F, EXTEND: the value of `size` bits.
constexpr std::int32_t extend(std::int32_t bits, int size) {
  if (size == 0) return 0;
  return bits < 1 << (size - 1) ? bits - (1 << size) + 1 : bits;
}

struct Value {
  std::int32_t value = 0;
  std::uint32_t magnitude = 0;
};

// Reads past what it is told to read: behind the data there are always enough zero bytes for a
// block (see EntropySource), so nothing here asks where they end. A plain value: the block
// functions keep a copy in registers. coding::BitReader, which asks, takes an eighth longer.
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
    Symbol found{byte(entry >> 8), byte(entry >> 16)};
    if (found.length == 0) found = table.find(peek(16), kLookupBits + 1);
    skip(found.length);
    return found;
  }
  // The value of `entry`, which has not kNoValue. ITU-T T.81 Annex F, EXTEND: the value is negative
  // when its first bit is 0, and then the complement of its magnitude.
  Value value(LookupEntry entry) {
    const BitWord word = bits << (entry >> 16 & (kWordBits - 1));
    const std::make_signed_t<BitWord> inverted = ~word;
    const BitWord sign = inverted >> (kWordBits - 1);
    const BitWord magnitude = (word ^ sign) >> 1 >> (entry >> 24);
    skip(byte(entry));
    return {static_cast<std::int32_t>((magnitude ^ sign) - sign),
            static_cast<std::uint32_t>(magnitude)};
  }
};

// More than any block takes: 64 codes of 16 bits with 16 value bits each, and a word beyond.
inline constexpr int kBlockRoom = 64 * 4 + 24;

class EntropySource {
 public:
  EntropySource(ChunkReader& input, bool byte_by_byte)
      : input_(input), piece_(byte_by_byte ? 1 : kPiece) {}

  Status allocate() { return buffer_.allocate(kPiece + 2 * kBlockRoom); }

  void start_scan(BitReader& reader);

  // To be called before every block: makes room for it. False when the data ended before the
  // last one was whole.
  bool prepare(BitReader& reader) {
    if (end_ - reader.next >= kBlockRoom) [[likely]]
      return true;
    // A copy, so that the caller's own can stay in registers.
    BitReader copy = reader;
    const bool prepared = refill(copy);
    reader = copy;
    return prepared;
  }
  // Whether all bits read so far were there.
  bool intact(const BitReader& reader) const { return bits_left(reader) >= 0; }

  // Behind the next restart marker: its number, modulo 8; -1 when there is none in the next 50 bytes.
  int restart(BitReader& reader);

  // The same however far it is, if it is not one of the two in front of that with the number
  // `expected`, which are repeated; -1 when the scan has no other marker.
  int find_restart(BitReader& reader, int expected, bool& some_repeated);

  // What is wrong when the data do not go on.
  StatusCode end_reason() const;

  // Skips what is left of the scan's data.
  void finish_scan(BitReader& reader);

 private:
  static constexpr int kPiece = 16 * 1024;
  static constexpr int kNoMarker = -1;

  bool refill(BitReader& reader);
  void load(BitReader& reader);
  std::int64_t bits_left(const BitReader& reader) const {
    return std::int64_t{end_ - reader.next} * 8 + reader.count;
  }

  ChunkReader& input_;
  int piece_;  // bytes to ask for at a time
  GlobalBlock buffer_;
  const std::uint8_t* end_ = nullptr;  // of the data in the buffer; zeros follow
  bool ended_ = false;                 // at a marker, or because there is no more
  int marker_ = kNoMarker;             // at which they ended
};

}  // namespace tq::jpeg
