// Moves entropy-coded data from the stream to a buffer, without the zero byte that follows each
// 0xFF: the bit reader then need not look at bytes.
#include "formats/jpeg/entropy_source.h"

#include <algorithm>
#include <cstring>

namespace tq::formats {
namespace {

constexpr int kRestartSearch = 50;  // bytes
constexpr int kEoi = 0xD9;

bool is_restart(int byte) {
  return (byte & 0xF8) == 0xD0;
}

}  // namespace

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
  if (unread > 0) std::memmove(start, reader.next, static_cast<std::size_t>(unread));
  std::uint8_t* to = start + unread;
  std::uint8_t* const full = start + kPiece;
  while (to < full && !ended_) {
    const auto room = static_cast<std::size_t>(std::min<std::ptrdiff_t>(full - to, step_));
    const auto piece = input_.peek(room);
    if (piece.empty()) {
      ended_ = true;
      break;
    }
    const void* found = std::memchr(piece.data(), 0xFF, piece.size());
    const std::size_t plain =
        found == nullptr
            ? piece.size()
            : static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - piece.data());
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

}  // namespace tq::formats
