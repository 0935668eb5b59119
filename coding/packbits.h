// PackBits: a count and so many bytes, or a count and one byte to be repeated (TIFF 6.0, section 9).
// The count 128 says nothing, or ends the data (ISO 32000-1, 7.4.5).
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "coding/bits.h"

namespace tq::packbits {

enum class Count128 : std::uint8_t { nothing, end };

// Runs may go on from one read into the next, unless they are cut there.
template <Count128 kCount128>
class RunDecoder {
 public:
  void start(coding::PieceSource data) {
    data_ = data;
    piece_ = {};
    left_ = 0;
  }

  // How many bytes there were; fewer at the end of the data.
  std::ptrdiff_t read(std::span<std::uint8_t> bytes) {
    std::uint8_t* to = bytes.data();
    std::uint8_t* const end = to + bytes.size();
    while (to != end && (left_ > 0 || next_run())) {
      std::ptrdiff_t count = std::min<std::ptrdiff_t>(left_, end - to);
      if (is_run_) {
        std::fill_n(to, count, value_);
      } else {
        if (!more()) break;
        count = std::min(count, std::ssize(piece_));
        std::copy_n(piece_.begin(), count, to);
        piece_ = piece_.subspan(count);
      }
      to += count;
      left_ -= count;
    }
    return to - bytes.data();
  }

  void cut_run() {
    while (!is_run_ && left_ > 0 && more()) {
      const std::ptrdiff_t count = std::min(left_, std::ssize(piece_));
      piece_ = piece_.subspan(count);
      left_ -= count;
    }
    left_ = 0;
  }

 private:
  static constexpr int k128 = 128;

  // Whether there is a byte.
  bool more() {
    if (piece_.empty()) piece_ = data_.next();
    return !piece_.empty();
  }
  int next_byte() {
    if (!more()) return -1;
    const int value = piece_.front();
    piece_ = piece_.subspan(1);
    return value;
  }
  bool next_run() {
    int count;
    do {
      count = next_byte();
    } while (count == k128 && kCount128 == Count128::nothing);
    if (count < 0) return false;
    if (count == k128) {
      start({});
      return false;
    }
    is_run_ = count > k128;
    left_ = is_run_ ? 257 - count : count + 1;
    if (!is_run_) return true;
    const int value = next_byte();
    value_ = byte(value);
    if (value < 0) left_ = 0;
    return value >= 0;
  }

  coding::PieceSource data_;
  std::span<const std::uint8_t> piece_{};
  std::ptrdiff_t left_ = 0;  // of the run, or of the bytes behind a count
  bool is_run_ = false;
  std::uint8_t value_ = 0;
};

using Decoder = RunDecoder<Count128::nothing>;

// Expands what was coded by itself, `kUnit` bytes behind a count of units; how many bytes there were:
// fewer where `coded` ends first.
template <int kUnit = 1>
std::ptrdiff_t decode(std::span<const std::uint8_t> coded, std::span<std::uint8_t> bytes) {
  constexpr int kNothing = 128;
  const std::uint8_t* from = coded.data();
  const std::uint8_t* const end = from + coded.size();
  std::uint8_t* to = bytes.data();
  std::ptrdiff_t free = std::ssize(bytes);
  while (from != end && free > 0) {
    const int count = *from++;
    if (count == kNothing) continue;
    const bool is_run = count > kNothing;
    const std::ptrdiff_t units = is_run ? 257 - count : count + 1;
    const std::ptrdiff_t wanted = std::min(kUnit * units, free);
    std::ptrdiff_t here = std::min(wanted, end - from);
    if (!is_run) {
      std::copy_n(from, here, to);
      from += here;
    } else if (end - from < kUnit) {
      break;
    } else {
      here = wanted;
      if constexpr (kUnit == 1) std::fill_n(to, here, *from);
      for (std::ptrdiff_t i = 0; kUnit > 1 && i < here; ++i) to[i] = from[i % kUnit];
      from += kUnit;
    }
    to += here;
    free -= here;
  }
  return to - bytes.data();
}

// How many bytes that would be with all the room that there is.
constexpr std::int64_t expanded_bytes(std::span<const std::uint8_t> coded, int unit) {
  std::int64_t bytes = 0;
  for (std::size_t i = 0; i < coded.size();) {
    const int count = coded[i++];
    if (count == 128) continue;
    const std::int64_t units = count > 128 ? 257 - count : count + 1;
    bytes += units * unit;
    i += static_cast<std::size_t>(unit * (count > 128 ? 1 : units));
  }
  return bytes;
}

// How far behind `out` so many bytes are coded at most.
constexpr std::int64_t most_bytes(std::int64_t bytes) {
  return bytes + bytes / 128 + 1;
}

// Codes all of them by themselves; the end of the coded bytes. A run of two is worth a count of its
// own only where no other bytes surround it.
inline std::uint8_t* encode(std::span<const std::uint8_t> bytes, std::uint8_t* out) {
  constexpr std::ptrdiff_t kMost = 128;
  const std::uint8_t* from = bytes.data();
  const std::uint8_t* const end = from + bytes.size();
  const std::uint8_t* plain = from;  // bytes from here on stand for themselves
  const auto put_plain = [&](const std::uint8_t* up_to) {
    while (plain < up_to) {
      const std::ptrdiff_t count = std::min(kMost, up_to - plain);
      *out++ = byte(count - 1);
      out = std::copy_n(plain, count, out);
      plain += count;
    }
  };
  while (from < end) {
    const std::uint8_t* const limit = from + std::min(kMost, end - from);
    const std::uint8_t* const behind =
        std::find_if(from + 1, limit, [&](std::uint8_t next) { return next != *from; });
    const std::ptrdiff_t count = behind - from;
    if (count >= 3 || (count == 2 && plain == from)) {
      put_plain(from);
      *out++ = byte(257 - count);
      *out++ = *from;
      plain = behind;
    }
    from = behind;
  }
  put_plain(end);
  return out;
}

}  // namespace tq::packbits
