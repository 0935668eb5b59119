// The portable kernels, which are the reference, and the choice. The transforms follow Lee's
// factorisation: separable, rows first, exact integers, factors of 10 fractional bits whose
// products are rounded.
#include "formats/jpeg/dsp/kernels.h"

#include <algorithm>
#include <bit>

namespace tq::jpeg {
namespace {

// 1024 times cos(pi/4), sqrt(2) cos(pi/8), sqrt(2) sin(pi/8), and 1 / (2 cos((2n + 1) pi/16)).
constexpr int kHalfRoot = 724, kCos = 1338, kSin = 553;
constexpr int kSecant[4] = {522, 616, 922, 2624};

// Damaged data may wrap round; valid ones never come near.
constexpr std::int32_t wrap(std::int64_t value) {
  return static_cast<std::int32_t>(value);
}
constexpr std::int32_t add(std::int32_t a, std::int32_t b) {
  return wrap(std::int64_t{a} + b);
}
constexpr std::int32_t subtract(std::int32_t a, std::int32_t b) {
  return wrap(std::int64_t{a} - b);
}
constexpr std::int32_t scaled(std::int32_t value, int factor) {
  return wrap((std::int64_t{value} * factor + 512) >> 10);
}

struct Four {
  std::int32_t v[4];
};

// Four inputs to four outputs, the inner half of the eight-point transform.
constexpr Four inverse_four(std::int32_t x0, std::int32_t x1, std::int32_t x2, std::int32_t x3) {
  const std::int32_t a = add(x0, x2), b = subtract(x0, x2);
  const std::int32_t c = add(scaled(x1, kCos), scaled(x3, kSin));
  const std::int32_t d = subtract(scaled(x1, kSin), scaled(x3, kCos));
  return {{add(a, c), add(b, d), subtract(b, d), subtract(a, c)}};
}

// Eight values `gap` apart, in place.
void inverse_eight(std::int32_t* x, int gap) {
  const Four even = inverse_four(x[0], x[2 * gap], x[4 * gap], x[6 * gap]);
  const std::int32_t x1 = x[gap], x3 = x[3 * gap], x5 = x[5 * gap], x7 = x[7 * gap];
  const Four odd = inverse_four(scaled(x1, 2 * kHalfRoot), add(x1, x3), add(x3, x5), add(x5, x7));
  for (int n = 0; n < 4; ++n) {
    const std::int32_t o = scaled(odd.v[n], kSecant[n]);
    x[n * gap] = add(even.v[n], o);
    x[(7 - n) * gap] = subtract(even.v[n], o);
  }
}

// Three fractional bits are left; the values stand column by column.
void inverse_block(const std::int16_t* coefficients, const DequantiseTable& table,
                   std::int32_t (&x)[kBlock]) {
  for (int i = 0; i < kBlock; ++i) x[i] = coefficients[i] * table.steps[i];
  for (int row = 0; row < 8; ++row) inverse_eight(x + row, 8);
  for (int column = 0; column < 8; ++column) inverse_eight(x + 8 * column, 1);
}

constexpr std::int32_t rounded(std::int32_t value) {
  return add(value, 4) >> 3;
}

void inverse_transform(const std::int16_t* coefficients, const DequantiseTable& table,
                       std::uint8_t* samples, std::ptrdiff_t stride) {
  std::int32_t x[kBlock];
  inverse_block(coefficients, table, x);
  for (int row = 0; row < 8; ++row, samples += stride) {
    for (int column = 0; column < 8; ++column) {
      samples[column] = limited(rounded(x[8 * column + row]));
    }
  }
}

void inverse_pair(const std::int16_t* const (&coefficients)[2], const DequantiseTable& table,
                  std::uint8_t* const (&samples)[2], std::ptrdiff_t stride) {
  for (int i = 0; i < 2; ++i) inverse_transform(coefficients[i], table, samples[i], stride);
}

constexpr std::uint32_t magnitude_of(std::int32_t value) {
  return value < 0 ? -value : value;
}

std::uint32_t magnitude(const std::int16_t* coefficients, const DequantiseTable& table) {
  std::uint32_t sum = 0;
  for (int i = 0; i < kBlock; ++i) sum += magnitude_of(coefficients[i] * table.steps[i]);
  return sum;
}

// The transpose of inverse_four.
constexpr Four forward_four(std::int32_t s0, std::int32_t s1, std::int32_t s2, std::int32_t s3) {
  const std::int32_t a = s0 + s3, b = s1 + s2, c = s0 - s3, d = s1 - s2;
  return {{a + b, scaled(c, kCos) + scaled(d, kSin), a - b, scaled(c, kSin) - scaled(d, kCos)}};
}

void forward_eight(std::int32_t* x, int gap) {
  std::int32_t sum[4], difference[4];
  for (int n = 0; n < 4; ++n) {
    const std::int32_t front = x[n * gap], back = x[(7 - n) * gap];
    sum[n] = front + back;
    difference[n] = scaled(front - back, kSecant[n]);
  }
  const Four even = forward_four(sum[0], sum[1], sum[2], sum[3]);
  const Four odd = forward_four(difference[0], difference[1], difference[2], difference[3]);
  for (int n = 0; n < 4; ++n) x[2 * n * gap] = even.v[n];
  x[gap] = scaled(odd.v[0], 2 * kHalfRoot) + odd.v[1];
  x[3 * gap] = odd.v[1] + odd.v[2];
  x[5 * gap] = odd.v[2] + odd.v[3];
  x[7 * gap] = odd.v[3];
}

// 4 times the orthonormal coefficients, row by row.
void forward_transform(const std::int16_t* samples, std::ptrdiff_t stride,
                       std::int16_t* coefficients) {
  std::int32_t x[kBlock];
  for (int row = 0; row < 8; ++row, samples += stride) {
    std::int32_t* const eight = x + 8 * row;
    // The row pass has four more bits, the column pass one more, as many as 16 bits allow: what
    // rounding changes would add up.
    for (int column = 0; column < 8; ++column) eight[column] = samples[column] * 16;
    forward_eight(eight, 1);
    for (int column = 0; column < 8; ++column) eight[column] = (eight[column] + 4) >> 3;
  }
  for (int column = 0; column < 8; ++column) forward_eight(x + column, 8);
  for (int i = 0; i < kBlock; ++i) coefficients[i] = word((x[i] + 2) >> 2);
}

void forward_blocks(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                    const QuantiseTable& table, QuantisedBlock* out) {
  for (int i = 0; i < count; ++i) {
    std::int16_t coefficients[kBlock];
    forward_transform(samples + 8 * i, stride, coefficients);
    quantise(coefficients, table, out[i]);
  }
}

using ChromaTable = std::array<std::int16_t, 256>;

// Truncated: 127 becomes 178 for red and -128 becomes -179.
constexpr ChromaTable chroma_table(std::int32_t hundred_thousandths) {
  ChromaTable table{};
  for (int i = 0; i < 256; ++i) table[i] = word((i - 128) * hundred_thousandths / 100000);
  return table;
}
constexpr ChromaTable kCrToRed = chroma_table(140200);
constexpr ChromaTable kCbToGreen = chroma_table(34414);
constexpr ChromaTable kCrToGreen = chroma_table(71414);
constexpr ChromaTable kCbToBlue = chroma_table(177200);

// Sums never leave -354 .. 352 around the middle.
constexpr std::uint8_t clamped(int value) {
  return byte(value < 0 ? 0 : value > 255 ? 255 : value);
}

void put_pixel(int y, std::uint8_t cb, std::uint8_t cr, std::uint8_t* bgr) {
  bgr[0] = clamped(y + kCbToBlue[cb]);
  bgr[1] = clamped(y - (kCbToGreen[cb] + kCrToGreen[cr]));
  bgr[2] = clamped(y + kCrToRed[cr]);
}

void ycc_to_bgr(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                std::uint8_t* bgr, int width) {
  for (int x = 0; x < width; ++x) put_pixel(y[x], cb[x], cr[x], bgr + 3 * x);
}

void ycc_to_bgr_halved(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                       std::uint8_t* bgr, int width) {
  for (int x = 0; x < width; ++x) put_pixel(y[x], cb[x >> 1], cr[x >> 1], bgr + 3 * x);
}

// The weights of luminance add up to 1031, those of the blue difference to -5; callers rely on it.
void bgr_to_luma(const std::uint8_t* bgr, std::int16_t* y, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) {
    y[x] = word(((308 * bgr[2] + 603 * bgr[1] + 120 * bgr[0]) >> 10) - 128);
  }
}

void bgr_to_ycc(const std::uint8_t* bgr, int h, std::int16_t* y, std::int16_t* cb, std::int16_t* cr,
                int width) {
  bgr_to_luma(bgr, y, width);
  bgr_to_chroma(bgr, h, cb, cr, width);
}

void grey_to_luma(const std::uint8_t* grey, std::int16_t* y, int width) {
  for (int x = 0; x < width; ++x) y[x] = word(grey[x] - 128);
}

}  // namespace

