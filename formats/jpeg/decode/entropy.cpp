// Look-up tables of Huffman codes, and the way of entropy-coded data from the stream to a buffer,
// without the zero byte that follows each 0xFF: the bit reader then need not look at bytes.
#include "formats/jpeg/decode/entropy.h"

#include <algorithm>
#include <iterator>

namespace tq::jpeg {
namespace {

constexpr LookupEntry lookup_entry(HuffmanClass kind, int symbol, int length) {
  const bool is_dc = kind == HuffmanClass::dc;
  const int size = is_dc ? symbol : symbol & 15;
  const int run = is_dc ? 0 : symbol >> 4;
  if (length + size > kMostWhole || (is_dc ? size > 16 : size == 0)) {
    return kNoValue | symbol << 8 | length << 16;
  }
  return (length + size) | run << 8 | length << 16 | (kWordBits - 1 - size) << 24;
}

constexpr void build_lookup(const HuffmanSpec& spec, HuffmanClass kind, DecodeTable& table) {
  table.values = spec.values;
  std::uint32_t code = 0;
  int index = 0, filled = 0;
  for (int length = 1; length <= 16; ++length, code <<= 1) {
    table.offset[length] = index - code;
    for (int i = 0; i < spec.counts[length - 1]; ++i, ++index, ++code) {
      if (length > kLookupBits) continue;
      const LookupEntry entry = lookup_entry(kind, spec.values[index], length);
      const int end = filled + (1 << (kLookupBits - length));
      while (filled < end) table.lookup[filled++] = entry;
    }
    // Canonical codes leave no gap: everything below the limit belongs to this or a shorter length.
    table.limit[length] = code << (16 - length);
  }
  while (filled < 1 << kLookupBits) table.lookup[filled++] = kNoValue;
}

constexpr DecodeTable constant_table(const HuffmanSpec& spec, HuffmanClass kind) {
  DecodeTable table{};
  build_lookup(spec, kind, table);
  return table;
}

// The typical tables: luminance, chrominance.
constexpr HuffmanSpec kTypicalDc[] = {kDcLuminance, kDcChrominance};
constexpr HuffmanSpec kTypicalAc[] = {kAcLuminance, kAcChrominance};
constexpr DecodeTable kDcTables[] = {constant_table(kDcLuminance, HuffmanClass::dc),
                                     constant_table(kDcChrominance, HuffmanClass::dc)};
constexpr DecodeTable kAcTables[] = {constant_table(kAcLuminance, HuffmanClass::ac),
                                     constant_table(kAcChrominance, HuffmanClass::ac)};

constexpr int kRestartSearch = 50;  // bytes
constexpr int kEoi = 0xD9;

bool is_restart(int marker) {
  return (marker & 0xF8) == 0xD0;
}

}  // namespace

const DecodeTable& decode_table(const HuffmanSpec& spec, HuffmanClass kind, DecodeTable& own) {
  const auto& typical = kind == HuffmanClass::dc ? kTypicalDc : kTypicalAc;
  const auto& tables = kind == HuffmanClass::dc ? kDcTables : kAcTables;
  for (std::size_t i = 0; i < std::size(typical); ++i) {
    if (spec == typical[i]) return tables[i];
  }
  build_lookup(spec, kind, own);
  return own;
}

void EntropySource::start_scan(BitReader& reader) {
  ended_ = false;
  reader = {buffer_.data(), 0, 0};
  end_ = reader.next;
  std::memset(buffer_.data(), 0, kBlockRoom);
}

// Appends to the buffer until it is full or a marker comes.
void EntropySource::load(BitReader& reader) {
  std::uint8_t* const start = buffer_.data();
  const std::ptrdiff_t unread = end_ - reader.next;  // the data go on, so the reader is inside them
  if (unread > 0) std::memmove(start, reader.next, unread);
  std::uint8_t* to = start + unread;
  std::uint8_t* const full = start + kPiece;
  while (to < full && !ended_) {
    const auto piece = input_.peek(std::min<std::ptrdiff_t>(full - to, piece_));
    if (piece.empty()) {
      ended_ = true;
      break;
    }
    const auto* const found =
        static_cast<const std::uint8_t*>(std::memchr(piece.data(), 0xFF, piece.size()));
    const std::size_t plain = found == nullptr ? piece.size() : found - piece.data();
    std::memcpy(to, piece.data(), plain);
    to += plain;
    input_.skip(plain);
    if (found == nullptr) continue;
    const auto pair = input_.peek(2);
    if (pair.size() == 2 && pair[1] == 0) {
      *to++ = 0xFF;
      input_.skip(2);
    } else {
      ended_ = true;
    }
  }
  end_ = to;
  std::memset(to, 0, 2 * kBlockRoom);
  reader.next = start;
}

bool EntropySource::refill(BitReader& reader) {
  if (!ended_) load(reader);
  return intact(reader);
}

bool EntropySource::restart(BitReader& reader) {
  if (!intact(reader)) return false;
  std::int64_t skipped = bits_left(reader) / 8;
  if (!ended_) {
    if (skipped > kRestartSearch) return false;
    load(reader);
    skipped = bits_left(reader) / 8;
    if (!ended_) return false;
  }
  while (skipped <= kRestartSearch) {
    const auto pair = input_.peek(2);
    if (pair.size() < 2) return false;
    if (pair[0] == 0xFF && pair[1] == kEoi) return false;
    if (pair[0] == 0xFF && is_restart(pair[1])) {
      input_.skip(2);
      start_scan(reader);
      return true;
    }
    input_.skip(1);
    ++skipped;
  }
  return false;
}

void EntropySource::finish_scan(BitReader& reader) {
  while (!ended_) {
    reader = {end_, 0, 0};
    load(reader);
  }
}

}  // namespace tq::jpeg
