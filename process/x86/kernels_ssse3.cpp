// Row kernels for SSSE3, up to 16 pixels at a time; the rest of a row goes to the portable ones. No
// standard library here: an inline function compiled for this instruction set must not become the
// copy that everybody uses.
#include "process/x86/kernels_x86.h"

#if defined(__i386__) || defined(__x86_64__)
#include <tmmintrin.h>

#define TQ_SSSE3 __attribute__((target("ssse3")))

namespace tq::process::x86 {
namespace {

TQ_SSSE3 __m128i load(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

TQ_SSSE3 void store(void* to, __m128i value) {
  _mm_storeu_si128(static_cast<__m128i*>(to), value);
}

// Four pixels, of 16 bytes that begin with them, to blue, green, red, 0.
TQ_SSSE3 __m128i four_pixels(const std::uint8_t* bgr) {
  return _mm_shuffle_epi8(load(bgr),
                          _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
}

// Loading four pixels reads four bytes of the next two as well.
constexpr std::int32_t kReadAhead = 2;

TQ_SSSE3 __m128i weights_of(int blue, int green, int red) {
  return _mm_set1_epi32(red << 16 | green << 8 | blue);
}

}  // namespace

// Four keys in 32-bit lanes.
TQ_SSSE3 __m128i four_keys(const std::uint8_t* bgr) {
  const __m128i upper = _mm_and_si128(four_pixels(bgr), _mm_set1_epi8(static_cast<char>(0xF0)));
  const __m128i pairs = _mm_maddubs_epi16(upper, weights_of(1, 16, 16));
  return _mm_srli_epi32(_mm_madd_epi16(pairs, _mm_set1_epi32(16 << 16 | 1)), 4);
}

TQ_SSSE3 std::int32_t keys_24(const std::uint8_t* bgr, std::uint16_t* keys, std::int32_t width) {
  std::int32_t x = 0;
  for (; x + 8 + kReadAhead <= width; x += 8, bgr += 24) {
    store(keys + x, _mm_packs_epi32(four_keys(bgr), four_keys(bgr + 12)));
  }
  return x;
}

TQ_SSSE3 std::int32_t at_least(const std::uint8_t* grey, const std::uint8_t* least,
                               std::uint8_t* bits, std::int32_t width) {
  const __m128i half = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(least));
  const __m128i limits = _mm_unpacklo_epi64(half, half);
  // The leftmost pixel is the top bit, but the lowest of the mask.
  const __m128i turned = _mm_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
  std::int32_t x = 0;
  for (; x + 16 <= width; x += 16, bits += 2) {
    const __m128i white = _mm_cmpeq_epi8(_mm_min_epu8(load(grey + x), limits), limits);
    const auto mask =
        static_cast<std::uint16_t>(_mm_movemask_epi8(_mm_shuffle_epi8(white, turned)));
    __builtin_memcpy(bits, &mask, sizeof mask);
  }
  return x;
}

}  // namespace tq::process::x86

#endif
