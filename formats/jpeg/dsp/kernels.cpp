// The portable kernels, which are the reference, and the choice. The coarse transforms follow Lee's
// factorisation: separable, rows first, exact integers, factors of 10 fractional bits whose
// products are rounded. The exact ones round sums of products.
#include "formats/jpeg/dsp/kernels.h"

#include <algorithm>
#include <bit>

namespace tq::jpeg {
namespace {

// 1024 times cos(pi/4), sqrt(2) cos(pi/8), sqrt(2) sin(pi/8), and 1 / (2 cos((2n + 1) pi/16)).
constexpr int kHalfRoot = 724, kCos = 1338, kSin = 553;
constexpr int kSecant[4] = {522, 616, 922, 2624};

constexpr std::int32_t kCoarseDarkFrom = 384;

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
      samples[column] = limited(rounded(x[8 * column + row]), kCoarseDarkFrom);
    }
  }
}

// Sums wrap round as they do in registers.
constexpr std::uint32_t product(std::int32_t value, std::int32_t factor) {
  return static_cast<std::uint32_t>(value) * static_cast<std::uint32_t>(factor);
}
constexpr std::int32_t without_fraction(std::uint32_t value, int bits) {
  return static_cast<std::int32_t>(value + (1u << (bits - 1))) >> bits;
}
constexpr std::int16_t saturated(std::int32_t value) {
  return static_cast<std::int16_t>(std::clamp<std::int32_t>(value, INT16_MIN, INT16_MAX));
}

template <int kFractionBits>
void exact_inverse_eight(std::int32_t* x, int gap) {
  const auto at = [&](int i, std::int32_t factor) { return product(x[i * gap], factor); };
  constexpr std::int32_t kOne = 1 << kExactFraction;
  const std::uint32_t sum = at(0, kOne) + at(4, kOne), difference = at(0, kOne) - at(4, kOne);
  const std::uint32_t c = at(2, kEven[0][0]) + at(6, kEven[0][1]);
  const std::uint32_t d = at(2, kEven[1][0]) + at(6, kEven[1][1]);
  const std::uint32_t even[4] = {sum + c, difference + d, difference - d, sum - c};
  std::uint32_t odd[4];
  for (int n = 0; n < 4; ++n) {
    odd[n] = at(1, kOdd[n][0]) + at(3, kOdd[n][1]) + at(5, kOdd[n][2]) + at(7, kOdd[n][3]);
  }
  for (int n = 0; n < 4; ++n) {
    x[n * gap] = without_fraction(even[n] + odd[n], kFractionBits);
    x[(7 - n) * gap] = without_fraction(even[n] - odd[n], kFractionBits);
  }
}

// What does not fit 16 bits before a pass is limited to them: only damaged data have such values.
void exact_inverse(const std::int16_t* coefficients, const DequantiseTable& table,
                   std::uint8_t* samples, std::ptrdiff_t stride) {
  std::int32_t x[kBlock];
  for (int i = 0; i < kBlock; ++i) x[i] = saturated(coefficients[i] * table.steps[i]);
  for (int row = 0; row < 8; ++row) exact_inverse_eight<kExactFraction - kPassBits>(x + row, 8);
  for (std::int32_t& value : x) value = saturated(value);
  for (int column = 0; column < 8; ++column) {
    exact_inverse_eight<kExactFraction + kPassBits + 3>(x + 8 * column, 1);
  }
  for (int row = 0; row < 8; ++row, samples += stride) {
    for (int column = 0; column < 8; ++column) {
      samples[column] = limited(x[8 * column + row], INT32_MAX);
    }
  }
}

