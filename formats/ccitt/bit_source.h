// The bits of a stream, ahead of the decoder in a register.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "formats/ccitt/ccitt.h"
#include "io/chunk_reader.h"

namespace tq::formats {

// Reverses the bits of each of eight bytes.
constexpr std::uint64_t reverse_each_byte(std::uint64_t v) {
  v = (v >> 1 & 0x5555555555555555) | (v & 0x5555555555555555) << 1;
  v = (v >> 2 & 0x3333333333333333) | (v & 0x3333333333333333) << 2;
  return (v >> 4 & 0x0F0F0F0F0F0F0F0F) | (v & 0x0F0F0F0F0F0F0F0F) << 4;
}

// A copy of this lives in a decoder's registers: the next bits, the first in the top.
struct BitWindow {
  std::uint64_t bits = 0;  // at least `count` of them are right, the rest may be as well
  int count = 0;
  const std::uint8_t* next = nullptr;  // of the piece at hand
  std::int64_t left = 0;               // bytes at `next`

  void skip(int n) {
    bits <<= n;
    count -= n;
  }
  std::uint32_t peek(int n) const { return static_cast<std::uint32_t>(bits >> (64 - n)); }
  // Pieces are whole bytes, so the bits at hand end with one.
  void align() { skip(count & 7); }
};

// Behind the end there are zeros, of which no code is made.
template <bool kLsbFirst>
class BitSource {
 public:
  static constexpr int kAhead = 48;  // bits that are there after `fill`

  BitSource(ChunkReader& input, std::int64_t limit) : input_(input), limit_(limit) {}

  void fill(BitWindow& window) {
    if (window.count >= kAhead) return;
    if (window.left >= 8) {
      std::uint64_t v;
      static_assert(std::endian::native == std::endian::little);
      std::memcpy(&v, window.next, sizeof v);
      v = __builtin_bswap64(kLsbFirst ? reverse_each_byte(v) : v);
      window.bits |= v >> window.count;
      const int bytes = (63 - window.count) >> 3;
      window.next += bytes;
      window.left -= bytes;
      window.count += 8 * bytes;
    } else {
      window = fill_slowly(window);
    }
  }

  // Whether bits were used that the data do not have.
  bool overrun(const BitWindow& window) const { return window.count < padding_; }
  // Whether all that is left is zeros behind the end.
  bool at_end(const BitWindow& window) const { return padding_ > 0 && window.count <= padding_; }

 private:
  [[gnu::noinline]] BitWindow fill_slowly(BitWindow window) {
    while (window.count <= 56) {
      if (window.left == 0) next_piece(window);
      std::uint64_t byte = 0;
      if (window.left > 0) {
        byte = *window.next++;
        --window.left;
        if (kLsbFirst) byte = reverse_each_byte(byte);
      } else {
        padding_ += 8;
      }
      window.bits |= byte << (56 - window.count);
      window.count += 8;
    }
    return window;
  }
  void next_piece(BitWindow& window) {
    input_.skip(taken_);
    const auto wanted = static_cast<std::size_t>(limit_ < kCcittChunk ? limit_ : kCcittChunk);
    const auto piece = input_.peek(wanted);
    taken_ = piece.size();
    limit_ = piece.empty() ? 0 : limit_ - static_cast<std::int64_t>(piece.size());
    window.next = piece.data();
    window.left = static_cast<std::int64_t>(piece.size());
  }

  ChunkReader& input_;
  std::int64_t limit_;        // bytes not yet in a piece
  std::size_t taken_ = 0;     // bytes of the present piece
  std::int64_t padding_ = 0;  // bits that were made up
};

}  // namespace tq::formats
