// The words in which kernels for registers of any width are written. What is not said to be
// otherwise works on each lane of 128 bits by itself. A file includes simd128.h or simd256.h, which
// include this, and then its kernels; the target stands with each function, not in compiler
// options, so that inline functions of other headers stay what they are for everybody.
#pragma once

#include <cstdint>
#include <cstring>

// Values that stay in registers must not be in loops when these are assigned.
#define TQ_UNROLLED _Pragma("GCC unroll 8")

// A word that is one instruction of one or two operands, or of a constant.
#define TQ_UNARY(word, instruction)      \
  TQ_SIMD Vector word(Vector x) {        \
    return TQ_INTRINSIC(instruction)(x); \
  }
#define TQ_BINARY(word, instruction)        \
  TQ_SIMD Vector word(Vector a, Vector b) { \
    return TQ_INTRINSIC(instruction)(a, b); \
  }
#define TQ_SHIFT(word, instruction)             \
  template <int kBits>                          \
  TQ_SIMD Vector word(Vector x) {               \
    return TQ_INTRINSIC(instruction)(x, kBits); \
  }

namespace tq::simd {
namespace {

// Memory, at any address

TQ_SIMD __m128i load_lane(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
TQ_SIMD Vector load(const void* from) {
  Vector x;
  std::memcpy(&x, from, sizeof x);
  return x;
}
// The same 128 bits in every lane.
TQ_SIMD Vector load_repeated(const void* from) {
  return repeated(load_lane(from));
}
// The first and the last lane from places of their own.
TQ_SIMD Vector load_lanes(const void* first, const void* last) {
  return joined(load_lane(first), load_lane(last));
}
TQ_SIMD void store(void* to, Vector x) {
  std::memcpy(to, &x, sizeof x);
}
template <int kLane>
TQ_SIMD void store_lane(void* to, Vector x) {
  _mm_storeu_si128(static_cast<__m128i*>(to), lane<kLane>(x));
}
// The halves of one lane.
template <int kLane>
TQ_SIMD void store_halves(void* low, void* high, Vector x) {
  const __m128i both = lane<kLane>(x);
  _mm_storel_epi64(static_cast<__m128i*>(low), both);
  _mm_storel_epi64(static_cast<__m128i*>(high), _mm_unpackhi_epi64(both, both));
}

// Bytes

TQ_SIMD Vector all8(int value) {
  return TQ_INTRINSIC(set1_epi8)(static_cast<char>(value));
}
TQ_BINARY(add8, add_epi8)             // which wrap round
TQ_BINARY(add_saturated8, adds_epu8)  // without a sign: stops at 255, or at 0
TQ_BINARY(subtract_saturated8, subs_epu8)
TQ_BINARY(subtract_signed8, subs_epi8)  // with a sign: stops at -128
TQ_BINARY(min8, min_epu8)               // without a sign
TQ_BINARY(max8, max_epu8)
TQ_BINARY(equal8, cmpeq_epi8)      // all bits where a == b
TQ_BINARY(distance8, sad_epu8)     // sums of eight differences, as 64 bits
TQ_BINARY(shuffle8, shuffle_epi8)  // those of a at the places b; 0 at places from 0x80 on
// The top bit of every byte, 16 bits per lane.
TQ_SIMD std::uint32_t top_bits8(Vector x) {
  return static_cast<std::uint32_t>(TQ_INTRINSIC(movemask_epi8)(x));
}

// 16 bits, which wrap round

TQ_SIMD Vector all16(int value) {
  return TQ_INTRINSIC(set1_epi16)(static_cast<short>(value));
}
TQ_BINARY(add16, add_epi16)
TQ_BINARY(subtract16, sub_epi16)
TQ_BINARY(subtract_saturated16, subs_epi16)  // stops at the ends of the range
TQ_BINARY(multiply_low16, mullo_epi16)
TQ_BINARY(multiply_high_unsigned16, mulhi_epu16)  // a * b >> 16
TQ_BINARY(multiply_rounded16, mulhrs_epi16)       // a * b / 32768, halves upwards
TQ_BINARY(apply_sign16, sign_epi16)               // a, or -a where b is negative, or 0 where b is
TQ_BINARY(max16, max_epi16)
TQ_BINARY(greater16, cmpgt_epi16)  // all bits where a > b
TQ_UNARY(abs16, abs_epi16)
TQ_SHIFT(shift_left16, slli_epi16)
TQ_SHIFT(shift_right16, srai_epi16)  // with the sign
TQ_SHIFT(shift_right_unsigned16, srli_epi16)
// By as many bits as are known later.
TQ_SIMD Vector shift_left_by16(Vector x, int bits) {
  return TQ_INTRINSIC(sll_epi16)(x, _mm_cvtsi32_si128(bits));
}
TQ_SIMD Vector shift_right_by16(Vector x, int bits) {
  return TQ_INTRINSIC(srl_epi16)(x, _mm_cvtsi32_si128(bits));
}
TQ_BINARY(multiply_add8, maddubs_epi16)  // the sum of two products, of a without a sign and b
TQ_BINARY(add_neighbours16, hadd_epi16)  // sums of two, of a and then of b

// 32 bits

TQ_SIMD Vector all32(int value) {
  return TQ_INTRINSIC(set1_epi32)(value);
}
TQ_BINARY(add32, add_epi32)
TQ_BINARY(subtract32, sub_epi32)
TQ_BINARY(greater32, cmpgt_epi32)
TQ_BINARY(multiply_add16, madd_epi16)  // the sum of two products of 16 bits
TQ_SHIFT(shift_left32, slli_epi32)
TQ_SHIFT(shift_right32, srai_epi32)  // with the sign
TQ_SHIFT(shift_right_unsigned32, srli_epi32)
// 64 bits

TQ_SIMD Vector all64(std::int64_t value) {
  return TQ_INTRINSIC(set1_epi64x)(value);
}
TQ_BINARY(add64, add_epi64)
TQ_BINARY(subtract64, sub_epi64)
TQ_BINARY(multiply_unsigned32, mul_epu32)  // of the low halves of values
TQ_SHIFT(shift_right_unsigned64, srli_epi64)

// The top bit of every value, 4 bits per lane.
TQ_SIMD std::uint32_t top_bits32(Vector x) {
  return static_cast<std::uint32_t>(TQ_INTRINSIC(movemask_ps)(reinterpret_cast<FloatVector>(x)));
}
// Over all lanes.
TQ_SIMD std::uint32_t sum32(Vector x) {
  __m128i sum = lane<0>(x);
  if constexpr (kLanes == 2) sum = _mm_add_epi32(sum, lane<1>(x));
  sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0x4E));
  sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0xB1));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(sum));
}