void inverse_transform_12(const std::int16_t* coefficients, const DequantiseTable& table,
                          std::uint16_t* samples, std::ptrdiff_t stride) {
  std::int32_t x[kBlock];
  inverse_block(coefficients, table, x);
  for (int row = 0; row < 8; ++row, samples += stride) {
    for (int column = 0; column < 8; ++column) {
      // The level shift is one less than half the range: callers rely on it.
      samples[column] = word(std::clamp(add(rounded(x[8 * column + row]), 2047), 0, 4095) << 4);
    }
  }
}

QuantiseTable quantise_table(const std::array<std::uint8_t, kBlock>& steps) {
  QuantiseTable table;
  for (int i = 0; i < kBlock; ++i) {
    const std::uint32_t step = steps[i];
    const std::uint32_t divisor = 4 * step;
    // The error of the rounded-up reciprocal stays below one as divisor <= 2 << shift.
    int shift = std::bit_width(divisor) - 1;
    if (std::has_single_bit(divisor)) --shift;  // else the reciprocal would be 65536
    table.bias[i] = word(step == 1 ? 0 : 2 * step);
    table.reciprocal[i] = word(((1u << (16 + shift)) + divisor - 1) / divisor);
    table.scale[i] = word(1u << (16 - shift));
  }
  return table;
}

