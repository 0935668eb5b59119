// The terms that kernels for registers of any width are written in. Each lane of 128 bits is worked
// on by itself. A file includes registers_ssse3.h or registers_avx2.h first, then its kernels.
#pragma once

#include <cstdint>
#include <cstring>

// Values that stay in registers must not be in loops when these are assigned.
#define TQ_UNROLLED _Pragma("GCC unroll 8")

// A term that is one instruction of two operands.
#define TQ_TERM(term, instruction)            \
  TQ_TARGET Vector term(Vector a, Vector b) { \
    return TQ_INTRINSIC(instruction)(a, b);   \
  }

namespace tq::formats::x86 {
namespace {

// Memory, at any address

TQ_TARGET __m128i load_lane(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
TQ_TARGET Vector load(const void* from) {
  Vector x;
  std::memcpy(&x, from, sizeof x);
  return x;
}
// The same 128 bits in every lane.
TQ_TARGET Vector repeat(const void* from) {
  return repeated(load_lane(from));
}
// The first and the last lane from places of their own.
TQ_TARGET Vector load_each(const void* first, const void* last) {
  return joined(load_lane(first), load_lane(last));
}
TQ_TARGET void store(void* to, Vector x) {
  std::memcpy(to, &x, sizeof x);
}
template <int kLane>
TQ_TARGET void store_lane(void* to, Vector x) {
  _mm_storeu_si128(static_cast<__m128i*>(to), lane<kLane>(x));
}
// The halves of one lane.
template <int kLane>
TQ_TARGET void store_halves(void* low, void* high, Vector x) {
  const __m128i both = lane<kLane>(x);
  _mm_storel_epi64(static_cast<__m128i*>(low), both);
  _mm_storel_epi64(static_cast<__m128i*>(high), _mm_unpackhi_epi64(both, both));
}

// 16 bits, which wrap round

TQ_TARGET Vector all16(int value) {
  return TQ_INTRINSIC(set1_epi16)(static_cast<short>(value));
}
TQ_TERM(add16, add_epi16)
TQ_TERM(subtract16, sub_epi16)
TQ_TERM(subtract16_limited, subs_epi16)  // stops at the ends of the range
TQ_TERM(low_product, mullo_epi16)
TQ_TERM(high_product_unsigned, mulhi_epu16)  // a * b >> 16
TQ_TERM(rounded_product, mulhrs_epi16)       // a * b / 32768, halves upwards
TQ_TERM(with_sign, sign_epi16)               // a, or -a where b is negative, or 0 where b is
TQ_TERM(larger16, max_epi16)
TQ_TERM(greater16, cmpgt_epi16)  // all bits where a > b
TQ_TARGET Vector amount(Vector x) {
  return TQ_INTRINSIC(abs_epi16)(x);
}
template <int kBits>
TQ_TARGET Vector shifted_left(Vector x) {
  return TQ_INTRINSIC(slli_epi16)(x, kBits);
}
template <int kBits>
TQ_TARGET Vector shifted_right(Vector x) {
  return TQ_INTRINSIC(srai_epi16)(x, kBits);
}
// Divided by a power of two, halves upwards.
template <int kBits>
TQ_TARGET Vector rounded(Vector x) {
  return rounded_product(x, all16(1 << (15 - kBits)));
}

// 32 bits

TQ_TARGET Vector all32(int value) {
  return TQ_INTRINSIC(set1_epi32)(value);
}
TQ_TERM(add32, add_epi32)
TQ_TERM(dot_product, madd_epi16)  // the sum of two products of 16 bits
template <int kBits>
TQ_TARGET Vector shifted_right32(Vector x) {
  return TQ_INTRINSIC(srai_epi32)(x, kBits);
}
TQ_TARGET std::uint32_t total32(Vector x) {
  __m128i sum = lane<0>(x);
  if constexpr (kLanes == 2) sum = _mm_add_epi32(sum, lane<1>(x));
  sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0x4E));
  sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0xB1));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(sum));
}

// Order: the halves of two lanes in turn, and two lanes in one of values half as wide

TQ_TERM(low8, unpacklo_epi8)
TQ_TERM(low16, unpacklo_epi16)
TQ_TERM(low32, unpacklo_epi32)
TQ_TERM(low64, unpacklo_epi64)
TQ_TERM(high8, unpackhi_epi8)
TQ_TERM(high16, unpackhi_epi16)
TQ_TERM(high32, unpackhi_epi32)
TQ_TERM(high64, unpackhi_epi64)
TQ_TERM(packed16, packs_epi16)
TQ_TERM(packed16_unsigned, packus_epi16)
TQ_TERM(packed32, packs_epi32)
// Every second of the 32-bit values.
TQ_TARGET Vector even32(Vector a, Vector b) {
  return reinterpret_cast<Vector>(TQ_INTRINSIC(shuffle_ps)(reinterpret_cast<FloatVector>(a),
                                                           reinterpret_cast<FloatVector>(b), 0x88));
}

// Bytes

TQ_TERM(shuffled, shuffle_epi8)  // those of a at the places b; 0 at places from 0x80 on
TQ_TARGET Vector zero_bytes(Vector x) {
  return TQ_INTRINSIC(cmpeq_epi8)(x, Vector{});
}
// The top bit of every byte, 16 bits per lane.
TQ_TARGET std::uint32_t top_bits(Vector x) {
  return static_cast<std::uint32_t>(TQ_INTRINSIC(movemask_epi8)(x));
}

}  // namespace
}  // namespace tq::formats::x86

#undef TQ_TERM
