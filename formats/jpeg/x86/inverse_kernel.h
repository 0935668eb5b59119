// The inverse transform in 16 bits, in whatever registers have been included: a block in every lane
// of 128 bits.
#pragma once

#include "formats/jpeg/transform.h"
#include "formats/jpeg/x86/transform_steps.h"

namespace tq::formats::x86 {
namespace {

TQ_TARGET void inverse_four(Vector (&x)[4]) {
  const Vector a = add16(x[0], x[2]), b = subtract16(x[0], x[2]);
  const Vector c = add16(scaled<1338>(x[1]), scaled<553>(x[3]));
  const Vector d = subtract16(scaled<553>(x[1]), scaled<1338>(x[3]));
  x[0] = add16(a, c);
  x[1] = add16(b, d);
  x[2] = subtract16(b, d);
  x[3] = subtract16(a, c);
}

// The loops here must go: what they walk over stays in registers only without them.
TQ_TARGET void inverse_eight(Vector (&x)[8]) {
  Vector even[4] = {x[0], x[2], x[4], x[6]};
  inverse_four(even);
  Vector odd[4] = {scaled<1448>(x[1]), add16(x[1], x[3]), add16(x[3], x[5]), add16(x[5], x[7])};
  inverse_four(odd);
  odd[0] = scaled<522>(odd[0]);
  odd[1] = scaled<616>(odd[1]);
  odd[2] = scaled<922>(odd[2]);
  odd[3] = scaled<2624>(odd[3]);
#pragma GCC unroll 4
  for (int n = 0; n < 4; ++n) {
    x[n] = add16(even[n], odd[n]);
    x[7 - n] = subtract16(even[n], odd[n]);
  }
}

// Two rows of samples: rounded, limited, with the level shift.
TQ_TARGET Vector limited_rows(Vector first, Vector second) {
  first = shifted_right<3>(add16(first, all16(4)));
  second = shifted_right<3>(add16(second, all16(4)));
  const Vector samples = only_one(packed16(first, second), all16(0x8080));
  return without(samples, packed16(greater16(first, all16(383)), greater16(second, all16(383))));
}

// A block for each lane.
TQ_TARGET void inverse_blocks(const std::int16_t* const (&coefficients)[kLanes],
                              const DequantiseTable& table, std::uint8_t* const (&samples)[kLanes],
                              std::ptrdiff_t stride) {
  Vector x[8];
#pragma GCC unroll 8
  for (int i = 0; i < 8; ++i) {
    x[i] = low_product(load_each(coefficients, 8 * i), repeat(table.steps + 8 * i));
  }
  inverse_eight(x);
  transpose(x);
  inverse_eight(x);
#pragma GCC unroll 4
  for (int i = 0; i < 8; i += 2) {
    const Vector rows = limited_rows(x[i], x[i + 1]);
    store_halves<0>(samples[0] + i * stride, samples[0] + (i + 1) * stride, rows);
    if constexpr (kLanes == 2) {
      store_halves<1>(samples[1] + i * stride, samples[1] + (i + 1) * stride, rows);
    }
  }
}

// The sum of all coefficients but the first times their quantisers, by amount. 32768 is taken for
// 32767: either is beyond any bound.
TQ_TARGET std::uint32_t sum_ac(const std::int16_t* coefficients, const DequantiseTable& table) {
  Vector sum = zero();
#pragma GCC unroll 8
  for (int i = 0; i < kBlock; i += 8 * kLanes) {
    Vector x = load(coefficients + i);
    if (i == 0) x = without(x, first_of_all());
    const Vector limited = subtract16_limited(zero(), x);
    sum = add32(sum, dot_product(larger16(x, limited), load(table.steps + i)));
  }
  return total32(sum);
}

}  // namespace
}  // namespace tq::formats::x86
