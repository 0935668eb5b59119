// Sums of rows in registers of 128 bits.
#if defined(__i386__) || defined(__x86_64__)

#include "platform/x86/simd128.h"
#include "show/kernels.h"

namespace tq::show {
namespace {

using namespace simd;

// Two rows at a time: their bytes in turn, widened, are multiplied by both weights at once.
TQ_KERNEL void weigh_rows(const std::uint8_t* const* rows, const std::uint16_t* weights,
                          int row_count, std::uint32_t* sums, std::ptrdiff_t count, bool add) {
  constexpr std::ptrdiff_t kStep = 16;
  Vector pairs[(Kernels::kRows + 1) / 2];
  const std::uint8_t* both[2 * ((Kernels::kRows + 1) / 2)];
  for (int row = 0; row < row_count; row += 2) {
    const bool last = row + 1 == row_count;
    const int second = last ? 0 : weights[row + 1];
    pairs[row / 2] = all32(second << 16 | weights[row]);
    both[row] = rows[row];
    both[row + 1] = rows[last ? row : row + 1];
  }
  const Vector zero = all8(0);
  std::ptrdiff_t i = 0;
  for (; i + kStep <= count; i += kStep) {
    Vector sum[4] = {zero, zero, zero, zero};
    if (add) {
      TQ_UNROLLED
      for (int part = 0; part < 4; ++part) sum[part] = load(sums + i + 4 * part);
    }
    for (int row = 0; row < row_count; row += 2) {
      const Vector weight = pairs[row / 2];
      const Vector a = load(both[row] + i), b = load(both[row + 1] + i);
      const Vector low = interleave_low8(a, b), high = interleave_high8(a, b);
      sum[0] = add32(sum[0], multiply_add16(interleave_low8(low, zero), weight));
      sum[1] = add32(sum[1], multiply_add16(interleave_high8(low, zero), weight));
      sum[2] = add32(sum[2], multiply_add16(interleave_low8(high, zero), weight));
      sum[3] = add32(sum[3], multiply_add16(interleave_high8(high, zero), weight));
    }
    TQ_UNROLLED
    for (int part = 0; part < 4; ++part) store(sums + i + 4 * part, sum[part]);
  }
  const std::uint8_t* rest[Kernels::kRows];
  for (int row = 0; row < row_count; ++row) rest[row] = rows[row] + i;
  kPortableKernels.weigh_rows(rest, weights, row_count, sums + i, count - i, add);
}

TQ_KERNEL void widen(const std::uint8_t* bgr, std::uint8_t* bgrx, std::ptrdiff_t count) {
  alignas(16) static constexpr std::uint8_t kSpread[16] = {0, 1, 2, 128, 3, 4,  5,  128,
                                                           6, 7, 8, 128, 9, 10, 11, 128};
  constexpr std::ptrdiff_t kReadAhead = 2;  // four bytes more than four pixels are read
  const Vector spread = load(kSpread), full = all32(INT32_MIN >> 7);
  std::ptrdiff_t i = 0;
  for (; i + 4 + kReadAhead <= count; i += 4) {
    store(bgrx + 4 * i, shuffle8(load(bgr + 3 * i), spread) | full);
  }
  kPortableKernels.widen(bgr + 3 * i, bgrx + 4 * i, count - i);
}

}  // namespace

void add_ssse3_kernels(Kernels& kernels) {
  kernels.weigh_rows = weigh_rows;
  kernels.widen = widen;
}

}  // namespace tq::show

#endif
