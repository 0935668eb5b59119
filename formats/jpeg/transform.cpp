// The transforms, after Lee's factorisation: separable, rows first, factors of 10 fractional bits
// whose products are rounded. This is the reference; faster variants give the same numbers.
#include "formats/jpeg/transform.h"

#include <algorithm>

namespace tq::formats {
namespace {

// 1024 times cos(pi/4), sqrt(2) cos(pi/8), sqrt(2) sin(pi/8), and 1 / (2 cos((2n + 1) pi/16)).
constexpr int kHalfRoot = 724, kCos = 1338, kSin = 553;
constexpr int kSecant[4] = {522, 616, 922, 2624};

// Damaged data may wrap round; valid ones never come near.
constexpr std::int32_t wrap(std::int64_t value) {
  return static_cast<std::int32_t>(static_cast<std::uint64_t>(value));
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

// Eight values `step` apart, in place.
void inverse_eight(std::int32_t* x, int step) {
  const Four even = inverse_four(x[0], x[2 * step], x[4 * step], x[6 * step]);
  const std::int32_t x1 = x[step], x3 = x[3 * step], x5 = x[5 * step], x7 = x[7 * step];
  const Four odd = inverse_four(scaled(x1, 2 * kHalfRoot), add(x1, x3), add(x3, x5), add(x5, x7));
  for (int n = 0; n < 4; ++n) {
    const std::int32_t o = scaled(odd.v[n], kSecant[n]);
    x[n * step] = add(even.v[n], o);
    x[(7 - n) * step] = subtract(even.v[n], o);
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

// The transpose of inverse_four.
constexpr Four forward_four(std::int32_t s0, std::int32_t s1, std::int32_t s2, std::int32_t s3) {
  const std::int32_t a = s0 + s3, b = s1 + s2, c = s0 - s3, d = s1 - s2;
  return {{a + b, scaled(c, kCos) + scaled(d, kSin), a - b, scaled(c, kSin) - scaled(d, kCos)}};
}

void forward_eight(std::int32_t* x, int step) {
  std::int32_t sum[4], difference[4];
  for (int n = 0; n < 4; ++n) {
    const std::int32_t front = x[n * step], back = x[(7 - n) * step];
    sum[n] = front + back;
    difference[n] = scaled(front - back, kSecant[n]);
  }
  const Four even = forward_four(sum[0], sum[1], sum[2], sum[3]);
  const Four odd = forward_four(difference[0], difference[1], difference[2], difference[3]);
  for (int n = 0; n < 4; ++n) x[2 * n * step] = even.v[n];
  x[step] = scaled(odd.v[0], 2 * kHalfRoot) + odd.v[1];
  x[3 * step] = odd.v[1] + odd.v[2];
  x[5 * step] = odd.v[2] + odd.v[3];
  x[7 * step] = odd.v[3];
}

}  // namespace

std::uint32_t magnitude(const std::int16_t* coefficients, const DequantiseTable& table) {
  std::uint32_t sum = 0;
  for (int i = 0; i < kBlock; ++i) {
    const std::int32_t product = coefficients[i] * table.steps[i];
    sum += static_cast<std::uint32_t>(product < 0 ? -product : product);
  }
  return sum;
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

void inverse_transform_12(const std::int16_t* coefficients, const DequantiseTable& table,
                          std::uint16_t* samples, std::ptrdiff_t stride) {
  std::int32_t x[kBlock];
  inverse_block(coefficients, table, x);
  for (int row = 0; row < 8; ++row, samples += stride) {
    for (int column = 0; column < 8; ++column) {
      // The level shift is one less than half the range: callers rely on it.
      const std::int32_t level = std::clamp(add(rounded(x[8 * column + row]), 2047), 0, 4095);
      samples[column] = static_cast<std::uint16_t>(level << 4);
    }
  }
}

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
  for (int i = 0; i < kBlock; ++i) coefficients[i] = static_cast<std::int16_t>((x[i] + 2) >> 2);
}

}  // namespace tq::formats
