// The transforms and quantisation in registers of any width, a block per lane.
#pragma once

#include "formats/jpeg/dsp/kernels.h"

namespace tq::jpeg::x86 {
namespace {

using namespace simd;

// (x * k + 512) >> 10 as one rounded product of the fraction, and x as often as k has 1024.
template <int kFactor>
TQ_SIMD Vector scaled(Vector x) {
  Vector product = multiply_rounded16(x, all16(kFactor % 1024 * 32));
  TQ_UNROLLED for (int i = 0; i < kFactor / 1024; ++i) product = add16(product, x);
  return product;
}

// Divided by a power of two, halves upwards.
template <int kBits>
TQ_SIMD Vector rounded(Vector x) {
  return multiply_rounded16(x, all16(1 << (15 - kBits)));
}

TQ_SIMD void transpose(Vector (&x)[8]) {
  Vector a[8], b[8];
  TQ_UNROLLED for (int i = 0; i < 4; ++i) {
    a[2 * i] = interleave_low16(x[2 * i], x[2 * i + 1]);
    a[2 * i + 1] = interleave_high16(x[2 * i], x[2 * i + 1]);
  }
  TQ_UNROLLED for (int i = 0; i < 8; i += 4) {
    b[i] = interleave_low32(a[i], a[i + 2]);
    b[i + 1] = interleave_high32(a[i], a[i + 2]);
    b[i + 2] = interleave_low32(a[i + 1], a[i + 3]);
    b[i + 3] = interleave_high32(a[i + 1], a[i + 3]);
  }
  TQ_UNROLLED for (int i = 0; i < 4; ++i) {
    x[2 * i] = interleave_low64(b[i], b[4 + i]);
    x[2 * i + 1] = interleave_high64(b[i], b[4 + i]);
  }
}

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

// a * kFirst + b * kSecond, of pairs of 16 bits.
template <int kFirst, int kSecond>
TQ_SIMD Vector weighed_pairs(Vector pairs) {
  return multiply_add16(pairs, all32((kFirst & 0xFFFF) | kSecond * 65536));
}

template <int kFractionBits>
TQ_SIMD Vector without_fraction(Vector x) {
  return shift_right32<kFractionBits>(add32(x, all32(1 << (kFractionBits - 1))));
}

// The even and the odd half of four of the eight columns.
template <int kN>
TQ_SIMD Vector exact_odd(Vector pairs13, Vector pairs57) {
  return add32(weighed_pairs<kOdd[kN][0], kOdd[kN][1]>(pairs13),
               weighed_pairs<kOdd[kN][2], kOdd[kN][3]>(pairs57));
}
template <int kFractionBits>
TQ_SIMD void exact_inverse_half(Vector pairs04, Vector pairs26, Vector pairs13, Vector pairs57,
                                Vector (&out)[8]) {
  constexpr int kOne = 1 << kExactFraction;
  const Vector half = all32(1 << (kFractionBits - 1));
  const Vector sum = add32(weighed_pairs<kOne, kOne>(pairs04), half);
  const Vector difference = add32(weighed_pairs<kOne, -kOne>(pairs04), half);
  const Vector c = weighed_pairs<kEven[0][0], kEven[0][1]>(pairs26);
  const Vector d = weighed_pairs<kEven[1][0], kEven[1][1]>(pairs26);
  const Vector even[4] = {add32(sum, c), add32(difference, d), subtract32(difference, d),
                          subtract32(sum, c)};
  const Vector odd[4] = {exact_odd<0>(pairs13, pairs57), exact_odd<1>(pairs13, pairs57),
                         exact_odd<2>(pairs13, pairs57), exact_odd<3>(pairs13, pairs57)};
  TQ_UNROLLED for (int n = 0; n < 4; ++n) {
    out[n] = shift_right32<kFractionBits>(add32(even[n], odd[n]));
    out[7 - n] = shift_right32<kFractionBits>(subtract32(even[n], odd[n]));
  }
}

template <int kFractionBits>
TQ_SIMD void exact_inverse_eight(Vector (&x)[8]) {
  Vector low[8], high[8];
  exact_inverse_half<kFractionBits>(interleave_low16(x[0], x[4]), interleave_low16(x[2], x[6]),
                                    interleave_low16(x[1], x[3]), interleave_low16(x[5], x[7]),
                                    low);
  exact_inverse_half<kFractionBits>(interleave_high16(x[0], x[4]), interleave_high16(x[2], x[6]),
                                    interleave_high16(x[1], x[3]), interleave_high16(x[5], x[7]),
                                    high);
  TQ_UNROLLED for (int i = 0; i < 8; ++i) x[i] = pack32(low[i], high[i]);
}

TQ_SIMD void exact_inverse_blocks(const std::int16_t* const* coefficients,
                                  const DequantiseTable& table, std::uint8_t* const* samples,
                                  std::ptrdiff_t stride) {
  Vector x[8];
  TQ_UNROLLED for (int i = 0; i < 8; ++i) {
    const Vector values = load_lanes(coefficients[0] + 8 * i, coefficients[kLanes - 1] + 8 * i);
    x[i] = multiply_low16(values, load_repeated(table.steps + 8 * i));
  }
  exact_inverse_eight<kExactFraction - kPassBits>(x);
  transpose(x);
  exact_inverse_eight<kExactFraction + kPassBits + 3>(x);
  TQ_UNROLLED for (int i = 0; i < 8; i += 2) {
    const Vector rows = pack16(x[i], x[i + 1]) ^ all16(0x8080);
    store_halves<0>(samples[0] + i * stride, samples[0] + (i + 1) * stride, rows);
    if constexpr (kLanes == 2) {
      store_halves<1>(samples[1] + i * stride, samples[1] + (i + 1) * stride, rows);
    }
  }
}

TQ_KERNEL void exact_inverse_pair(const std::int16_t* const (&coefficients)[2],
                                  const DequantiseTable& table, std::uint8_t* const (&samples)[2],
                                  std::ptrdiff_t stride) {
  for (int i = 0; i < 2; i += kLanes) {
    exact_inverse_blocks(coefficients + i, table, samples + i, stride);
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

TQ_SIMD void forward_four(Vector (&s)[4]) {
  const Vector a = add16(s[0], s[3]), b = add16(s[1], s[2]);
  const Vector c = subtract16(s[0], s[3]), d = subtract16(s[1], s[2]);
  s[0] = add16(a, b);
  s[1] = add16(scaled<1338>(c), scaled<553>(d));
  s[2] = subtract16(a, b);
  s[3] = subtract16(scaled<553>(c), scaled<1338>(d));
}

TQ_SIMD void forward_eight(Vector (&x)[8]) {
  Vector even[4], odd[4];
  TQ_UNROLLED for (int n = 0; n < 4; ++n) {
    even[n] = add16(x[n], x[7 - n]);
    odd[n] = subtract16(x[n], x[7 - n]);
  }
  odd[0] = scaled<522>(odd[0]);
  odd[1] = scaled<616>(odd[1]);
  odd[2] = scaled<922>(odd[2]);
  odd[3] = scaled<2624>(odd[3]);
  forward_four(even);
  forward_four(odd);
  TQ_UNROLLED for (int n = 0; n < 4; ++n) x[2 * n] = even[n];
  x[1] = add16(scaled<1448>(odd[0]), odd[1]);
  x[3] = add16(odd[1], odd[2]);
  x[5] = add16(odd[2], odd[3]);
  x[7] = odd[3];
}

// The 4 times 16 bytes of a block are in zigzag order what these shuffles of its 4 pairs of rows
// give together.
struct ZigzagMoves {
  alignas(16) std::uint8_t places[4][4][16];  // by quarter of the sequence and pair of rows
  bool needed[4][4];
};
constexpr ZigzagMoves zigzag_moves() {
  ZigzagMoves moves{};
  for (int i = 0; i < kBlock; ++i) {
    const int from = kZigzag[i];
    for (int pair = 0; pair < 4; ++pair) {
      const bool here = from / 16 == pair;
      moves.places[i / 16][pair][i % 16] = byte(here ? from % 16 : 0x80);
      moves.needed[i / 16][pair] |= here;
    }
  }
  return moves;
}
inline constexpr ZigzagMoves kMoves = zigzag_moves();

// Which values are not 0: the flags are moved, not the values.
TQ_SIMD void find_present(const Vector (&rows)[8], QuantisedBlock* out) {
  Vector zeros[4];
  TQ_UNROLLED for (int i = 0; i < 4; ++i) {
    zeros[i] = equal8(pack16(rows[2 * i], rows[2 * i + 1]), Vector{});
  }
  std::uint64_t present[kLanes] = {};
  TQ_UNROLLED for (int quarter = 0; quarter < 4; ++quarter) {
    Vector moved{};
    TQ_UNROLLED for (int pair = 0; pair < 4; ++pair) {
      if (!kMoves.needed[quarter][pair]) continue;
      moved |= shuffle8(zeros[pair], load_repeated(kMoves.places[quarter][pair]));
    }
    const std::uint32_t flags = ~top_bits8(moved);
    TQ_UNROLLED for (int lane = 0; lane < kLanes; ++lane) {
      present[lane] |= std::uint64_t{flags >> 16 * lane & 0xFFFF} << 16 * quarter;
    }
  }
  TQ_UNROLLED for (int lane = 0; lane < kLanes; ++lane) out[lane].present = present[lane];
}

TQ_SIMD void quantise_blocks(Vector (&x)[8], const QuantiseTable& table, QuantisedBlock* out) {
  TQ_UNROLLED for (int i = 0; i < 8; ++i) {
    const Vector biased = add16(abs16(x[i]), load_repeated(table.bias + 8 * i));
    const Vector quotient = multiply_high_unsigned16(
        multiply_high_unsigned16(biased, load_repeated(table.reciprocal + 8 * i)),
        load_repeated(table.scale + 8 * i));
    x[i] = apply_sign16(quotient, x[i]);
    store_lane<0>(out[0].values + 8 * i, x[i]);
    if constexpr (kLanes == 2) store_lane<1>(out[1].values + 8 * i, x[i]);
  }
  find_present(x, out);
}

TQ_KERNEL void forward_blocks(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                              const QuantiseTable& table, QuantisedBlock* out) {
  for (int n = 0; n < count; n += kLanes, samples += 8 * kLanes, out += kLanes) {
    Vector x[8];
    TQ_UNROLLED for (int i = 0; i < 8; ++i) x[i] = shift_left16<4>(load(samples + i * stride));
    transpose(x);
    forward_eight(x);
    TQ_UNROLLED for (Vector& values : x) values = rounded<3>(values);
    transpose(x);
    forward_eight(x);
    TQ_UNROLLED for (Vector& values : x) values = rounded<2>(values);
    quantise_blocks(x, table, out);
  }
}

// The sum of weighed pairs, low and high, as 16 bits.
template <int kFractionBits, int kFirst, int kSecond>
TQ_SIMD Vector rounded_pairs(Vector low, Vector high) {
  return pack32(without_fraction<kFractionBits>(weighed_pairs<kFirst, kSecond>(low)),
                without_fraction<kFractionBits>(weighed_pairs<kFirst, kSecond>(high)));
}

template <int kFractionBits, int kK>
TQ_SIMD Vector exact_odd(const Vector (&low)[2], const Vector (&high)[2]) {
  return pack32(without_fraction<kFractionBits>(exact_odd<kK>(low[0], low[1])),
                without_fraction<kFractionBits>(exact_odd<kK>(high[0], high[1])));
}

// What the sums alone take is a shift to the left, or a rounded one to the right.
template <int kFractionBits>
TQ_SIMD Vector rescaled(Vector x) {
  if constexpr (kFractionBits < kExactFraction) {
    return shift_left16<kExactFraction - kFractionBits>(x);
  } else {
    constexpr int kBits = kFractionBits - kExactFraction;
    return shift_right16<kBits>(add16(x, all16(1 << (kBits - 1))));
  }
}

template <int kFractionBits>
TQ_SIMD void exact_forward_eight(Vector (&x)[8]) {
  Vector sum[4], difference[4];
  TQ_UNROLLED for (int n = 0; n < 4; ++n) {
    sum[n] = add16(x[n], x[7 - n]);
    difference[n] = subtract16(x[n], x[7 - n]);
  }
  const Vector a = add16(sum[0], sum[3]), b = add16(sum[1], sum[2]);
  const Vector c = subtract16(sum[0], sum[3]), d = subtract16(sum[1], sum[2]);
  x[0] = rescaled<kFractionBits>(add16(a, b));
  x[4] = rescaled<kFractionBits>(subtract16(a, b));
  const Vector low26 = interleave_low16(c, d), high26 = interleave_high16(c, d);
  x[2] = rounded_pairs<kFractionBits, kEven[0][0], kEven[0][1]>(low26, high26);
  x[6] = rounded_pairs<kFractionBits, kEven[1][0], kEven[1][1]>(low26, high26);
  // The factors are their own transpose.
  const Vector low[2] = {interleave_low16(difference[0], difference[1]),
                         interleave_low16(difference[2], difference[3])};
  const Vector high[2] = {interleave_high16(difference[0], difference[1]),
                          interleave_high16(difference[2], difference[3])};
  x[1] = exact_odd<kFractionBits, 0>(low, high);
  x[3] = exact_odd<kFractionBits, 1>(low, high);
  x[5] = exact_odd<kFractionBits, 2>(low, high);
  x[7] = exact_odd<kFractionBits, 3>(low, high);
}

TQ_KERNEL void exact_forward_blocks(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                                    const QuantiseTable& table, QuantisedBlock* out) {
  for (int n = 0; n < count; n += kLanes, samples += 8 * kLanes, out += kLanes) {
    Vector x[8];
    TQ_UNROLLED for (int i = 0; i < 8; ++i) x[i] = load(samples + i * stride);
    transpose(x);
    exact_forward_eight<kExactFraction - kPassBits>(x);
    transpose(x);
    exact_forward_eight<kExactFraction + kPassBits>(x);
    quantise_blocks(x, table, out);
  }
}

}  // namespace
}  // namespace tq::jpeg::x86
