// A line stays in a row of the image for some pixels, and its columns follow each other; both change
// at places that are found by additions alone.
#include "process/geometry/turned_bits.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace tq::process {
namespace {

constexpr std::int64_t kOne = std::int64_t{1} << 32;

// How many steps a coordinate stays within a whole number, and then within the next one.
class Stays {
 public:
  Stays(std::int64_t at, std::int64_t step)
      : size_(std::abs(step)), falls_(step < 0), left_(INT_MAX) {
    if (size_ == 0) return;
    // What is left until the number changes: it rises to the next one, or falls below its own.
    const std::int64_t part = at & (kOne - 1), way = falls_ ? part + 1 : kOne - part;
    whole_ = kOne / size_;
    rest_ = kOne % size_;
    const std::int64_t steps = (way + size_ - 1) / size_;
    beyond_ = steps * size_ - way;
    left_ = clamped(steps);
  }
  int left() const { return left_; }
  int direction() const { return falls_ ? -1 : 1; }

  // Whether the number changes, some steps later.
  bool pass(int steps) {
    left_ -= steps;
    if (left_ > 0) return false;
    if (size_ == 0) {
      left_ = INT_MAX;
      return false;
    }
    // The way to the next change is one whole less what was gone beyond this one.
    const bool shorter = beyond_ >= rest_;
    left_ = clamped(shorter ? whole_ : whole_ + 1);
    beyond_ += (shorter ? 0 : size_) - rest_;
    return true;
  }

 private:
  static int clamped(std::int64_t steps) {
    return static_cast<int>(std::min<std::int64_t>(steps, INT_MAX));
  }
  std::int64_t size_;
  bool falls_;
  std::int64_t whole_ = 0, rest_ = 0, beyond_ = 0;
  int left_;
};

// At most 56 bits from `place` on, first in the top bit; behind them come any.
std::uint64_t bits_from(const std::uint8_t* row, std::ptrdiff_t row_bytes, std::int32_t place) {
  const std::ptrdiff_t at = place / 8;
  std::uint64_t bits = 0;
  if (at + 8 <= row_bytes) {
    std::memcpy(&bits, row + at, sizeof bits);
  } else {
    std::memcpy(&bits, row + at, static_cast<std::size_t>(row_bytes - at));
  }
  return __builtin_bswap64(bits) << place % 8;
}

// Writes bits behind those that a row has already.
class BitsToRow {
 public:
  BitsToRow(Row row, int first) : to_(row.data() + first / 8), filled_(first % 8) {
    if (filled_ > 0) held_ = std::uint64_t{*to_} << 56 >> (64 - filled_) << (64 - filled_);
  }
  // 1 to 56 of them.
  void put(std::uint64_t bits, int count) {
    bits = bits >> (64 - count) << (64 - count);
    held_ |= bits >> filled_;
    if (filled_ + count < 64) {
      filled_ += count;
      return;
    }
    const std::uint64_t stored = __builtin_bswap64(held_);
    std::memcpy(to_, &stored, sizeof stored);
    to_ += sizeof stored;
    held_ = bits << (64 - filled_);
    filled_ += count - 64;
  }
  void finish() {
    for (; filled_ >= 8; filled_ -= 8, held_ <<= 8) *to_++ = byte(held_ >> 56);
    if (filled_ > 0) *to_ = byte((held_ >> 56) | (*to_ & 0xFF >> filled_));
  }

 private:
  std::uint8_t* to_;
  std::uint64_t held_ = 0;
  int filled_;
};

}  // namespace

bool keeps_to_rows(const Walk& walk) {
  return std::abs(walk.x_step - kOne) <= kOne / 4 && std::abs(walk.y_step) <= kOne * 3 / 4;
}

void copy_turned_bits(const Walk& walk, std::ptrdiff_t row_bytes, Row row, int first, int last) {
  constexpr int kMost = 56;
  // Of the column, what it differs from one that rises by 1.
  Stays columns(walk.x, walk.x_step - kOne), rows(walk.y, walk.y_step);
  auto column = static_cast<std::int32_t>(walk.x >> 32);
  const std::uint8_t* from = walk.origin + static_cast<std::ptrdiff_t>(walk.y >> 32) * walk.stride;
  BitsToRow out(row, first);
  for (int at = first; at < last;) {
    const int count = std::min({columns.left(), rows.left(), last - at, kMost});
    out.put(bits_from(from, row_bytes, column), count);
    at += count;
    column += count;
    if (columns.pass(count)) column += columns.direction();
    if (rows.pass(count)) from += rows.direction() * walk.stride;
  }
  out.finish();
}

}  // namespace tq::process
