// Row kernels for SSSE3, up to 16 pixels at a time; the rest of a row goes to the portable ones. No
// standard library here: an inline function compiled for this instruction set must not become the
// copy that everybody uses.
#if defined(__i386__) || defined(__x86_64__)

#include "core/numbers.h"
#include "pixels/kernels.h"

#include <tmmintrin.h>

#define TQ_SSSE3 __attribute__((target("ssse3")))

namespace tq::pixels {
namespace {

using Vector = __m128i;
constexpr std::uint8_t kNothing = 0x80;  // shuffled to 0

TQ_SSSE3 Vector load(const void* from) {
  return _mm_loadu_si128(static_cast<const Vector*>(from));
}

TQ_SSSE3 void store(void* to, Vector value) {
  _mm_storeu_si128(static_cast<Vector*>(to), value);
}

// Four pixels, of 16 bytes that begin with them, to blue, green, red, 0.
TQ_SSSE3 Vector four_pixels(const std::uint8_t* bgr) {
  return _mm_shuffle_epi8(load(bgr),
                          _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
}

// Loading four pixels reads four bytes of the next two as well.
constexpr int kReadAhead = 2;

TQ_SSSE3 void widen_24(const std::uint8_t* bgr, Rgb* colours, int width) {
  int x = 0;
  for (; x + 4 + kReadAhead <= width; x += 4) store(colours + x, four_pixels(bgr + 3 * x));
  kPortableKernels.widen_24(bgr + 3 * x, colours + x, width - x);
}

TQ_SSSE3 void widen_24_reversed(const std::uint8_t* bgr, std::uint8_t* out, int width) {
  const Vector order = _mm_setr_epi8(-1, 2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9);
  int x = 0;
  for (; x + 4 + kReadAhead <= width; x += 4) {
    store(out + 4 * x, _mm_shuffle_epi8(load(bgr + 3 * x), order));
  }
  kPortableKernels.widen_24_reversed(bgr + 3 * x, out + 4 * x, width - x);
}

// Shuffles between three planes of 16 bytes and 48 bytes of pixels.
struct PlaneOrders {
  alignas(16) std::uint8_t to_pixels[3][3][16];  // third of the pixels, plane
  alignas(16) std::uint8_t to_plane[3][3][16];   // plane, third of the pixels
};
constexpr PlaneOrders kOrders = [] {
  PlaneOrders orders{};
  for (int third = 0; third < 3; ++third) {
    for (int plane = 0; plane < 3; ++plane) {
      for (int i = 0; i < 16; ++i) {
        const int at = 16 * third + i;  // of the pixels' bytes
        orders.to_pixels[third][plane][i] = at % 3 == plane ? byte(at / 3) : kNothing;
        const int wanted = 3 * i + plane - 16 * third;
        orders.to_plane[plane][third][i] = wanted >= 0 && wanted < 16 ? byte(wanted) : kNothing;
      }
    }
  }
  return orders;
}();

TQ_SSSE3 Vector gathered(Vector a, Vector b, Vector c, const std::uint8_t (&orders)[3][16]) {
  return _mm_or_si128(
      _mm_or_si128(_mm_shuffle_epi8(a, load(orders[0])), _mm_shuffle_epi8(b, load(orders[1]))),
      _mm_shuffle_epi8(c, load(orders[2])));
}

TQ_SSSE3 void merge_planes(const std::uint8_t* blue, const std::uint8_t* green,
                           const std::uint8_t* red, std::uint8_t* bgr, int width) {
  int x = 0;
  for (; x + 16 <= width; x += 16, bgr += 48) {
    const Vector b = load(blue + x), g = load(green + x), r = load(red + x);
    for (int third = 0; third < 3; ++third) {
      store(bgr + 16 * third, gathered(b, g, r, kOrders.to_pixels[third]));
    }
  }
  kPortableKernels.merge_planes(blue + x, green + x, red + x, bgr, width - x);
}

TQ_SSSE3 void split_planes(const std::uint8_t* bgr, std::uint8_t* blue, std::uint8_t* green,
                           std::uint8_t* red, int width) {
  int x = 0;
  for (; x + 16 <= width; x += 16, bgr += 48) {
    const Vector a = load(bgr), b = load(bgr + 16), c = load(bgr + 32);
    store(blue + x, gathered(a, b, c, kOrders.to_plane[0]));
    store(green + x, gathered(a, b, c, kOrders.to_plane[1]));
    store(red + x, gathered(a, b, c, kOrders.to_plane[2]));
  }
  kPortableKernels.split_planes(bgr, blue + x, green + x, red + x, width - x);
}

// Weighted sums of eight pixels; no sum exceeds 15 bits.
TQ_SSSE3 Vector eight_sums(const std::uint8_t* bgr, Vector weights) {
  return _mm_hadd_epi16(_mm_maddubs_epi16(four_pixels(bgr), weights),
                        _mm_maddubs_epi16(four_pixels(bgr + 12), weights));
}

TQ_SSSE3 Vector weights_of(int blue, int green, int red) {
  return _mm_set1_epi32(red << 16 | green << 8 | blue);
}

TQ_SSSE3 void brightness_24(const std::uint8_t* bgr, std::uint8_t* grey, int width) {
  const Vector weights = weights_of(14, 75, 38);
  int x = 0;
  for (; x + 16 + kReadAhead <= width; x += 16, bgr += 48) {
    const Vector low = _mm_srli_epi16(eight_sums(bgr, weights), 7);
    const Vector high = _mm_srli_epi16(eight_sums(bgr + 24, weights), 7);
    store(grey + x, _mm_packus_epi16(low, high));
  }
  kPortableKernels.brightness_24(bgr, grey + x, width - x);
}

TQ_SSSE3 void luma_24(const std::uint8_t* bgr, std::uint8_t* grey, int width) {
  const Vector weights = weights_of(11, 59, 30);
  const Vector hundredth = _mm_set1_epi16(5243);  // of 2^19; exact for all sums
  int x = 0;
  for (; x + 16 + kReadAhead <= width; x += 16, bgr += 48) {
    const Vector low = _mm_mulhi_epu16(eight_sums(bgr, weights), hundredth);
    const Vector high = _mm_mulhi_epu16(eight_sums(bgr + 24, weights), hundredth);
    store(grey + x, _mm_packus_epi16(_mm_srli_epi16(low, 3), _mm_srli_epi16(high, 3)));
  }
  kPortableKernels.luma_24(bgr, grey + x, width - x);
}

}  // namespace

constexpr Kernels kSsse3Kernels{.widen_24 = widen_24,
                                .widen_24_reversed = widen_24_reversed,
                                .merge_planes = merge_planes,
                                .split_planes = split_planes,
                                .brightness_24 = brightness_24,
                                .luma_24 = luma_24};

}  // namespace tq::pixels

#endif
