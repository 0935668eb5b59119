// Entropy-coded data on their way to the stream.
#pragma once

#include <cstdint>

#include "core/memory.h"
#include "io/byte_stream.h"

namespace tq::formats {

// The registers of the block functions. Codes come together most significant bit first, and a zero
// byte is stuffed behind each 0xFF.
struct BitSink {
  std::uint64_t word = 0;  // the low `count` bits are pending
  int count = 0;           // to 64
  bool odd = false;        // whether an odd number of bytes has been put out, without stuffed ones
  std::uint8_t* next = nullptr;

  // At most 32 bits; no bit of `code` above `length` is set.
  void put(std::uint32_t code, int length) {
    if (count + length > 64) flush();
    word = word << length | code;
    count += length;
  }
  // Puts the whole bytes out. The next eight bytes are written to, whatever their number.
  void flush();
};

// Writes pieces of exactly kPiece bytes: callers with output functions of their own see them.
class BitWriter {
 public:
  explicit BitWriter(StreamHandle stream) : stream_(stream) {}

  Status allocate();
  BitSink& bits() { return bits_; }

  // After every block, which has at most kBlockBytes: writes what is a whole piece.
  Status end_block() {
    if (bits_.next - buffer_.data() < kPiece) [[likely]]
      return kOk;
    return write_piece();
  }

  // Pads with zero bits, which callers rely on, to 16 bits; writes what is left, and EOI.
  Status finish();

 private:
  static constexpr int kPiece = 20000;
  static constexpr int kBlockBytes = 1024;

  Status write_piece();
  Status write_bytes(int count);

  StreamHandle stream_;
  GlobalBlock buffer_;
  BitSink bits_;
};

}  // namespace tq::formats
