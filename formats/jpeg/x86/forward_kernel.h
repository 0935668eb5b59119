// The forward transform and quantisation in 16 bits, a block per lane. Samples come with four more
// bits, the column pass has one more: every value that is multiplied stays below 20000.
#pragma once

#include "formats/jpeg/quantise.h"
#include "formats/jpeg/x86/transform_steps.h"

namespace tq::formats::x86 {
namespace {

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
    const int from = kZigzag[static_cast<unsigned>(i)];
    for (int pair = 0; pair < 4; ++pair) {
      const bool here = from / 16 == pair;
      moves.places[i / 16][pair][i % 16] = static_cast<std::uint8_t>(here ? from % 16 : 0x80);
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
      present[lane] |= static_cast<std::uint64_t>(flags >> 16 * lane & 0xFFFF) << 16 * quarter;
    }
  }
  TQ_UNROLLED for (int lane = 0; lane < kLanes; ++lane) out[lane].present = present[lane];
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
    TQ_UNROLLED for (int i = 0; i < 8; ++i) {
      const Vector value = rounded<2>(x[i]);
      const Vector biased = add16(abs16(value), load_repeated(table.bias + 8 * i));
      const Vector quotient = multiply_high_unsigned16(
          multiply_high_unsigned16(biased, load_repeated(table.reciprocal + 8 * i)),
          load_repeated(table.scale + 8 * i));
      x[i] = apply_sign16(quotient, value);
      store_lane<0>(out[0].values + 8 * i, x[i]);
      if constexpr (kLanes == 2) store_lane<1>(out[1].values + 8 * i, x[i]);
    }
    find_present(x, out);
  }
}

}  // namespace
}  // namespace tq::formats::x86
