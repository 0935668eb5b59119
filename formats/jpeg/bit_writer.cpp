#include "formats/jpeg/bit_writer.h"

#include <bit>
#include <cstring>

namespace tq::formats {
namespace {

constexpr bool has_ff(std::uint64_t bytes) {
  return ((~bytes - 0x0101010101010101u) & bytes & 0x8080808080808080u) != 0;
}

}  // namespace

void BitSink::flush() {
  if (count == 0) return;
  const int bytes = count / 8;
  const std::uint64_t top = word << (64 - count);
  if (!has_ff(top)) [[likely]] {
    std::uint64_t ordered = top;
    if constexpr (std::endian::native == std::endian::little) ordered = __builtin_bswap64(top);
    std::memcpy(next, &ordered, sizeof ordered);
    next += bytes;
  } else {
    for (int i = 0; i < bytes; ++i) {
      const auto byte = static_cast<std::uint8_t>(top >> (56 - 8 * i));
      *next++ = byte;
      if (byte == 0xFF) *next++ = 0;
    }
  }
  odd ^= (bytes & 1) != 0;
  count -= 8 * bytes;
}

Status BitWriter::allocate() {
  TQ_TRY(buffer_.allocate(kPiece + kBlockBytes));
  bits_.next = buffer_.data();
  return kOk;
}

Status BitWriter::write_bytes(int count) {
  std::uint8_t* const start = buffer_.data();
  const auto size = static_cast<std::size_t>(count);
  if (write(stream_, {start, size}) != count) return StatusCode::write_failed;
  const auto left = static_cast<std::size_t>(bits_.next - start) - size;
  std::memmove(start, start + size, left);
  bits_.next = start + left;
  return kOk;
}

Status BitWriter::write_piece() {
  return write_bytes(kPiece);
}

Status BitWriter::finish() {
  const int used = (bits_.count + (bits_.odd ? 8 : 0)) % 16;
  if (used != 0) bits_.put(0, 16 - used);
  bits_.flush();
  TQ_TRY(end_block());
  const auto left = static_cast<int>(bits_.next - buffer_.data());
  if (left != 0) TQ_TRY(write_bytes(left));
  *bits_.next++ = 0xFF;
  *bits_.next++ = 0xD9;
  return write_bytes(2);
}

}  // namespace tq::formats
