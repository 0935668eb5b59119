// Entropy-coded data on their way to the stream.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "core/memory.h"
#include "io/byte_stream.h"

namespace tq::formats {

// The registers of the block functions: codes, most significant bit first, without stuffed bytes.
struct BitSink {
  std::uint64_t word = 0;  // `count` bits are pending at its top, the others are 0
  int count = 0;           // below 8
  std::uint8_t* next = nullptr;

  // At most 32 bits; no bit of `code` above `length` is set. Eight bytes are written, whatever
  // their number, as that takes no decision.
  void put(std::uint32_t code, int length) {
    count += length;
    word |= static_cast<std::uint64_t>(code) << (64 - count);
    std::uint64_t ordered = word;
    if constexpr (std::endian::native == std::endian::little) ordered = __builtin_bswap64(word);
    std::memcpy(next, &ordered, sizeof ordered);
    next += count >> 3;
    word <<= count & ~7;
    count &= 7;
  }
};

// Stuffs a zero byte behind each 0xFF and writes pieces of exactly kPiece bytes: callers with
// output functions of their own see them.
class BitWriter {
 public:
  // Blocks that can be coded before the data have to move on.
  static constexpr int kMostBlocks = 128;

  explicit BitWriter(StreamHandle stream) : stream_(stream) {}

  Status allocate();
  BitSink& bits() { return bits_; }

  // Stuffs what has been coded and writes whole pieces.
  Status end_blocks();

  // When the blocks have ended: pads with zero bits, which callers rely on, to 16 bits; writes what
  // is left, and EOI.
  Status finish();

 private:
  static constexpr int kPiece = 20000;
  // A block has 64 codes of 26 bits at most; whole groups of eight bytes are written.
  static constexpr int kCodeBytes = kMostBlocks * 208 + 16;

  Status write_bytes(std::ptrdiff_t count);

  StreamHandle stream_;
  GlobalBlock buffer_;
  std::uint8_t* codes_ = nullptr;
  std::uint8_t *file_ = nullptr, *file_end_ = nullptr;  // bytes to write
  BitSink bits_;
  bool odd_ = false;  // whether an odd number of bytes has been coded, without stuffed ones
};

}  // namespace tq::formats
