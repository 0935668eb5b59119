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
// A byte for each 16-bit value.
TQ_SIMD Vector load_widened(const std::uint8_t* from) {
  return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)),
                           _mm_setzero_si128());
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