void quantise(const std::int16_t* coefficients, const QuantiseTable& table, QuantisedBlock& out) {
  out.present = 0;
  for (int i = 0; i < kBlock; ++i) {
    const int at = kZigzag[i];
    const std::int32_t value = coefficients[at];
    const std::uint32_t biased = magnitude_of(value) + table.bias[at];
    const std::uint32_t quotient = (biased * table.reciprocal[at] >> 16) * table.scale[at] >> 16;
    out.values[at] = word(value < 0 ? -quotient : quotient);
    out.present |= std::uint64_t{quotient != 0} << i;
  }
}

void bgr_to_chroma(const std::uint8_t* bgr, int h, std::int16_t* cb, std::int16_t* cr, int width) {
  for (int x = 0, i = 0; x < width; x += h, ++i) {
    const std::uint8_t* p = bgr + 3 * x;
    cb[i] = word((512 * p[0] - 339 * p[1] - 178 * p[2]) >> 10);
    cr[i] = word((512 * p[2] - 429 * p[1] - 83 * p[0]) >> 10);
  }
}

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  Kernels kernels{.inverse = inverse_transform,
                  .inverse_small = inverse_transform,
                  .inverse_small_pair = inverse_pair,
                  .magnitude = magnitude,
                  .ycc_to_bgr = ycc_to_bgr,
                  .ycc_to_bgr_halved = ycc_to_bgr_halved,
                  .forward = forward_blocks,
                  .bgr_to_luma = bgr_to_luma,
                  .bgr_to_ycc = bgr_to_ycc,
                  .grey_to_luma = grey_to_luma};
#if defined(__x86_64__) || defined(__i386__)
  if (features.ssse3) add_ssse3_kernels(kernels);
  if (features.avx2) add_avx2_kernels(kernels);
#endif
  return kernels;
}

Kernels kernels() {
  return select_kernels(platform::cpu_features());
}

}  // namespace tq::jpeg
