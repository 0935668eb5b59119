// Colour conversion from B G R, 4 or 8 pixels at a time.
#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "formats/jpeg/colour.h"
#include "formats/jpeg/x86/x86_kernels.h"

#define TQ_TARGET __attribute__((target("ssse3"), always_inline)) inline

namespace tq::formats::x86 {
namespace {

using Vector = __m128i;

TQ_TARGET Vector load(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
TQ_TARGET void store(void* to, Vector value) {
  _mm_storeu_si128(static_cast<__m128i*>(to), value);
}

// (green, red) pairs and (blue, 0) pairs of four pixels, ready for multiplication.
struct Pairs {
  Vector green_red, blue;
};
TQ_TARGET Pairs four_pixels(const std::uint8_t* bgr) {
  constexpr char z = -1;
  const Vector p = load(bgr);
  return {_mm_shuffle_epi8(p, _mm_setr_epi8(1, z, 2, z, 4, z, 5, z, 7, z, 8, z, 10, z, 11, z)),
          _mm_shuffle_epi8(p, _mm_setr_epi8(0, z, z, z, 3, z, z, z, 6, z, z, z, 9, z, z, z))};
}
// Every second of eight pixels.
TQ_TARGET Pairs four_of_eight(const std::uint8_t* bgr) {
  constexpr char z = -1;
  const Vector p = load(bgr), q = load(bgr + 8);  // the fourth begins at byte 18
  return {_mm_or_si128(
              _mm_shuffle_epi8(p, _mm_setr_epi8(1, z, 2, z, 7, z, 8, z, 13, z, 14, z, z, z, z, z)),
              _mm_shuffle_epi8(q, _mm_setr_epi8(z, z, z, z, z, z, z, z, z, z, z, z, 11, z, 12, z))),
          _mm_or_si128(
              _mm_shuffle_epi8(p, _mm_setr_epi8(0, z, z, z, 6, z, z, z, 12, z, z, z, z, z, z, z)),
              _mm_shuffle_epi8(q, _mm_setr_epi8(z, z, z, z, z, z, z, z, z, z, z, z, 10, z, z, z)))};
}

template <int kGreen, int kRed, int kBlue>
TQ_TARGET Vector weighed(const Pairs& pixels) {
  const Vector green_red = _mm_set1_epi32((kGreen & 0xFFFF) | kRed * 65536);
  return _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(pixels.green_red, green_red),
                                      _mm_madd_epi16(pixels.blue, _mm_set1_epi32(kBlue & 0xFFFF))),
                        10);
}

TQ_TARGET void store_chroma(const Pairs& a, const Pairs& b, std::int16_t* cb, std::int16_t* cr) {
  store(cb, _mm_packs_epi32(weighed<-339, -178, 512>(a), weighed<-339, -178, 512>(b)));
  store(cr, _mm_packs_epi32(weighed<-429, 512, -83>(a), weighed<-429, 512, -83>(b)));
}

}  // namespace

__attribute__((target("ssse3"))) void bgr_to_luma_ssse3(const std::uint8_t* bgr, std::int16_t* y,
                                                        int width) {
  const Vector middle = _mm_set1_epi16(128);
  for (int x = 0; x < width; x += 8, bgr += 24) {
    const Vector a = weighed<603, 308, 120>(four_pixels(bgr));
    const Vector b = weighed<603, 308, 120>(four_pixels(bgr + 12));
    store(y + x, _mm_sub_epi16(_mm_packs_epi32(a, b), middle));
  }
}

__attribute__((target("ssse3"))) void bgr_to_chroma_ssse3(const std::uint8_t* bgr, int step,
                                                          std::int16_t* cb, std::int16_t* cr,
                                                          int width) {
  if (step == 1) {
    for (int x = 0; x < width; x += 8, bgr += 24) {
      store_chroma(four_pixels(bgr), four_pixels(bgr + 12), cb + x, cr + x);
    }
  } else if (step == 2) {
    for (int x = 0; x < width; x += 16, bgr += 48) {
      store_chroma(four_of_eight(bgr), four_of_eight(bgr + 24), cb + x / 2, cr + x / 2);
    }
  } else {
    bgr_to_chroma(bgr, step, cb, cr, width);
  }
}

}  // namespace tq::formats::x86

#endif
