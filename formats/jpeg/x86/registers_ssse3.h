// 128-bit registers of 16-bit values, in the terms of kernels that are written for any width. A
// file includes one header of this kind, then its kernels.
#pragma once

#include <immintrin.h>

#include <cstdint>

#define TQ_TARGET __attribute__((target("ssse3"), always_inline)) inline

namespace tq::formats::x86 {
namespace {

using Vector = __m128i;
inline constexpr int kLanes = 1;  // of 128 bits

TQ_TARGET Vector load(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
// The same 128 bits in every lane; others from `step` bytes further on in each.
TQ_TARGET Vector repeat(const void* from) {
  return load(from);
}
TQ_TARGET Vector load_lanes(const std::uint8_t* from, int /*step*/) {
  return load(from);
}
// A byte for each 16-bit value.
TQ_TARGET Vector load_widened(const std::uint8_t* from) {
  return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)),
                           _mm_setzero_si128());
}
TQ_TARGET void store(void* to, Vector x) {
  _mm_storeu_si128(static_cast<__m128i*>(to), x);
}
template <int kLane>
TQ_TARGET void store_lane(void* to, Vector x) {
  store(to, x);
}

TQ_TARGET Vector all16(int value) {
  return _mm_set1_epi16(static_cast<short>(value));
}
TQ_TARGET Vector all32(int value) {
  return _mm_set1_epi32(value);
}
TQ_TARGET Vector add16(Vector a, Vector b) {
  return _mm_add_epi16(a, b);
}
TQ_TARGET Vector subtract16(Vector a, Vector b) {
  return _mm_sub_epi16(a, b);
}
TQ_TARGET Vector add32(Vector a, Vector b) {
  return _mm_add_epi32(a, b);
}
// x * y >> 16, of signed and of unsigned values.
TQ_TARGET Vector high_product(Vector x, Vector y) {
  return _mm_mulhi_epi16(x, y);
}
TQ_TARGET Vector high_product_unsigned(Vector x, Vector y) {
  return _mm_mulhi_epu16(x, y);
}
// The sum of two products, in 32 bits.
TQ_TARGET Vector dot_product(Vector x, Vector y) {
  return _mm_madd_epi16(x, y);
}
template <int kBits>
TQ_TARGET Vector shifted_left(Vector x) {
  return _mm_slli_epi16(x, kBits);
}
template <int kBits>
TQ_TARGET Vector shifted_right32(Vector x) {
  return _mm_srai_epi32(x, kBits);
}
// Divided by a power of two, halves upwards.
template <int kBits>
TQ_TARGET Vector rounded(Vector x) {
  return _mm_mulhrs_epi16(x, _mm_set1_epi16(1 << (15 - kBits)));
}
TQ_TARGET Vector amount(Vector x) {
  return _mm_abs_epi16(x);
}
TQ_TARGET Vector with_sign(Vector x, Vector sign) {
  return _mm_sign_epi16(x, sign);
}

TQ_TARGET Vector low16(Vector a, Vector b) {
  return _mm_unpacklo_epi16(a, b);
}
TQ_TARGET Vector high16(Vector a, Vector b) {
  return _mm_unpackhi_epi16(a, b);
}
TQ_TARGET Vector low32(Vector a, Vector b) {
  return _mm_unpacklo_epi32(a, b);
}
TQ_TARGET Vector high32(Vector a, Vector b) {
  return _mm_unpackhi_epi32(a, b);
}
TQ_TARGET Vector low64(Vector a, Vector b) {
  return _mm_unpacklo_epi64(a, b);
}
TQ_TARGET Vector high64(Vector a, Vector b) {
  return _mm_unpackhi_epi64(a, b);
}
// Every second of the 32-bit values.
TQ_TARGET Vector even32(Vector a, Vector b) {
  return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), 0x88));
}
TQ_TARGET Vector packed16(Vector a, Vector b) {
  return _mm_packs_epi16(a, b);
}
TQ_TARGET Vector packed32(Vector a, Vector b) {
  return _mm_packs_epi32(a, b);
}
// Makes one sequence of what two values of 64 bits per lane hold in turn.
TQ_TARGET Vector in_sequence(Vector x) {
  return x;
}
TQ_TARGET Vector shuffled(Vector x, Vector places) {
  return _mm_shuffle_epi8(x, places);
}
TQ_TARGET Vector either(Vector a, Vector b) {
  return _mm_or_si128(a, b);
}
TQ_TARGET Vector zero_bytes(Vector x) {
  return _mm_cmpeq_epi8(x, _mm_setzero_si128());
}
// The top bit of every byte, 16 bits per lane.
TQ_TARGET std::uint32_t top_bits(Vector x) {
  return static_cast<std::uint32_t>(_mm_movemask_epi8(x));
}

// What the decoder needs.
// 128 bits from a place of its own for every lane.
TQ_TARGET Vector load_each(const std::int16_t* const (&from)[kLanes], int offset) {
  return load(from[0] + offset);
}
// The halves of one lane.
template <int kLane>
TQ_TARGET void store_halves(void* low, void* high, Vector x) {
  _mm_storel_epi64(static_cast<__m128i*>(low), x);
  _mm_storel_epi64(static_cast<__m128i*>(high), _mm_unpackhi_epi64(x, x));
}
// The first lanes of all three, then the second ones.
TQ_TARGET void store_in_turn(std::uint8_t* to, Vector a, Vector b, Vector c) {
  store(to, a);
  store(to + 16, b);
  store(to + 32, c);
}
TQ_TARGET Vector zero() {
  return _mm_setzero_si128();
}
TQ_TARGET Vector low_product(Vector x, Vector y) {
  return _mm_mullo_epi16(x, y);
}
template <int kBits>
TQ_TARGET Vector shifted_right(Vector x) {
  return _mm_srai_epi16(x, kBits);
}
TQ_TARGET Vector greater16(Vector a, Vector b) {
  return _mm_cmpgt_epi16(a, b);
}
TQ_TARGET Vector only_one(Vector a, Vector b) {
  return _mm_xor_si128(a, b);
}
TQ_TARGET Vector without(Vector x, Vector bits) {
  return _mm_andnot_si128(bits, x);
}
TQ_TARGET Vector low8(Vector a, Vector b) {
  return _mm_unpacklo_epi8(a, b);
}
TQ_TARGET Vector high8(Vector a, Vector b) {
  return _mm_unpackhi_epi8(a, b);
}
TQ_TARGET Vector packed16_unsigned(Vector a, Vector b) {
  return _mm_packus_epi16(a, b);
}
TQ_TARGET Vector larger16(Vector a, Vector b) {
  return _mm_max_epi16(a, b);
}
// Stops at the ends of the range.
TQ_TARGET Vector subtract16_limited(Vector a, Vector b) {
  return _mm_subs_epi16(a, b);
}
// The first 16 bits of all.
TQ_TARGET Vector first_of_all() {
  return _mm_setr_epi16(-1, 0, 0, 0, 0, 0, 0, 0);
}
TQ_TARGET std::uint32_t total32(Vector x) {
  x = _mm_add_epi32(x, _mm_shuffle_epi32(x, 0x4E));
  x = _mm_add_epi32(x, _mm_shuffle_epi32(x, 0xB1));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(x));
}

}  // namespace
}  // namespace tq::formats::x86
