// Registers of 128 bits, SSSE3: what is special about them, and the words of simd.h.
#pragma once

#include <immintrin.h>

#include <cstdint>

// A kernel, and what kernels are made of.
#define TQ_KERNEL __attribute__((target("ssse3"))) inline
#define TQ_SIMD __attribute__((target("ssse3"), always_inline)) inline
#define TQ_INTRINSIC(name) _mm_##name

namespace tq::simd {
namespace {

using Vector = __m128i;
using FloatVector = __m128;
inline constexpr int kLanes = 1;  // of 128 bits

// A register of one lane everywhere, or of its first and its last lane; and one of its lanes.
TQ_SIMD Vector repeated(__m128i x) {
  return x;
}
TQ_SIMD Vector joined(__m128i first, __m128i /*last*/) {
  return first;
}
template <int kLane>
TQ_SIMD __m128i lane(Vector x) {
  return x;
}
// Makes one sequence of what two values of 64 bits per lane hold in turn.
TQ_SIMD Vector in_sequence(Vector x) {
  return x;
}
// Parts of a register: its low bits, the others being 0.
TQ_SIMD Vector load32(const void* from) {
  return _mm_loadu_si32(from);
}
TQ_SIMD void store32(void* to, Vector x) {
  _mm_storeu_si32(to, x);
}
TQ_SIMD Vector load64(const void* from) {
  return _mm_loadl_epi64(static_cast<const __m128i*>(from));
}
TQ_SIMD void store64(void* to, Vector x) {
  _mm_storel_epi64(static_cast<__m128i*>(to), x);
}
TQ_SIMD std::uint32_t low32(Vector x) {
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(x));
}
// By a number of bytes, zeros following.
template <int kBytes>
TQ_SIMD Vector move_down(Vector x) {
  return _mm_srli_si128(x, kBytes);
}
template <int kBytes>
TQ_SIMD Vector move_up(Vector x) {
  return _mm_slli_si128(x, kBytes);
}
// A byte for each 16-bit value.
TQ_SIMD Vector load_widened(const std::uint8_t* from) {
  return _mm_unpacklo_epi8(load64(from), _mm_setzero_si128());
}
TQ_SIMD Vector load_widened(const std::int8_t* from) {
  const Vector bytes = load64(from);
  return _mm_srai_epi16(_mm_unpacklo_epi8(bytes, bytes), 8);
}
// The first lanes of all three, then the last ones.
TQ_SIMD void store_in_turn(std::uint8_t* to, Vector a, Vector b, Vector c) {
  auto* const out = reinterpret_cast<__m128i*>(to);
  _mm_storeu_si128(out, a);
  _mm_storeu_si128(out + 1, b);
  _mm_storeu_si128(out + 2, c);
}

}  // namespace
}  // namespace tq::simd

#include "platform/x86/simd.h"
