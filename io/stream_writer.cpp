// Gathering and writing.
#include "io/stream_writer.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "io/endian.h"

namespace tq {
namespace {

constexpr std::int32_t kGatheredBytes = 128 * 1024;

}  // namespace

Status StreamWriter::open(StreamHandle stream, std::int32_t piece_bytes) {
  stream_ = stream;
  owner_ = nullptr;
  gathers_ = is_own_file(stream);
  piece_ = gathers_ ? kGatheredBytes : piece_bytes;
  used_ = 0;
  written_ = 0;
  status_ = buffer_.allocate(gathers_ ? 2 * piece_ : piece_);
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
    if (used_ >= piece_) make_room();
    if (status_.failed()) return;
    const auto part = bytes.first(std::min(std::ssize(bytes), piece_ - used_));
    std::copy(part.begin(), part.end(), buffer_.data() + used_);
    used_ += std::ssize(part);
    bytes = bytes.subspan(part.size());
    if (used_ == piece_) make_room();
  }
}

bool StreamWriter::put_whole(std::span<const std::uint8_t> bytes) {
  if (owner_ != nullptr || !takes_bytes_as_they_are(stream_)) return false;
  if (flush().failed()) return true;
  const std::span unchanged(const_cast<std::uint8_t*>(bytes.data()), bytes.size());
  if (write(stream_, unchanged) != std::ssize(bytes)) status_ = StatusCode::write_failed;
  written_ += std::ssize(bytes);
  return true;
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
  const bool piece_is_full = gathers_ && used_ >= piece_;
  if (piece_is_full || bytes > std::ssize(buffer_.bytes()) - used_) {
    make_room();
    if (used_ > 0 && bytes > std::ssize(buffer_.bytes()) - used_) (void)flush();
    if (status_.ok() && bytes > std::ssize(buffer_.bytes())) {
      status_ = buffer_.allocate(bytes);
    }
  }
  if (status_.failed()) return {};
  return buffer_.bytes().subspan(used_, static_cast<std::size_t>(bytes));
}

Status StreamWriter::flush() {
  TQ_TRY(status_);
  return write_first(used_);
}

// Of an own file pieces are of one size: the system writes what begins and ends at large powers of two
// twice as fast as other parts.
void StreamWriter::make_room() {
  if (status_.ok()) (void)write_first(gathers_ ? used_ / piece_ * piece_ : used_);
}

Status StreamWriter::write_first(std::ptrdiff_t count) {
  const std::span<std::uint8_t> bytes = buffer_.bytes().first(count);
  used_ -= count;
  const std::int32_t put =
      owner_ != nullptr ? write_to_owner_(owner_, bytes) : write(stream_, bytes);
  if (put != count) status_ = StatusCode::write_failed;
  written_ += count;
  std::copy_n(bytes.data() + count, used_, bytes.data());
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
