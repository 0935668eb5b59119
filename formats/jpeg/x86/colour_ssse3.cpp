// Colour conversion to B G R, 16 pixels at a time.
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
TQ_TARGET Vector load_half(const void* from) {
  return _mm_loadl_epi64(static_cast<const __m128i*>(from));
}
TQ_TARGET void store(void* to, Vector value) {
  _mm_storeu_si128(static_cast<__m128i*>(to), value);
}

// 65536 times the fraction of a factor, so chosen that the high product of any amount up to 128 is
// the product with the exact fraction, cut.
constexpr int kRedFraction = 26346, kGreenCbFraction = 22554, kGreenCrFraction = 46802,
              kBlueFraction = 50594;

template <int kFraction>
TQ_TARGET Vector cut_product(Vector amount) {
  return _mm_mulhi_epu16(amount, _mm_set1_epi16(static_cast<short>(kFraction)));
}

// What chroma adds to blue and red and takes from green, for 8 samples.
struct Chroma {
  Vector blue, green, red;
};
TQ_TARGET Chroma chroma_of(Vector cb, Vector cr) {
  const Vector middle = _mm_set1_epi16(128);
  cb = _mm_sub_epi16(cb, middle);
  cr = _mm_sub_epi16(cr, middle);
  const Vector b = _mm_abs_epi16(cb), r = _mm_abs_epi16(cr);
  return {_mm_sign_epi16(_mm_add_epi16(b, cut_product<kBlueFraction>(b)), cb),
          _mm_add_epi16(_mm_sign_epi16(cut_product<kGreenCbFraction>(b), cb),
                        _mm_sign_epi16(cut_product<kGreenCrFraction>(r), cr)),
          _mm_sign_epi16(_mm_add_epi16(r, cut_product<kRedFraction>(r)), cr)};
}

// 16 pixels from 16 bytes of each colour.
TQ_TARGET void store_pixels(std::uint8_t* to, Vector blue, Vector green, Vector red) {
  constexpr char z = -1;
  const Vector b0 = _mm_setr_epi8(0, z, z, 1, z, z, 2, z, z, 3, z, z, 4, z, z, 5);
  const Vector g0 = _mm_setr_epi8(z, 0, z, z, 1, z, z, 2, z, z, 3, z, z, 4, z, z);
  const Vector r0 = _mm_setr_epi8(z, z, 0, z, z, 1, z, z, 2, z, z, 3, z, z, 4, z);
  const Vector b1 = _mm_setr_epi8(z, z, 6, z, z, 7, z, z, 8, z, z, 9, z, z, 10, z);
  const Vector g1 = _mm_setr_epi8(5, z, z, 6, z, z, 7, z, z, 8, z, z, 9, z, z, 10);
  const Vector r1 = _mm_setr_epi8(z, 5, z, z, 6, z, z, 7, z, z, 8, z, z, 9, z, z);
  const Vector b2 = _mm_setr_epi8(z, 11, z, z, 12, z, z, 13, z, z, 14, z, z, 15, z, z);
  const Vector g2 = _mm_setr_epi8(z, z, 11, z, z, 12, z, z, 13, z, z, 14, z, z, 15, z);
  const Vector r2 = _mm_setr_epi8(10, z, z, 11, z, z, 12, z, z, 13, z, z, 14, z, z, 15);
  store(to, _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(blue, b0), _mm_shuffle_epi8(green, g0)),
                         _mm_shuffle_epi8(red, r0)));
  store(to + 16, _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(blue, b1), _mm_shuffle_epi8(green, g1)),
                              _mm_shuffle_epi8(red, r1)));
  store(to + 32, _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(blue, b2), _mm_shuffle_epi8(green, g2)),
                              _mm_shuffle_epi8(red, r2)));
}

TQ_TARGET void convert_16(const std::uint8_t* y, const Chroma& low, const Chroma& high,
                          std::uint8_t* bgr) {
  const Vector zero = _mm_setzero_si128();
  const Vector luma = load(y);
  const Vector y0 = _mm_unpacklo_epi8(luma, zero), y1 = _mm_unpackhi_epi8(luma, zero);
  store_pixels(bgr, _mm_packus_epi16(_mm_add_epi16(y0, low.blue), _mm_add_epi16(y1, high.blue)),
               _mm_packus_epi16(_mm_sub_epi16(y0, low.green), _mm_sub_epi16(y1, high.green)),
               _mm_packus_epi16(_mm_add_epi16(y0, low.red), _mm_add_epi16(y1, high.red)));
}

}  // namespace

__attribute__((target("ssse3"))) void ycc_to_bgr_ssse3(const std::uint8_t* y,
                                                       const std::uint8_t* cb,
                                                       const std::uint8_t* cr, std::uint8_t* bgr,
                                                       int width) {
  const Vector zero = _mm_setzero_si128();
  for (int x = 0; x < width; x += 16, bgr += 48) {
    const Vector b = load(cb + x), r = load(cr + x);
    convert_16(y + x, chroma_of(_mm_unpacklo_epi8(b, zero), _mm_unpacklo_epi8(r, zero)),
               chroma_of(_mm_unpackhi_epi8(b, zero), _mm_unpackhi_epi8(r, zero)), bgr);
  }
}

__attribute__((target("ssse3"))) void ycc_to_bgr_halved_ssse3(const std::uint8_t* y,
                                                              const std::uint8_t* cb,
                                                              const std::uint8_t* cr,
                                                              std::uint8_t* bgr, int width) {
  const Vector zero = _mm_setzero_si128();
  for (int x = 0; x < width; x += 16, bgr += 48) {
    const Chroma c = chroma_of(_mm_unpacklo_epi8(load_half(cb + x / 2), zero),
                               _mm_unpacklo_epi8(load_half(cr + x / 2), zero));
    const Chroma low = {_mm_unpacklo_epi16(c.blue, c.blue), _mm_unpacklo_epi16(c.green, c.green),
                        _mm_unpacklo_epi16(c.red, c.red)};
    const Chroma high = {_mm_unpackhi_epi16(c.blue, c.blue), _mm_unpackhi_epi16(c.green, c.green),
                         _mm_unpackhi_epi16(c.red, c.red)};
    convert_16(y + x, low, high, bgr);
  }
}

}  // namespace tq::formats::x86

#endif
