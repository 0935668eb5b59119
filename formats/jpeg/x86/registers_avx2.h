// 256-bit registers of 16-bit values, in the terms of kernels that are written for any width. A
// file includes one header of this kind, then its kernels.
#pragma once

#include <immintrin.h>

#include <cstdint>

#define TQ_TARGET __attribute__((target("avx2"), always_inline)) inline

namespace tq::formats::x86 {
namespace {

using Vector = __m256i;
inline constexpr int kLanes = 2;  // of 128 bits

TQ_TARGET Vector load(const void* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}
// The same 128 bits in every lane; others from `step` bytes further on in each.
TQ_TARGET Vector repeat(const void* from) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(from)));
}
TQ_TARGET Vector load_lanes(const std::uint8_t* from, int step) {
  return _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(from + step),
                             reinterpret_cast<const __m128i*>(from));
}
// A byte for each 16-bit value.
TQ_TARGET Vector load_widened(const std::uint8_t* from) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}
TQ_TARGET void store(void* to, Vector x) {
  _mm256_storeu_si256(static_cast<__m256i*>(to), x);
}
template <int kLane>
TQ_TARGET void store_lane(void* to, Vector x) {
  _mm_storeu_si128(static_cast<__m128i*>(to), _mm256_extracti128_si256(x, kLane));
}

TQ_TARGET Vector all16(int value) {
  return _mm256_set1_epi16(static_cast<short>(value));
}
TQ_TARGET Vector all32(int value) {
  return _mm256_set1_epi32(value);
}
TQ_TARGET Vector add16(Vector a, Vector b) {
  return _mm256_add_epi16(a, b);
}
TQ_TARGET Vector subtract16(Vector a, Vector b) {
  return _mm256_sub_epi16(a, b);
}
TQ_TARGET Vector add32(Vector a, Vector b) {
  return _mm256_add_epi32(a, b);
}
// x * y >> 16, of signed and of unsigned values.
TQ_TARGET Vector high_product(Vector x, Vector y) {
  return _mm256_mulhi_epi16(x, y);
}
TQ_TARGET Vector high_product_unsigned(Vector x, Vector y) {
  return _mm256_mulhi_epu16(x, y);
}
// The sum of two products, in 32 bits.
TQ_TARGET Vector dot_product(Vector x, Vector y) {
  return _mm256_madd_epi16(x, y);
}
template <int kBits>
TQ_TARGET Vector shifted_left(Vector x) {
  return _mm256_slli_epi16(x, kBits);
}
template <int kBits>
TQ_TARGET Vector shifted_right32(Vector x) {
  return _mm256_srai_epi32(x, kBits);
}
// Divided by a power of two, halves upwards.
template <int kBits>
TQ_TARGET Vector rounded(Vector x) {
  return _mm256_mulhrs_epi16(x, _mm256_set1_epi16(1 << (15 - kBits)));
}
TQ_TARGET Vector amount(Vector x) {
  return _mm256_abs_epi16(x);
}
TQ_TARGET Vector with_sign(Vector x, Vector sign) {
  return _mm256_sign_epi16(x, sign);
}

