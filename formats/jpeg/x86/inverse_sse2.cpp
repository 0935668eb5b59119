// The inverse transform, one block at a time in 16 bits.
#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "formats/jpeg/x86/x86_kernels.h"

#define TQ_TARGET __attribute__((target("sse2"), always_inline)) inline

namespace tq::formats::x86 {
namespace {

using Vector = __m128i;

TQ_TARGET Vector load(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
TQ_TARGET Vector add(Vector a, Vector b) {
  return _mm_add_epi16(a, b);
}
TQ_TARGET Vector subtract(Vector a, Vector b) {
  return _mm_sub_epi16(a, b);
}

// x * k >> 10 as one high product: 64 k is kOver times 65536 more than the factor.
template <int kFactor>
TQ_TARGET Vector scaled(Vector x) {
  constexpr int kOver = (64 * kFactor + 32768) >> 16;
  constexpr auto kRest = static_cast<short>(64 * kFactor - 65536 * kOver);
  Vector product = _mm_mulhi_epi16(x, _mm_set1_epi16(kRest));
  for (int i = 0; i < kOver; ++i) product = add(product, x);
  return product;
}

TQ_TARGET void inverse_four(Vector (&x)[4]) {
  const Vector a = add(x[0], x[2]), b = subtract(x[0], x[2]);
  const Vector c = add(scaled<1338>(x[1]), scaled<553>(x[3]));
  const Vector d = subtract(scaled<553>(x[1]), scaled<1338>(x[3]));
  x[0] = add(a, c);
  x[1] = add(b, d);
  x[2] = subtract(b, d);
  x[3] = subtract(a, c);
}

TQ_TARGET void inverse_eight(Vector (&x)[8]) {
  Vector even[4] = {x[0], x[2], x[4], x[6]};
  inverse_four(even);
  Vector odd[4] = {scaled<1448>(x[1]), add(x[1], x[3]), add(x[3], x[5]), add(x[5], x[7])};
  inverse_four(odd);
  odd[0] = scaled<522>(odd[0]);
  odd[1] = scaled<616>(odd[1]);
  odd[2] = scaled<922>(odd[2]);
  odd[3] = scaled<2624>(odd[3]);
#pragma GCC unroll 8
  for (int n = 0; n < 4; ++n) {
    x[n] = add(even[n], odd[n]);
    x[7 - n] = subtract(even[n], odd[n]);
  }
}

TQ_TARGET void transpose(Vector (&x)[8]) {
  Vector a[8], b[8];
#pragma GCC unroll 8
  for (int i = 0; i < 4; ++i) {
    a[2 * i] = _mm_unpacklo_epi16(x[2 * i], x[2 * i + 1]);
    a[2 * i + 1] = _mm_unpackhi_epi16(x[2 * i], x[2 * i + 1]);
  }
#pragma GCC unroll 8
  for (int i = 0; i < 2; ++i) {
    b[4 * i] = _mm_unpacklo_epi32(a[4 * i], a[4 * i + 2]);
    b[4 * i + 1] = _mm_unpackhi_epi32(a[4 * i], a[4 * i + 2]);
    b[4 * i + 2] = _mm_unpacklo_epi32(a[4 * i + 1], a[4 * i + 3]);
    b[4 * i + 3] = _mm_unpackhi_epi32(a[4 * i + 1], a[4 * i + 3]);
  }
#pragma GCC unroll 8
  for (int i = 0; i < 4; ++i) {
    x[2 * i] = _mm_unpacklo_epi64(b[i], b[4 + i]);
    x[2 * i + 1] = _mm_unpackhi_epi64(b[i], b[4 + i]);
  }
}

// Two rows of samples: rounded, limited, with the level shift.
TQ_TARGET Vector limited(Vector first, Vector second) {
  const Vector four = _mm_set1_epi16(4), brightest = _mm_set1_epi16(383);
  first = _mm_srai_epi16(add(first, four), 3);
  second = _mm_srai_epi16(add(second, four), 3);
  const Vector samples =
      _mm_xor_si128(_mm_packs_epi16(first, second), _mm_set1_epi8(static_cast<char>(0x80)));
  const Vector dark =
      _mm_packs_epi16(_mm_cmpgt_epi16(first, brightest), _mm_cmpgt_epi16(second, brightest));
  return _mm_andnot_si128(dark, samples);
}

TQ_TARGET void store_half(std::uint8_t* to, __m128i samples) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(to), samples);
}

}  // namespace

__attribute__((target("sse2"))) void inverse_sse2(const std::int16_t* coefficients,
                                                  const DequantiseTable& table,
                                                  std::uint8_t* samples, std::ptrdiff_t stride) {
  Vector x[8];
#pragma GCC unroll 8
  for (int i = 0; i < 8; ++i) {
    x[i] = _mm_mullo_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(coefficients + 8 * i)),
                           _mm_load_si128(reinterpret_cast<const __m128i*>(table.steps + 8 * i)));
  }
  inverse_eight(x);
  transpose(x);
  inverse_eight(x);
#pragma GCC unroll 8
  for (int i = 0; i < 8; i += 2, samples += 2 * stride) {
    const Vector rows = limited(x[i], x[i + 1]);
    store_half(samples, rows);
    store_half(samples + stride, _mm_unpackhi_epi64(rows, rows));
  }
}

__attribute__((target("sse2"))) std::uint32_t ac_magnitude_sse2(const std::int16_t* coefficients,
                                                                const DequantiseTable& table) {
  const Vector zero = _mm_setzero_si128();
  Vector used = _mm_setr_epi16(0, -1, -1, -1, -1, -1, -1, -1);
  Vector sum = zero;
#pragma GCC unroll 8
  for (int i = 0; i < 8; ++i) {
    const Vector x = _mm_and_si128(load(coefficients + 8 * i), used);
    const Vector amount = _mm_max_epi16(x, _mm_subs_epi16(zero, x));
    sum = _mm_add_epi32(sum, _mm_madd_epi16(amount, load(table.steps + 8 * i)));
    used = _mm_set1_epi16(-1);
  }
  sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0x4E));
  sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0xB1));
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(sum));
}

}  // namespace tq::formats::x86

#endif
