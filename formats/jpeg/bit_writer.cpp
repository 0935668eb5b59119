#include "formats/jpeg/bit_writer.h"

#include <algorithm>

namespace tq::formats {
namespace {

constexpr bool has_ff(std::uint64_t bytes) {
  return ((~bytes - 0x0101010101010101u) & bytes & 0x8080808080808080u) != 0;
}

// Copies with a zero byte behind each 0xFF, in groups of eight bytes: up to seven more are read and
// written. The end of the copy.
std::uint8_t* copy_stuffed(const std::uint8_t* from, const std::uint8_t* end, std::uint8_t* to) {
  for (; from < end; from += 8) {
    std::uint64_t group;
    std::memcpy(&group, from, sizeof group);
    const std::ptrdiff_t count = std::min<std::ptrdiff_t>(end - from, 8);
    if (!has_ff(group)) [[likely]] {
      std::memcpy(to, &group, sizeof group);
      to += count;
      continue;
    }
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      *to++ = from[i];
      if (from[i] == 0xFF) *to++ = 0;
    }
  }
  return to;
}

}  // namespace

Status BitWriter::allocate() {
  // Codes first, then what is to be written: less than a piece, and each code twice at most.
  TQ_TRY(buffer_.allocate(kPiece + 3 * kCodeBytes));
  codes_ = buffer_.data();
  file_ = file_end_ = codes_ + kCodeBytes;
  bits_.next = codes_;
  return kOk;
}

Status BitWriter::end_blocks() {
  std::memset(bits_.next, 0, 8);  // read with the last group
  file_end_ = copy_stuffed(codes_, bits_.next, file_end_);
  odd_ ^= ((bits_.next - codes_) & 1) != 0;
  bits_.next = codes_;
  while (file_end_ - file_ >= kPiece) TQ_TRY(write_bytes(kPiece));
  return kOk;
}

Status BitWriter::write_bytes(std::ptrdiff_t count) {
  const auto size = static_cast<std::size_t>(count);
  if (write(stream_, {file_, size}) != static_cast<std::int32_t>(count)) {
    return StatusCode::write_failed;
  }
  file_end_ -= count;
  std::memmove(file_, file_ + count, static_cast<std::size_t>(file_end_ - file_));
  return kOk;
}

Status BitWriter::finish() {
  const int used = bits_.count + (odd_ ? 8 : 0);
  if (used != 0) bits_.put(0, 16 - used);
  TQ_TRY(end_blocks());
  if (file_end_ != file_) TQ_TRY(write_bytes(file_end_ - file_));
  *file_end_++ = 0xFF;
  *file_end_++ = 0xD9;
  return write_bytes(2);
}

}  // namespace tq::formats