TQ_TARGET Vector low16(Vector a, Vector b) {
  return _mm256_unpacklo_epi16(a, b);
}
TQ_TARGET Vector high16(Vector a, Vector b) {
  return _mm256_unpackhi_epi16(a, b);
}
TQ_TARGET Vector low32(Vector a, Vector b) {
  return _mm256_unpacklo_epi32(a, b);
}
TQ_TARGET Vector high32(Vector a, Vector b) {
  return _mm256_unpackhi_epi32(a, b);
}
TQ_TARGET Vector low64(Vector a, Vector b) {
  return _mm256_unpacklo_epi64(a, b);
}
TQ_TARGET Vector high64(Vector a, Vector b) {
  return _mm256_unpackhi_epi64(a, b);
}
// Every second of the 32-bit values.
TQ_TARGET Vector even32(Vector a, Vector b) {
  return _mm256_castps_si256(
      _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0x88));
}
TQ_TARGET Vector packed16(Vector a, Vector b) {
  return _mm256_packs_epi16(a, b);
}
TQ_TARGET Vector packed32(Vector a, Vector b) {
  return _mm256_packs_epi32(a, b);
}
// Makes one sequence of what two values of 64 bits per lane hold in turn.
TQ_TARGET Vector in_sequence(Vector x) {
  return _mm256_permute4x64_epi64(x, 0xD8);
}
TQ_TARGET Vector shuffled(Vector x, Vector places) {
  return _mm256_shuffle_epi8(x, places);
}
TQ_TARGET Vector either(Vector a, Vector b) {
  return _mm256_or_si256(a, b);
}
TQ_TARGET Vector zero_bytes(Vector x) {
  return _mm256_cmpeq_epi8(x, _mm256_setzero_si256());
}
// The top bit of every byte, 16 bits per lane.
TQ_TARGET std::uint32_t top_bits(Vector x) {
  return static_cast<std::uint32_t>(_mm256_movemask_epi8(x));
}

// What the decoder needs.
// 128 bits from a place of its own for every lane.
TQ_TARGET Vector load_each(const std::int16_t* const (&from)[kLanes], int offset) {
  return _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(from[1] + offset),
                             reinterpret_cast<const __m128i*>(from[0] + offset));
}
// The halves of one lane.
template <int kLane>
TQ_TARGET void store_halves(void* low, void* high, Vector x) {
  const __m128i lane = _mm256_extracti128_si256(x, kLane);
  _mm_storel_epi64(static_cast<__m128i*>(low), lane);
  _mm_storel_epi64(static_cast<__m128i*>(high), _mm_unpackhi_epi64(lane, lane));
}
// The first lanes of all three, then the second ones.
TQ_TARGET void store_in_turn(std::uint8_t* to, Vector a, Vector b, Vector c) {
  store(to, _mm256_permute2x128_si256(a, b, 0x20));
  store(to + 32, _mm256_permute2x128_si256(c, a, 0x30));
  store(to + 64, _mm256_permute2x128_si256(b, c, 0x31));
}
TQ_TARGET Vector zero() {
  return _mm256_setzero_si256();
}
TQ_TARGET Vector low_product(Vector x, Vector y) {
  return _mm256_mullo_epi16(x, y);
}
template <int kBits>
TQ_TARGET Vector shifted_right(Vector x) {
  return _mm256_srai_epi16(x, kBits);
}
TQ_TARGET Vector greater16(Vector a, Vector b) {
  return _mm256_cmpgt_epi16(a, b);
}
TQ_TARGET Vector only_one(Vector a, Vector b) {
  return _mm256_xor_si256(a, b);
}
TQ_TARGET Vector without(Vector x, Vector bits) {
  return _mm256_andnot_si256(bits, x);
}
TQ_TARGET Vector low8(Vector a, Vector b) {
  return _mm256_unpacklo_epi8(a, b);
}
TQ_TARGET Vector high8(Vector a, Vector b) {
  return _mm256_unpackhi_epi8(a, b);
}
TQ_TARGET Vector packed16_unsigned(Vector a, Vector b) {
  return _mm256_packus_epi16(a, b);
}
TQ_TARGET Vector larger16(Vector a, Vector b) {
  return _mm256_max_epi16(a, b);
}
// Stops at the ends of the range.
TQ_TARGET Vector subtract16_limited(Vector a, Vector b) {
  return _mm256_subs_epi16(a, b);
}
// The first 16 bits of all.
TQ_TARGET Vector first_of_all() {
  return _mm256_setr_epi16(-1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
}
TQ_TARGET std::uint32_t total32(Vector x) {
  __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(x), _mm256_extracti128_si256(x, 1));
  sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0x4E));
  sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0xB1));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(sum));
}

}  // namespace
}  // namespace tq::formats::x86
