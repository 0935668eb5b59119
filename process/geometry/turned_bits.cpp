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
  Stays(std::int64_t at, std::int64_t step) : size_(std::abs(step)), falls_(step < 0) {
    if (size_ == 0) return;
    // What is left until the number changes: it rises to the next one, or falls below its own.
    const std::int64_t part = at & (kOne - 1), way = falls_ ? part + 1 : kOne - part;
    whole_ = clamped(kOne / size_);
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
    // The way to the next change is one whole less what was gone beyond this one. No branch: nobody can
    // foresee it.
    const int longer = static_cast<int>(beyond_ < rest_);
    left_ = whole_ + longer;
    beyond_ += (size_ & -std::int64_t{longer}) - rest_;
    return true;
  }

 private:
  static constexpr int kMost = INT_MAX - 1;
  static int clamped(std::int64_t steps) {
    return static_cast<int>(std::min<std::int64_t>(steps, kMost));
  }
  std::int64_t size_;
  bool falls_;
  std::int64_t rest_ = 0, beyond_ = 0;
  int whole_ = kMost, left_ = kMost;
};

// At most 56 bits from `place` on, first in the top bit; behind them come any.
std::uint64_t bits_from(const std::uint8_t* row, std::ptrdiff_t row_bytes, std::int32_t place) {
  const std::ptrdiff_t at = place >> 3;
  std::uint64_t bits = 0;
  if (at + 8 <= row_bytes) {
    std::memcpy(&bits, row + at, sizeof bits);
  } else {
    std::memcpy(&bits, row + at, static_cast<std::size_t>(row_bytes - at));
  }
  return __builtin_bswap64(bits) << (place & 7);
}

// Writes bits behind each other into rows that are `stride` apart. Behind what was written last, up to eight
// bytes are written as well.
template <int kRows>
class BitsToRows {
 public:
  // Behind the first `first` bits, of which a row keeps those of the last byte.
  BitsToRows(std::uint8_t* to, std::ptrdiff_t stride, int first)
      : to_(to + first / 8), stride_(stride), filled_(first % 8) {
    for (int k = 0; k < kRows; ++k) {
      held_[k] = std::uint64_t(to_[k * stride] & 0xFF00 >> filled_) << 56;
    }
  }
  // 1 to 56 of them for each row, first in the top bit; behind them come any.
  void put(const std::uint64_t (&bits)[kRows], int count) {
    filled_ += count;
    const int bytes = filled_ >> 3;
    for (int k = 0; k < kRows; ++k) {
      held_[k] |= bits[k] >> (64 - count) << (64 - count) >> (filled_ - count);
      const std::uint64_t stored = __builtin_bswap64(held_[k]);
      std::memcpy(to_ + k * stride_, &stored, sizeof stored);
      held_[k] <<= 8 * bytes;
    }
    filled_ &= 7;
    to_ += bytes;
  }

 private:
  std::uint8_t* to_;
  std::ptrdiff_t stride_;
  std::uint64_t held_[kRows];
  int filled_;
};

// `take(from, column, count)` for each part of a walk that stays in a row and whose columns follow each other.
template <class Take>
void walk_bits(const Walk& walk, int count, Take&& take) {
  constexpr int kMost = 56, kAhead = 8;
  // Of the column, what it differs from one that rises by 1.
  Stays columns(walk.x, walk.x_step - kOne), rows(walk.y, walk.y_step);
  auto column = static_cast<std::int32_t>(walk.x >> 32);
  const std::uint8_t* from = walk.origin + static_cast<std::ptrdiff_t>(walk.y >> 32) * walk.stride;
  const std::ptrdiff_t next_row = rows.direction() * walk.stride;
  while (count > 0) {
    const int stretch = std::min(columns.left(), count);
    count -= stretch;
    for (int left = stretch; left > 0;) {
      const int part = std::min({rows.left(), left, kMost});
      // Rows to come: processors do not foresee the few lines of memory that are new in each.
      __builtin_prefetch(from + kAhead * walk.stride + (column >> 3));
      take(from, column, part);
      left -= part;
      column += part;
      if (rows.pass(part)) from += next_row;
    }
    if (columns.pass(stretch)) column += columns.direction();
  }
}

}  // namespace

bool keeps_to_rows(const Walk& walk) {
  return std::abs(walk.x_step - kOne) <= kOne / 4 && std::abs(walk.y_step) <= kOne * 3 / 4;
}

Status TurnedBits::allocate(int width, std::int64_t source_bytes) {
  source_bytes_ = static_cast<std::ptrdiff_t>(source_bytes);
  stride_ = static_cast<std::ptrdiff_t>(row_bytes(width, 1) + 8);
  return rows_.allocate(4 * std::int64_t{stride_});
}

void TurnedBits::copy_nearest(const Walk& walk, Row row, int first, int last) {
  const int begin = first / 8, end = (last + 7) / 8;
  std::uint8_t* const bits = rows_.data();
  bits[begin] = row[begin];
  BitsToRows<1> out(bits, 0, first);
  walk_bits(walk, last - first, [&](const std::uint8_t* from, std::int32_t column, int count) {
    out.put({bits_from(from, source_bytes_, column)}, count);
  });
  const int kept = last % 8 == 0 ? 0 : 0xFF >> last % 8;
  bits[end - 1] = byte((bits[end - 1] & ~kept) | (row[end - 1] & kept));
  std::copy(bits + begin, bits + end, row.begin() + begin);
}

void TurnedBits::blend(const Walk& walk, Row row, int first, int last) {
  std::uint8_t* const bits = rows_.data();
  // Those of the pixel, of the one beside it, and of both below.
  BitsToRows<4> out(bits, stride_, first);
  walk_bits(walk, last - first, [&](const std::uint8_t* from, std::int32_t column, int count) {
    const std::uint64_t above = bits_from(from, source_bytes_, column);
    const std::uint64_t below = bits_from(from + walk.stride, source_bytes_, column);
    out.put({above, above << 1, below, below << 1}, count);
  });
  for (int at = first; at < last; at += 64) {
    const int count = std::min(64, last - at);
    std::uint64_t four[4];
    for (int k = 0; k < 4; ++k) {
      std::memcpy(&four[k], bits + k * stride_ + at / 8, sizeof four[k]);
      four[k] = __builtin_bswap64(four[k]);
    }
    std::uint64_t white = four[0] & four[1] & four[2] & four[3];
    std::uint64_t mixed = ((four[0] | four[1] | four[2] | four[3]) ^ white) >> (64 - count)
                                                                                   << (64 - count);
    while (mixed != 0) {
      const int place = __builtin_clzll(mixed);
      const auto bit = [&](int k) { return static_cast<int>(four[k] >> (63 - place) & 1); };
      const std::int64_t steps = at - first + place;
      const int fx = static_cast<int>((walk.x + steps * walk.x_step) >> 24 & 255);
      const int fy = static_cast<int>((walk.y + steps * walk.y_step) >> 24 & 255);
      const int above = bit(0) * (256 - fx) + bit(1) * fx;
      const int below = bit(2) * (256 - fx) + bit(3) * fx;
      const std::uint64_t mask = std::uint64_t{1} << 63 >> place;
      if (above * (256 - fy) + below * fy >= 32768) white |= mask;
      mixed ^= mask;
    }
    const std::uint64_t stored = __builtin_bswap64(white);
    std::memcpy(row.data() + at / 8, &stored, static_cast<std::size_t>((count + 7) / 8));
  }
}

}  // namespace tq::process
