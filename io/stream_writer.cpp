// Gathering and writing.
#include "io/stream_writer.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "io/endian.h"

namespace tq {

Status StreamWriter::open(StreamHandle stream, std::int32_t piece_bytes) {
  stream_ = stream;
  owner_ = nullptr;
  piece_ = piece_bytes;
  used_ = 0;
  written_ = 0;
  status_ = buffer_.allocate(piece_bytes);
  return status_;
}

void StreamWriter::put_le16(std::uint32_t value) {
  if (std::uint8_t* at = place(2); at != nullptr) store_le16(at, word(value));
}
void StreamWriter::put_le32(std::uint32_t value) {
  if (std::uint8_t* at = place(4); at != nullptr) store_le32(at, value);
}
void StreamWriter::put_be16(std::uint32_t value) {
  if (std::uint8_t* at = place(2); at != nullptr) store_be16(at, word(value));
}
void StreamWriter::put_be32(std::uint32_t value) {
  if (std::uint8_t* at = place(4); at != nullptr) store_be32(at, value);
}

void StreamWriter::put(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    if (used_ >= piece_) (void)flush();
    if (status_.failed()) return;
    const auto part = bytes.first(std::min(std::ssize(bytes), piece_ - used_));
    std::copy(part.begin(), part.end(), buffer_.data() + used_);
    used_ += std::ssize(part);
    bytes = bytes.subspan(part.size());
    if (used_ == piece_) (void)flush();
  }
}

void StreamWriter::put(std::string_view text) {
  put(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

void StreamWriter::fill(std::int64_t count, int value) {
  while (count > 0 && status_.ok()) {
    const std::span<std::uint8_t> bytes = room(std::min<std::int64_t>(count, piece_));
    std::fill(bytes.begin(), bytes.end(), byte(value));
    take(std::ssize(bytes));
    count -= std::ssize(bytes);
  }
}

std::span<std::uint8_t> StreamWriter::room(std::int64_t bytes) {
  if (bytes > std::ssize(buffer_.bytes()) - used_) {
    (void)flush();
    if (status_.ok() && bytes > std::ssize(buffer_.bytes())) {
      status_ = buffer_.allocate(bytes);
    }
  }
  if (status_.failed()) return {};
  return buffer_.bytes().subspan(used_, static_cast<std::size_t>(bytes));
}

Status StreamWriter::flush() {
  TQ_TRY(status_);
  const std::ptrdiff_t count = std::exchange(used_, 0);
  const std::span<std::uint8_t> bytes = buffer_.bytes().first(count);
  const std::int32_t put =
      owner_ != nullptr ? write_to_owner_(owner_, bytes) : write(stream_, bytes);
  if (put != count) status_ = StatusCode::write_failed;
  written_ += count;
  return status_;
}

Status StreamWriter::patch(std::int32_t at, std::span<const std::uint8_t> bytes) {
  TQ_TRY(flush());
  const std::int32_t end = position(stream_);
  if (end < 0 || seek(stream_, at, Origin::start) != at) status_ = StatusCode::write_failed;
  const std::int64_t before = written_;
  put(bytes);
  (void)flush();
  written_ = before;
  if (status_.ok() && seek(stream_, end, Origin::start) != end) status_ = StatusCode::write_failed;
  return status_;
}

Status StreamWriter::patch_put(std::int64_t count, std::span<const std::uint8_t> bytes) {
  TQ_TRY(flush());
  const std::int64_t at = position(stream_) - (written_ - count);
  if (at < 0) return status_ = StatusCode::write_failed;
  return patch(static_cast<std::int32_t>(at), bytes);
}

}  // namespace tq
