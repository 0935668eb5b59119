// The forward transform in 16 bits, and quantisation. Samples come with four
// more bits, the column pass has one more: every value that is multiplied stays below 20000.
#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "formats/jpeg/x86/x86_kernels.h"

#define TQ_TARGET __attribute__((target("sse2"), always_inline)) inline

namespace tq::formats::x86 {
namespace {

using Vector = __m128i;

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

TQ_TARGET void forward_four(Vector (&s)[4]) {
  const Vector a = add(s[0], s[3]), b = add(s[1], s[2]);
  const Vector c = subtract(s[0], s[3]), d = subtract(s[1], s[2]);
  s[0] = add(a, b);
  s[1] = add(scaled<1338>(c), scaled<553>(d));
  s[2] = subtract(a, b);
  s[3] = subtract(scaled<553>(c), scaled<1338>(d));
}

TQ_TARGET void forward_eight(Vector (&x)[8]) {
  Vector even[4], odd[4];
  for (int n = 0; n < 4; ++n) {
    even[n] = add(x[n], x[7 - n]);
    odd[n] = subtract(x[n], x[7 - n]);
  }
  odd[0] = scaled<522>(odd[0]);
  odd[1] = scaled<616>(odd[1]);
  odd[2] = scaled<922>(odd[2]);
  odd[3] = scaled<2624>(odd[3]);
  forward_four(even);
  forward_four(odd);
  for (int n = 0; n < 4; ++n) x[2 * n] = even[n];
  x[1] = add(scaled<1448>(odd[0]), odd[1]);
  x[3] = add(odd[1], odd[2]);
  x[5] = add(odd[2], odd[3]);
  x[7] = odd[3];
}

TQ_TARGET void transpose(Vector (&x)[8]) {
  Vector a[8], b[8];
  for (int i = 0; i < 4; ++i) {
    a[2 * i] = _mm_unpacklo_epi16(x[2 * i], x[2 * i + 1]);
    a[2 * i + 1] = _mm_unpackhi_epi16(x[2 * i], x[2 * i + 1]);
  }
  for (int i = 0; i < 2; ++i) {
    b[4 * i] = _mm_unpacklo_epi32(a[4 * i], a[4 * i + 2]);
    b[4 * i + 1] = _mm_unpackhi_epi32(a[4 * i], a[4 * i + 2]);
    b[4 * i + 2] = _mm_unpacklo_epi32(a[4 * i + 1], a[4 * i + 3]);
    b[4 * i + 3] = _mm_unpackhi_epi32(a[4 * i + 1], a[4 * i + 3]);
  }
  for (int i = 0; i < 4; ++i) {
    x[2 * i] = _mm_unpacklo_epi64(b[i], b[4 + i]);
    x[2 * i + 1] = _mm_unpackhi_epi64(b[i], b[4 + i]);
  }
}

TQ_TARGET Vector load(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

// Place of each row-major position in the zigzag sequence.
struct ZigzagPlaces {
  std::uint8_t of[kBlock];
};
constexpr ZigzagPlaces zigzag_places() {
  ZigzagPlaces places{};
  for (int i = 0; i < kBlock; ++i) {
    places.of[kZigzag[static_cast<unsigned>(i)]] = static_cast<std::uint8_t>(i);
  }
  return places;
}
constexpr ZigzagPlaces kPlaces = zigzag_places();

}  // namespace

__attribute__((target("sse2"))) void forward_sse2(const std::int16_t* samples,
                                                  std::ptrdiff_t stride,
                                                  std::int16_t* coefficients) {
  Vector x[8];
  for (int i = 0; i < 8; ++i) x[i] = _mm_slli_epi16(load(samples + i * stride), 4);
  transpose(x);
  forward_eight(x);
  const Vector four = _mm_set1_epi16(4);
  for (Vector& values : x) values = _mm_srai_epi16(add(values, four), 3);
  transpose(x);
  forward_eight(x);
  const Vector two = _mm_set1_epi16(2);
  for (int i = 0; i < 8; ++i) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(coefficients + 8 * i),
                     _mm_srai_epi16(add(x[i], two), 2));
  }
}

__attribute__((target("sse2"))) void quantise_sse2(const std::int16_t* coefficients,
                                                   const QuantiseTable& table,
                                                   QuantisedBlock& out) {
  alignas(16) std::int16_t values[kBlock];
  std::uint64_t present = 0;
  const Vector zero = _mm_setzero_si128();
  for (int i = 0; i < kBlock; i += 16) {
    Vector half[2];
    for (int j = 0; j < 2; ++j) {
      const int at = i + 8 * j;
      const Vector value = load(coefficients + at);
      const Vector sign = _mm_srai_epi16(value, 15);
      const Vector amount = add(subtract(_mm_xor_si128(value, sign), sign), load(table.bias + at));
      const Vector quotient = _mm_mulhi_epu16(_mm_mulhi_epu16(amount, load(table.reciprocal + at)),
                                              load(table.scale + at));
      half[j] = quotient;
      _mm_store_si128(reinterpret_cast<__m128i*>(values + at),
                      subtract(_mm_xor_si128(quotient, sign), sign));
    }
    const int absent = _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_packs_epi16(half[0], half[1]), zero));
    present |= static_cast<std::uint64_t>(~absent & 0xFFFF) << i;
  }
  out.values[0] = values[0];
  out.present = 0;
  for (; present != 0; present &= present - 1) {
    const int at = __builtin_ctzll(present);
    const int place = kPlaces.of[at];
    out.values[place] = values[at];
    out.present |= std::uint64_t{1} << place;
  }
}

}  // namespace tq::formats::x86

#endif
