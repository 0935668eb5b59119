// Registers of 256 bits, AVX2: what is special about them, and the words of simd.h.
#pragma once

#include <immintrin.h>

#include <cstdint>

// A kernel, and what kernels are made of.
#define TQ_KERNEL __attribute__((target("avx2"))) inline
#define TQ_SIMD __attribute__((target("avx2"), always_inline)) inline
#define TQ_INTRINSIC(name) _mm256_##name

namespace tq::simd {
namespace {

using Vector = __m256i;
using FloatVector = __m256;
inline constexpr int kLanes = 2;  // of 128 bits

// A register of one lane everywhere, or of its first and its last lane; and one of its lanes.
TQ_SIMD Vector repeated(__m128i x) {
  return _mm256_broadcastsi128_si256(x);
}
TQ_SIMD Vector joined(__m128i first, __m128i last) {
  return _mm256_set_m128i(last, first);
}
template <int kLane>
TQ_SIMD __m128i lane(Vector x) {
  return _mm256_extracti128_si256(x, kLane);
}
// Makes one sequence of what two values of 64 bits per lane hold in turn.
TQ_SIMD Vector in_sequence(Vector x) {
  return _mm256_permute4x64_epi64(x, 0xD8);
}
// A byte for each 16-bit value.
TQ_SIMD Vector load_widened(const std::uint8_t* from) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}
TQ_SIMD Vector load_widened(const std::int8_t* from) {
  return _mm256_cvtepi8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}
// Eight values as 32 bits each.
TQ_SIMD Vector load_as_32(const std::uint8_t* from) {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
}
TQ_SIMD Vector load_as_32(const std::uint16_t* from) {
  return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}
// Four values as 64 bits each.
TQ_SIMD Vector load_as_64(const std::uint8_t* from) {
  return _mm256_cvtepu8_epi64(_mm_loadu_si32(from));
}
TQ_SIMD Vector load_as_64(const std::uint16_t* from) {
  return _mm256_cvtepu16_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
}
TQ_SIMD __m128i load_two_halves(const void* low, const void* high) {
  return _mm_unpacklo_epi64(_mm_loadl_epi64(static_cast<const __m128i*>(low)),
                            _mm_loadl_epi64(static_cast<const __m128i*>(high)));
}
// The halves of both lanes, from places of their own.
TQ_SIMD Vector load_halves(const std::uint8_t* const (&from)[4]) {
  return joined(load_two_halves(from[0], from[1]), load_two_halves(from[2], from[3]));
}
// The low half of a lane, or a half of that.
template <int kLane>
TQ_SIMD void store_quarter(void* to, Vector x) {
  _mm_storeu_si32(to, lane<kLane>(x));
}
template <int kLane>
TQ_SIMD void store_half(void* to, Vector x) {
  _mm_storel_epi64(static_cast<__m128i*>(to), lane<kLane>(x));
}
// At a place that is a multiple of 32, past the caches.
TQ_SIMD void store_past(void* to, Vector x) {
  _mm256_stream_si256(static_cast<__m256i*>(to), x);
}
// Before anybody else reads what was stored so.
TQ_SIMD void finish_stores() {
  _mm_sfence();
}
// What one lane has as floating point of 64 bits.
using DoubleVector = __m256d;
TQ_SIMD DoubleVector all_doubles(double value) {
  return _mm256_set1_pd(value);
}
template <int kLane>
TQ_SIMD DoubleVector to_doubles(Vector x) {
  return _mm256_cvtepi32_pd(lane<kLane>(x));
}
// Of 64-bit values, at least 0 and below 2^52.
TQ_SIMD DoubleVector small_to_doubles(Vector x) {
  const DoubleVector base = _mm256_set1_pd(4503599627370496.0);
  return reinterpret_cast<DoubleVector>(x | reinterpret_cast<Vector>(base)) - base;
}
// Those where a comparison is true, else 0.
template <class Compared>
TQ_SIMD DoubleVector where(Compared is_true, DoubleVector x) {
  return reinterpret_cast<DoubleVector>(reinterpret_cast<Vector>(is_true) &
                                        reinterpret_cast<Vector>(x));
}
// Four numbers from 0 to 255.
TQ_SIMD void store_bytes(void* to, DoubleVector x) {
  const __m128i words = _mm256_cvttpd_epi32(x);
  _mm_storeu_si32(to, _mm_packus_epi16(_mm_packs_epi32(words, words), __m128i{}));
}
// Each 64-bit value and all before it, and the last one everywhere.
TQ_SIMD Vector running_sums64(Vector x) {
  x = _mm256_add_epi64(x, _mm256_slli_si256(x, 8));
  const __m256i first = _mm256_permute2x128_si256(x, x, 0x08);  // 0, and the first lane
  return _mm256_add_epi64(x, _mm256_unpackhi_epi64(first, first));
}
TQ_SIMD Vector last64(Vector x) {
  return _mm256_permute4x64_epi64(x, 0xFF);
}
TQ_SIMD DoubleVector rounded_down(DoubleVector x) {
  return _mm256_floor_pd(x);
}
TQ_SIMD DoubleVector square_root(DoubleVector x) {
  return _mm256_sqrt_pd(x);
}
// What comparisons of doubles are, as 32 bits each.
TQ_SIMD Vector narrowed(Vector first, Vector last) {
  const __m256 even =
      _mm256_shuffle_ps(reinterpret_cast<__m256>(first), reinterpret_cast<__m256>(last), 0x88);
  return in_sequence(reinterpret_cast<Vector>(even));
}
TQ_SIMD Vector multiply_low32(Vector a, Vector b) {
  return _mm256_mullo_epi32(a, b);
}
TQ_SIMD std::uint32_t low32(Vector x) {
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(lane<0>(x)));
}
// Each 32-bit value and all before it.
TQ_SIMD Vector running_sums32(Vector x) {
  x = _mm256_add_epi32(x, _mm256_slli_si256(x, 4));
  x = _mm256_add_epi32(x, _mm256_slli_si256(x, 8));
  const __m256i first = _mm256_permute2x128_si256(x, x, 0x08);  // 0, and the first lane
  return _mm256_add_epi32(x, _mm256_shuffle_epi32(first, 0xFF));
}
// The last of the 32-bit values everywhere.
TQ_SIMD Vector last32(Vector x) {
  return _mm256_shuffle_epi32(_mm256_permute2x128_si256(x, x, 0x11), 0xFF);
}
// The first lanes of all three, then the last ones.
TQ_SIMD void store_in_turn(std::uint8_t* to, Vector a, Vector b, Vector c) {
  auto* const out = reinterpret_cast<__m256i*>(to);
  _mm256_storeu_si256(out, _mm256_permute2x128_si256(a, b, 0x20));
  _mm256_storeu_si256(out + 1, _mm256_permute2x128_si256(c, a, 0x30));
  _mm256_storeu_si256(out + 2, _mm256_permute2x128_si256(b, c, 0x31));
}

}  // namespace
}  // namespace tq::simd

#include "platform/x86/simd.h"
