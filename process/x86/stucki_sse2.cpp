// What the two rows above give to a row of Stucki diffusion, for SSE2.
#include "process/x86/kernels_x86.h"

#if defined(__SSE2__)
#include <emmintrin.h>

namespace tq::process::x86 {
namespace {

// Eight shares as 16-bit numbers.
__m128i widen(const std::int8_t* shares) {
  const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(shares));
  return _mm_srai_epi16(_mm_unpacklo_epi8(bytes, bytes), 8);
}

// Divided by a power of two, cut toward zero.
template <int kShift>
__m128i part(__m128i v) {
  return _mm_srai_epi16(_mm_add_epi16(v, _mm_srli_epi16(_mm_srai_epi16(v, 15), 16 - kShift)),
                        kShift);
}

// The parts of the shares at one distance to the left and to the right.
template <int kShift>
__m128i both_parts(const std::int8_t* shares, int distance) {
  return _mm_add_epi16(part<kShift>(widen(shares - distance)),
                       part<kShift>(widen(shares + distance)));
}

}  // namespace

std::int32_t add_stucki_rows(const std::uint8_t* levels, const std::int8_t* above,
                             const std::int8_t* second_above, std::int16_t* values,
                             std::int32_t width) {
  std::int32_t x = 0;
  for (; x + 8 <= width; x += 8) {
    const std::int8_t* a = above + x;
    const std::int8_t* b = second_above + x;
    const __m128i from_above =
        _mm_add_epi16(widen(a), _mm_add_epi16(both_parts<1>(a, 1), both_parts<2>(a, 2)));
    const __m128i from_second =
        _mm_add_epi16(part<1>(widen(b)), _mm_add_epi16(both_parts<2>(b, 1), both_parts<3>(b, 2)));
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(levels + x));
    const __m128i own = _mm_unpacklo_epi8(bytes, _mm_setzero_si128());
    _mm_storeu_si128(reinterpret_cast<__m128i*>(values + x),
                     _mm_add_epi16(own, _mm_add_epi16(from_above, from_second)));
  }
  return x;
}

}  // namespace tq::process::x86

#endif
