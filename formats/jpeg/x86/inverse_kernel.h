// The inverse transform in 16 bits, a block per lane, of blocks below kMostFor16Bits.
#pragma once

#include "formats/jpeg/transform.h"
#include "formats/jpeg/x86/transform_steps.h"

namespace tq::formats::x86 {
namespace {

TQ_SIMD void inverse_four(Vector (&x)[4]) {
  const Vector a = add16(x[0], x[2]), b = subtract16(x[0], x[2]);
  const Vector c = add16(scaled<1338>(x[1]), scaled<553>(x[3]));
  const Vector d = subtract16(scaled<553>(x[1]), scaled<1338>(x[3]));
  x[0] = add16(a, c);
  x[1] = add16(b, d);
  x[2] = subtract16(b, d);
  x[3] = subtract16(a, c);
}

TQ_SIMD void inverse_eight(Vector (&x)[8]) {
  Vector even[4] = {x[0], x[2], x[4], x[6]};
  inverse_four(even);
  Vector odd[4] = {scaled<1448>(x[1]), add16(x[1], x[3]), add16(x[3], x[5]), add16(x[5], x[7])};
  inverse_four(odd);
  odd[0] = scaled<522>(odd[0]);
  odd[1] = scaled<616>(odd[1]);
  odd[2] = scaled<922>(odd[2]);
  odd[3] = scaled<2624>(odd[3]);
  TQ_UNROLLED for (int n = 0; n < 4; ++n) {
    x[n] = add16(even[n], odd[n]);
    x[7 - n] = subtract16(even[n], odd[n]);
  }
}

// Two rows of samples: rounded, limited, with the level shift.
TQ_SIMD Vector limited_rows(Vector first, Vector second) {
  first = shift_right16<3>(add16(first, all16(4)));
  second = shift_right16<3>(add16(second, all16(4)));
  const Vector far_too_bright = pack16(greater16(first, all16(383)), greater16(second, all16(383)));
  return (pack16(first, second) ^ all16(0x8080)) & ~far_too_bright;
}

TQ_SIMD void inverse_blocks(const std::int16_t* const* coefficients, const DequantiseTable& table,
                            std::uint8_t* const* samples, std::ptrdiff_t stride) {
  Vector x[8];
  TQ_UNROLLED for (int i = 0; i < 8; ++i) {
    const Vector values = load_lanes(coefficients[0] + 8 * i, coefficients[kLanes - 1] + 8 * i);
    x[i] = multiply_low16(values, load_repeated(table.steps + 8 * i));
  }
  inverse_eight(x);
  transpose(x);
  inverse_eight(x);
  TQ_UNROLLED for (int i = 0; i < 8; i += 2) {
    const Vector rows = limited_rows(x[i], x[i + 1]);
    store_halves<0>(samples[0] + i * stride, samples[0] + (i + 1) * stride, rows);
    if constexpr (kLanes == 2) {
      store_halves<1>(samples[1] + i * stride, samples[1] + (i + 1) * stride, rows);
    }
  }
}

TQ_KERNEL void inverse_pair(const std::int16_t* const (&coefficients)[2],
                            const DequantiseTable& table, std::uint8_t* const (&samples)[2],
                            std::ptrdiff_t stride) {
  for (int i = 0; i < 2; i += kLanes) inverse_blocks(coefficients + i, table, samples + i, stride);
}

// 32768 is taken for 32767: either is beyond any bound.
TQ_KERNEL std::uint32_t magnitude(const std::int16_t* coefficients, const DequantiseTable& table) {
  Vector sum{};
  TQ_UNROLLED for (int i = 0; i < kBlock; i += 8 * kLanes) {
    const Vector x = load(coefficients + i);
    const Vector limited = max16(x, subtract_saturated16(Vector{}, x));
    sum = add32(sum, multiply_add16(limited, load(table.steps + i)));
  }
  return sum32(sum);
}

}  // namespace
}  // namespace tq::formats::x86
