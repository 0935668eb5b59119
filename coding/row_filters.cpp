// All filters are tried, and the one is taken whose differences are smallest.
#include "coding/row_filters.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "core/numbers.h"

namespace tq::coding {
namespace {

int nearest(int left, int up, int corner) {
  const int to_left = std::abs(up - corner), to_up = std::abs(left - corner);
  const int to_corner = std::abs(left + up - 2 * corner);
  if (to_left <= to_up && to_left <= to_corner) return left;
  return to_up <= to_corner ? up : corner;
}

// Of differences, which are signed.
std::uint64_t size_of(std::span<const std::uint8_t> bytes) {
  std::uint64_t sum = 0;
  for (const std::uint8_t b : bytes) sum += b < 128 ? b : 256 - b;
  return sum;
}

}  // namespace

Status RowFilter::open(std::int64_t row_bytes, int pixel_bytes, bool filtered) {
  bytes_ = static_cast<std::ptrdiff_t>(row_bytes);
  step_ = pixel_bytes;
  filtered_ = filtered;
  if (filtered_) {
    TQ_TRY(before_.allocate(row_bytes + pixel_bytes));
    TQ_TRY(now_.allocate(row_bytes + pixel_bytes));
  }
  for (int i = 0; i < (filtered_ ? kFilters : 1); ++i) {
    TQ_TRY(candidates_[i].allocate(row_bytes + 1));
    candidates_[i][0] = byte(i);
  }
  return kOk;
}

std::span<const std::uint8_t> RowFilter::filter(std::span<const std::uint8_t> row) {
  std::copy_n(row.begin(), bytes_, candidates_[0].data() + 1);
  if (!filtered_) return candidates_[0].pixels();
  std::copy_n(row.begin(), bytes_, now_.data() + step_);
  const std::uint8_t* const now = now_.data() + step_;
  const std::uint8_t* const left = now_.data();
  const std::uint8_t* const up = before_.data() + step_;
  const std::uint8_t* const corner = before_.data();
  std::uint8_t* out[kFilters];
  for (int i = 0; i < kFilters; ++i) out[i] = candidates_[i].data() + 1;
  for (std::ptrdiff_t x = 0; x < bytes_; ++x) {
    out[1][x] = byte(now[x] - left[x]);
    out[2][x] = byte(now[x] - up[x]);
    out[3][x] = byte(now[x] - (left[x] + up[x]) / 2);
    out[4][x] = byte(now[x] - nearest(left[x], up[x], corner[x]));
  }
  std::swap(before_, now_);
  int best = 0;
  std::uint64_t least = UINT64_MAX;
  for (int i = 0; i < kFilters; ++i) {
    const std::uint64_t size = size_of(candidates_[i].pixels().subspan(1));
    if (size < least) best = i;
    least = std::min(least, size);
  }
  return candidates_[best].pixels();
}

}  // namespace tq::coding
