// Kernels of bits in registers of 256 bits.
#if defined(__i386__) || defined(__x86_64__)

#include "platform/x86/simd256.h"
#include "process/geometry/kernels.h"

namespace tq::process {
namespace {

using namespace simd;

// Of 32 rows, whose last one comes first, a byte each in every column; the columns from the right.
TQ_SIMD void columns_of(const std::uint64_t* rows, Vector (&columns)[8]) {
  alignas(16) static constexpr std::uint8_t kLastFirst[16] = {8,  0, 9,  1, 10, 2, 11, 3,
                                                              12, 4, 13, 5, 14, 6, 15, 7};
  const Vector order = load_repeated(kLastFirst);
  Vector two[8], four[8];
  TQ_UNROLLED
  for (int k = 0; k < 8; ++k) {
    two[k] = shuffle8(load_lanes(rows + 30 - 2 * k, rows + 14 - 2 * k), order);
  }
  TQ_UNROLLED
  for (int k = 0; k < 4; ++k) {
    four[k] = interleave_low16(two[2 * k], two[2 * k + 1]);
    four[k + 4] = interleave_high16(two[2 * k], two[2 * k + 1]);
  }
  TQ_UNROLLED
  for (int k = 0; k < 8; k += 4) {
    const Vector a = interleave_low32(four[k], four[k + 1]);
    const Vector b = interleave_low32(four[k + 2], four[k + 3]);
    const Vector c = interleave_high32(four[k], four[k + 1]);
    const Vector d = interleave_high32(four[k + 2], four[k + 3]);
    columns[k] = interleave_low64(a, b);
    columns[k + 1] = interleave_high64(a, b);
    columns[k + 2] = interleave_low64(c, d);
    columns[k + 3] = interleave_high64(c, d);
  }
}

TQ_KERNEL void transpose_square(std::uint64_t* rows) {
  Vector upper[8], lower[8];
  columns_of(rows, upper);
  columns_of(rows + 32, lower);
  for (int column = 0; column < 8; ++column) {
    Vector first = upper[column], last = lower[column];
    std::uint64_t* const to = rows + 8 * (7 - column);
    TQ_UNROLLED
    for (int i = 0; i < 8; ++i) {
      to[i] = std::uint64_t{top_bits8(first)} << 32 | top_bits8(last);
      first = add16(first, first);  // what passes from byte to byte never gets to the top
      last = add16(last, last);
    }
  }
}

// Counts of bits by halves of bytes, or by quarters, the higher ones first.
alignas(16) constexpr std::uint8_t kOnesOfHalf[16] = {0, 1, 1, 2, 1, 2, 2, 3,
                                                      1, 2, 2, 3, 2, 3, 3, 4};
alignas(16) constexpr std::uint8_t kOnesOfQuarters[2][16] = {
    {0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2},
    {0, 1, 1, 2, 0, 1, 1, 2, 0, 1, 1, 2, 0, 1, 1, 2}};

// Of counts up to 2^shift.
TQ_SIMD Vector levels_of_counts(Vector counts, int shift) {
  const Vector half = all16(1 << shift >> 1), even = counts & all16(255);
  const Vector odd = shift_right_unsigned16<8>(counts);
  const Vector low = add16(subtract16(shift_left16<8>(even), even), half);
  const Vector high = add16(subtract16(shift_left16<8>(odd), odd), half);
  return shift_right_by16(low, shift) | shift_left16<8>(shift_right_by16(high, shift));
}

// Each lane's sixteen cells of two.
TQ_SIMD void store_pairs(std::uint8_t* to, std::ptrdiff_t next_lane, Vector a, Vector b) {
  store_lane<0>(to, a);
  store_lane<0>(to + 16, b);
  store_lane<1>(to + next_lane, a);
  store_lane<1>(to + next_lane + 16, b);
}

template <int kWide>
TQ_SIMD void count_32_bytes(const Cells& cells, std::ptrdiff_t at, std::uint8_t* to) {
  constexpr int kParts = 8 / kWide;
  const Vector low = all8(15);
  const Vector ones = load_repeated(kOnesOfHalf), first = load_repeated(kOnesOfQuarters[0]),
               last = load_repeated(kOnesOfQuarters[1]);
  Vector parts[kParts] = {};
  for (int k = 0; k < cells.count; ++k) {
    const Vector bits = load(cells.rows[k] + at);
    const Vector right = bits & low, left = shift_right_unsigned16<4>(bits) & low;
    if constexpr (kWide == 2) {
      parts[0] = add8(parts[0], shuffle8(first, left));
      parts[1] = add8(parts[1], shuffle8(last, left));
      parts[2] = add8(parts[2], shuffle8(first, right));
      parts[3] = add8(parts[3], shuffle8(last, right));
    } else {
      parts[0] = add8(parts[0], shuffle8(ones, left));
      parts[kParts - 1] = add8(parts[kParts - 1], shuffle8(ones, right));
    }
  }
  TQ_UNROLLED
  for (int i = 0; i < kParts; ++i) {
    if (cells.shift > 0) parts[i] = levels_of_counts(parts[i], cells.shift);
  }
  if constexpr (kWide == 8) {
    store(to, parts[0]);
  } else if constexpr (kWide == 4) {
    store_pairs(to, 32, interleave_low8(parts[0], parts[1]), interleave_high8(parts[0], parts[1]));
  } else {
    const Vector a = interleave_low8(parts[0], parts[1]), b = interleave_low8(parts[2], parts[3]);
    const Vector c = interleave_high8(parts[0], parts[1]), d = interleave_high8(parts[2], parts[3]);
    store_pairs(to, 64, interleave_low16(a, b), interleave_high16(a, b));
    store_pairs(to + 32, 64, interleave_low16(c, d), interleave_high16(c, d));
  }
}

TQ_KERNEL void count_cells(const Cells& cells, std::ptrdiff_t row_bytes, std::uint8_t* to) {
  constexpr std::ptrdiff_t kWidth = 16 * kLanes;
  std::ptrdiff_t at = 0;
  for (; at + kWidth <= row_bytes; at += kWidth, to += 8 * kWidth / cells.wide) {
    if (cells.wide == 2) {
      count_32_bytes<2>(cells, at, to);
    } else if (cells.wide == 4) {
      count_32_bytes<4>(cells, at, to);
    } else {
      count_32_bytes<8>(cells, at, to);
    }
  }
  const std::uint8_t* rest[256];
  for (int k = 0; k < cells.count; ++k) rest[k] = cells.rows[k] + at;
  kPortableGeometryKernels.count_cells({rest, cells.count, cells.wide, cells.shift}, row_bytes - at,
                                       to);
}

// As Mean has it, of areas whose sums floating point has exactly.
TQ_KERNEL void levels_of_black(const std::int64_t* more, std::int64_t area, std::uint8_t* to,
                               std::ptrdiff_t count) {
  if (area >= std::int64_t{1} << 42) {
    return kPortableGeometryKernels.levels_of_black(more, area, to, count);
  }
  const double twice = 2 * static_cast<double>(area);
  const DoubleVector divisor = all_doubles(twice), inverse = all_doubles(1 / twice);
  const DoubleVector white = all_doubles(511 * static_cast<double>(area));
  const DoubleVector one = all_doubles(1), none = all_doubles(0);
  Vector before{};
  std::ptrdiff_t x = 0;
  for (; x + 4 <= count; x += 4) {
    const Vector sums = running_sums64(load(more + x)), black = add64(before, sums);
    before = add64(before, last64(sums));
    const DoubleVector doubled = white - small_to_doubles(black) * all_doubles(510);
    const DoubleVector estimate = rounded_down(doubled * inverse);
    const DoubleVector left = doubled - estimate * divisor;
    const DoubleVector above = where(left >= divisor, one), below = where(left < none, one);
    store_bytes(to + x, estimate + above - below);
  }
  std::int64_t rest[4];
  store(rest, before);
  const Mean mean(area);
  for (std::int64_t all = rest[0]; x < count; ++x) {
    all += more[x];
    to[x] = mean(255 * (area - all));
  }
}

}  // namespace

void add_avx2_bit_kernels(GeometryKernels& kernels) {
  kernels.transpose_square = transpose_square;
  kernels.count_cells = count_cells;
  kernels.levels_of_black = levels_of_black;
}

}  // namespace tq::process

#endif
