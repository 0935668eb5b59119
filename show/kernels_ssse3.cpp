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

// Blue and red are in the low halves of 64 bits, green where it comes to lie by moving it down.
TQ_KERNEL void mean_colours(const ColourColumns& of, Divisors divisors, std::uint8_t* bgr) {
  const struct {
    Vector shift, inverse;
  } both[2] = {{_mm_cvtsi32_si128(divisors.of_least.shift),
                all32(static_cast<int>(divisors.of_least.inverse))},
               {_mm_cvtsi32_si128(divisors.of_others.shift),
                all32(static_cast<int>(divisors.of_others.inverse))}};
  const Vector one = all32(static_cast<int>(of.one));
  const Vector half = all64(std::int64_t{1} << (Divisor::kMeanBits - 1));
  const std::size_t count = of.columns.size() - 1;  // four bytes are written for three
  for (std::size_t x = 0; x < count; ++x, bgr += 3) {
    const Span& span = of.columns[x];
    const auto& divisor = both[divisors.totals[x] == divisors.least ? 0 : 1];
    const std::uint32_t* at = of.samples + std::ptrdiff_t{3} * span.first;
    const std::uint32_t* const last = of.samples + std::ptrdiff_t{3} * span.last;
    Vector samples = load(at), weight = all32(static_cast<int>(span.first_weight));
    Vector outer = multiply_unsigned32(samples, weight);
    Vector green = multiply_unsigned32(shift_right_unsigned64<32>(samples), weight);
    for (at += 3; at < last; at += 3) {
      samples = load(at);
      outer = add64(outer, multiply_unsigned32(samples, one));
      green = add64(green, multiply_unsigned32(shift_right_unsigned64<32>(samples), one));
    }
    samples = load(last);
    weight = all32(static_cast<int>(span.last_weight));
    outer = add64(outer, multiply_unsigned32(samples, weight));
    green = add64(green, multiply_unsigned32(shift_right_unsigned64<32>(samples), weight));
    outer = multiply_unsigned32(_mm_srl_epi64(outer, divisor.shift), divisor.inverse);
    green = multiply_unsigned32(_mm_srl_epi64(green, divisor.shift), divisor.inverse);
    outer = shift_right_unsigned64<Divisor::kMeanBits>(add64(outer, half));
    green = shift_right_unsigned64<Divisor::kMeanBits>(add64(green, half));
    store32(bgr, outer | move_up<1>(green) | move_down<6>(outer));
  }
  ColourColumns rest = of;
  rest.columns = of.columns.subspan(count);
  divisors.totals += count;
  kPortableKernels.mean_colours(rest, divisors, bgr);
}

// Two at a time, if all are moved down by as much.
TQ_KERNEL void mean_shares(std::span<const std::uint64_t> sums, Divisors divisors,
                           std::uint16_t* shares) {
  alignas(16) static constexpr std::uint8_t kWords[16] = {0,   1,   8,   9,   128, 128, 128, 128,
                                                          128, 128, 128, 128, 128, 128, 128, 128};
  const Vector words = load(kWords), shift = _mm_cvtsi32_si128(divisors.of_least.shift);
  const Vector least = all32(static_cast<int>(divisors.least)), half = all64(std::int64_t{1} << 31);
  const Vector of_least = all32(static_cast<int>(divisors.of_least.inverse));
  const Vector of_others = all32(static_cast<int>(divisors.of_others.inverse));
  const bool alike = divisors.of_least.shift == divisors.of_others.shift;
  const std::size_t count = alike ? sums.size() & ~std::size_t{1} : 0;
  for (std::size_t x = 0; x < count; x += 2) {
    const Vector totals = load64(divisors.totals + x);
    const Vector is_least = _mm_cmpeq_epi32(interleave_low32(totals, totals), least);
    const Vector inverse = (is_least & of_least) | _mm_andnot_si128(is_least, of_others);
    const Vector mean = multiply_unsigned32(_mm_srl_epi64(load(sums.data() + x), shift), inverse);
    const Vector share = add64(subtract64(_mm_slli_epi64(mean, 8), mean), half);
    store32(shares + x, shuffle8(shift_right_unsigned64<32>(share), words));
  }
  divisors.totals += count;
  kPortableKernels.mean_shares(sums.subspan(count), divisors, shares + count);
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
  kernels.mean_colours = mean_colours;
  kernels.mean_shares = mean_shares;
  kernels.widen = widen;
}

}  // namespace tq::show

#endif