// Floating point, 32 bits

TQ_SIMD FloatVector all_floats(float value) {
  return TQ_INTRINSIC(set1_ps)(value);
}
TQ_SIMD FloatVector to_floats(Vector x) {
  return TQ_INTRINSIC(cvtepi32_ps)(x);
}
TQ_SIMD Vector truncated(FloatVector x) {
  return TQ_INTRINSIC(cvttps_epi32)(x);
}
TQ_SIMD FloatVector min_floats(FloatVector a, FloatVector b) {
  return TQ_INTRINSIC(min_ps)(a, b);
}
// The top bit of the values where a < b.
TQ_SIMD std::uint32_t less_bits(FloatVector a, FloatVector b) {
  return top_bits32(reinterpret_cast<Vector>(a < b));
}

// Order: by places of 32-bit values, two bits each, the lowest first.
template <int kPlaces>
TQ_SIMD Vector shuffle32(Vector x) {
  return TQ_INTRINSIC(shuffle_epi32)(x, kPlaces);
}

// Order: values of the low or the high halves of a and b in turn

TQ_BINARY(interleave_low8, unpacklo_epi8)
TQ_BINARY(interleave_low16, unpacklo_epi16)
TQ_BINARY(interleave_low32, unpacklo_epi32)
TQ_BINARY(interleave_low64, unpacklo_epi64)
TQ_BINARY(interleave_high8, unpackhi_epi8)
TQ_BINARY(interleave_high16, unpackhi_epi16)
TQ_BINARY(interleave_high32, unpackhi_epi32)
TQ_BINARY(interleave_high64, unpackhi_epi64)

// The values of a, then those of b, half as wide: limited to what has a sign, or has none

TQ_BINARY(pack16, packs_epi16)
TQ_BINARY(pack_unsigned16, packus_epi16)
TQ_BINARY(pack32, packs_epi32)
// Every second of the 32-bit values.
TQ_SIMD Vector even32(Vector a, Vector b) {
  return reinterpret_cast<Vector>(TQ_INTRINSIC(shuffle_ps)(reinterpret_cast<FloatVector>(a),
                                                           reinterpret_cast<FloatVector>(b), 0x88));
}

}  // namespace
}  // namespace tq::simd

#undef TQ_UNARY
#undef TQ_BINARY
#undef TQ_SHIFT
