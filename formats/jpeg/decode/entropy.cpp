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
      marker_ = kNoMarker;
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
      marker_ = pair.size() == 2 ? pair[1] : kNoMarker;
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

int EntropySource::restart(BitReader& reader) {
  if (!intact(reader)) return -1;
  std::int64_t skipped = bits_left(reader) / 8;
  if (!ended_) {
    if (skipped > kRestartSearch) return -1;
    load(reader);
    skipped = bits_left(reader) / 8;
    if (!ended_) return -1;
  }
  while (skipped <= kRestartSearch) {
    const auto pair = input_.peek(2);
    marker_ = pair.size() == 2 ? pair[1] : kNoMarker;
    if (marker_ == kNoMarker) return -1;
    if (pair[0] == 0xFF && marker_ == kEoi) return -1;
    if (pair[0] == 0xFF && is_restart(marker_)) {
      input_.skip(2);
      start_scan(reader);
      return marker_ & 7;
    }
    input_.skip(1);
    ++skipped;
  }
  return -1;
}

int EntropySource::find_restart(BitReader& reader, int expected, bool& some_repeated) {
  constexpr int kFirstMarker = 0xC0, kMostRepeated = 2;
  finish_scan(reader);
  for (;;) {
    const auto pair = input_.peek(2);
    marker_ = pair.size() == 2 ? pair[1] : kNoMarker;
    if (marker_ == kNoMarker) return -1;
    if (pair[0] != 0xFF || marker_ == 0xFF || marker_ < kFirstMarker) {
      input_.skip(1);
      continue;
    }
    if (!is_restart(marker_)) return -1;
    input_.skip(2);
    if (((marker_ - expected) & 7) >= 8 - kMostRepeated) {
      some_repeated = true;
      continue;
    }
    start_scan(reader);
    return marker_ & 7;
  }
}

StatusCode EntropySource::end_reason() const {
  const bool no_more = ended_ && (marker_ == kNoMarker || marker_ == kEoi);
  return no_more ? StatusCode::read_failed : StatusCode::bad_image;
}

void EntropySource::finish_scan(BitReader& reader) {
  while (!ended_) {
    reader = {end_, 0, 0};
    load(reader);
  }
}

}  // namespace tq::jpeg