using Inverse = void(const std::int16_t*, const DequantiseTable&, std::uint8_t*, std::ptrdiff_t);
template <Inverse* kInverse>
void inverse_pair(const std::int16_t* const (&coefficients)[2], const DequantiseTable& table,
                  std::uint8_t* const (&samples)[2], std::ptrdiff_t stride) {
  for (int i = 0; i < 2; ++i) kInverse(coefficients[i], table, samples[i], stride);
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

// The transpose of exact_inverse_eight, in place; sums alone have no fraction of their own.
template <int kFractionBits>
void exact_forward_eight(std::int32_t* x, int gap) {
  std::int32_t sum[4], difference[4];
  for (int n = 0; n < 4; ++n) {
    const std::int32_t front = x[n * gap], back = x[(7 - n) * gap];
    sum[n] = front + back;
    difference[n] = front - back;
  }
  const std::int32_t a = sum[0] + sum[3], b = sum[1] + sum[2];
  const std::int32_t c = sum[0] - sum[3], d = sum[1] - sum[2];
  const auto put = [&](int i, std::uint32_t value) {
    x[i * gap] = without_fraction(value, kFractionBits);
  };
  constexpr std::int32_t kOne = 1 << kExactFraction;
  put(0, product(a + b, kOne));
  put(4, product(a - b, kOne));
  put(2, product(c, kEven[0][0]) + product(d, kEven[0][1]));
  put(6, product(c, kEven[1][0]) + product(d, kEven[1][1]));
  for (int k = 0; k < 4; ++k) {
    std::uint32_t odd = 0;
    for (int n = 0; n < 4; ++n) odd += product(difference[n], kOdd[n][k]);
    put(2 * k + 1, odd);
  }
}

// 8 times the orthonormal coefficients, row by row.
void exact_forward(const std::int16_t* samples, std::ptrdiff_t stride, std::int16_t* coefficients) {
  std::int32_t x[kBlock];
  for (int row = 0; row < 8; ++row, samples += stride) {
    std::copy_n(samples, 8, x + 8 * row);
    exact_forward_eight<kExactFraction - kPassBits>(x + 8 * row, 1);
  }
  for (int column = 0; column < 8; ++column) {
    exact_forward_eight<kExactFraction + kPassBits>(x + column, 8);
  }
  for (int i = 0; i < kBlock; ++i) coefficients[i] = word(x[i]);
}

using Forward = void(const std::int16_t*, std::ptrdiff_t, std::int16_t*);
template <Forward* kForward>
void forward_blocks(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                    const QuantiseTable& table, QuantisedBlock* out) {
  for (int i = 0; i < count; ++i) {
    std::int16_t coefficients[kBlock];
    kForward(samples + 8 * i, stride, coefficients);
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

void exact_ycc_to_bgr(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                      std::uint8_t* bgr, int width) {
  const auto rounded = [](int weighed) { return (weighed + 32768) >> 16; };
  for (int x = 0; x < width; ++x, bgr += 3) {
    const int b = cb[x] - 128, r = cr[x] - 128;
    bgr[0] = clamped(y[x] + rounded(kBlueOfCb * b));
    bgr[1] = clamped(y[x] + rounded(-kGreenOfCb * b - kGreenOfCr * r));
    bgr[2] = clamped(y[x] + rounded(kRedOfCr * r));
  }
}

// The biases keep what is halfway between two levels from going the same way everywhere.
void smooth_across(const std::uint8_t* samples, std::uint8_t* out, int count) {
  for (int i = 0; i < count; ++i) {
    out[2 * i] = byte((3 * samples[i] + samples[i - 1] + 1) >> 2);
    out[2 * i + 1] = byte((3 * samples[i] + samples[i + 1] + 2) >> 2);
  }
}

void smooth_down(NearFar rows, int bias, std::uint8_t* out, int count) {
  for (int i = 0; i < count; ++i) out[i] = byte((3 * rows.near[i] + rows.far[i] + bias) >> 2);
}

void smooth_both(NearFar rows, std::uint8_t* out, int count) {
  const auto column = [&](int i) { return 3 * rows.near[i] + rows.far[i]; };
  for (int i = 0; i < count; ++i) {
    out[2 * i] = byte((3 * column(i) + column(i - 1) + 8) >> 4);
    out[2 * i + 1] = byte((3 * column(i) + column(i + 1) + 7) >> 4);
  }
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

constexpr int weighed(const std::uint8_t* bgr, const int (&weights)[3]) {
  return weights[0] * bgr[0] + weights[1] * bgr[1] + weights[2] * bgr[2];
}

void exact_bgr_to_luma(const std::uint8_t* bgr, std::int16_t* y, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) {
    y[x] = word(((weighed(bgr, kLumaWeights) + 32768) >> 16) - 128);
  }
}

void exact_bgr_to_ycc(const std::uint8_t* bgr, int /*h*/, std::int16_t* y, std::int16_t* cb,
                      std::int16_t* cr, int width) {
  exact_bgr_to_luma(bgr, y, width);
  for (int x = 0; x < width; ++x, bgr += 3) {
    cb[x] = word((weighed(bgr, kBlueWeights) + kJustBelowHalf) >> 16);
    cr[x] = word((weighed(bgr, kRedWeights) + kJustBelowHalf) >> 16);
  }
}

void halve_across(const std::int16_t* samples, std::int16_t* out, int count) {
  for (int i = 0; i < count; ++i) {
    out[i] = word((samples[2 * i] + samples[2 * i + 1] + (i & 1)) >> 1);
  }
}

void halve_both(const std::int16_t* upper, const std::int16_t* lower, std::int16_t* out,
                int count) {
  for (int i = 0; i < count; ++i, upper += 2, lower += 2) {
    out[i] = word((upper[0] + upper[1] + lower[0] + lower[1] + 1 + (i & 1)) >> 2);
  }
}

void grey_to_luma(const std::uint8_t* grey, std::int16_t* y, int width) {
  for (int x = 0; x < width; ++x) y[x] = word(grey[x] - 128);
}

}  // namespace

void inverse_transform_12(const std::int16_t* coefficients, const DequantiseTable& table,
                          int level_shift, std::uint16_t* samples, std::ptrdiff_t stride) {
  std::int32_t x[kBlock];
  inverse_block(coefficients, table, x);
  for (int row = 0; row < 8; ++row, samples += stride) {
    for (int column = 0; column < 8; ++column) {
      const std::int32_t level = add(rounded(x[8 * column + row]), level_shift);
      samples[column] = word(std::clamp(level, 0, 4095) << 4);
    }
  }
}

QuantiseTable quantise_table(const std::array<std::uint8_t, kBlock>& steps, Accuracy accuracy) {
  const bool exact = accuracy == Accuracy::exact;
  QuantiseTable table;
  for (int i = 0; i < kBlock; ++i) {
    const std::uint32_t step = steps[i];
    const std::uint32_t divisor = (exact ? 8 : 4) * step;
    // The error of the rounded-up reciprocal stays below one as divisor <= 2 << shift.
    int shift = std::bit_width(divisor) - 1;
    if (std::has_single_bit(divisor)) --shift;  // else the reciprocal would be 65536
    table.bias[i] = word(step == 1 && !exact ? 0 : divisor / 2);
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

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features, Accuracy accuracy) {
  constexpr Kernels kCoarse{.accuracy = Accuracy::coarse,
                            .small_below = 8600,
                            .dark_from = kCoarseDarkFrom,
                            .inverse = inverse_transform,
                            .inverse_small = inverse_transform,
                            .inverse_small_pair = inverse_pair<inverse_transform>,
                            .magnitude = magnitude,
                            .ycc_to_bgr = ycc_to_bgr,
                            .ycc_to_bgr_halved = ycc_to_bgr_halved,
                            .smooth_across = smooth_across,
                            .smooth_down = smooth_down,
                            .smooth_both = smooth_both,
                            .forward = forward_blocks<forward_transform>,
                            .bgr_to_luma = bgr_to_luma,
                            .bgr_to_ycc = bgr_to_ycc,
                            .grey_to_luma = grey_to_luma,
                            .halve_across = halve_across,
                            .halve_both = halve_both};
  Kernels kernels = kCoarse;
  if (accuracy == Accuracy::exact) {
    kernels.accuracy = accuracy;
    kernels.small_below = 32768;
    kernels.dark_from = INT32_MAX;
    kernels.inverse = kernels.inverse_small = exact_inverse;
    kernels.inverse_small_pair = inverse_pair<exact_inverse>;
    kernels.ycc_to_bgr = exact_ycc_to_bgr;
    kernels.forward = forward_blocks<exact_forward>;
    kernels.bgr_to_luma = exact_bgr_to_luma;
    kernels.bgr_to_ycc = exact_bgr_to_ycc;
  }
#if defined(__x86_64__) || defined(__i386__)
  if (features.ssse3) add_ssse3_kernels(kernels);
  if (features.avx2) add_avx2_kernels(kernels);
#endif
  return kernels;
}

Kernels kernels(Accuracy accuracy) {
  return select_kernels(platform::cpu_features(), accuracy);
}

}  // namespace tq::jpeg
