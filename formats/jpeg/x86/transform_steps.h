// What the transforms of both directions are made of.
#pragma once

namespace tq::formats::x86 {
namespace {

using namespace simd;

// (x * k + 512) >> 10 as one rounded product of the fraction, and x as often as k has 1024.
template <int kFactor>
TQ_SIMD Vector scaled(Vector x) {
  Vector product = multiply_rounded16(x, all16(kFactor % 1024 * 32));
  TQ_UNROLLED for (int i = 0; i < kFactor / 1024; ++i) product = add16(product, x);
  return product;
}

// Divided by a power of two, halves upwards.
template <int kBits>
TQ_SIMD Vector rounded(Vector x) {
  return multiply_rounded16(x, all16(1 << (15 - kBits)));
}

TQ_SIMD void transpose(Vector (&x)[8]) {
  Vector a[8], b[8];
  TQ_UNROLLED for (int i = 0; i < 4; ++i) {
    a[2 * i] = interleave_low16(x[2 * i], x[2 * i + 1]);
    a[2 * i + 1] = interleave_high16(x[2 * i], x[2 * i + 1]);
  }
  TQ_UNROLLED for (int i = 0; i < 8; i += 4) {
    b[i] = interleave_low32(a[i], a[i + 2]);
    b[i + 1] = interleave_high32(a[i], a[i + 2]);
    b[i + 2] = interleave_low32(a[i + 1], a[i + 3]);
    b[i + 3] = interleave_high32(a[i + 1], a[i + 3]);
  }
  TQ_UNROLLED for (int i = 0; i < 4; ++i) {
    x[2 * i] = interleave_low64(b[i], b[4 + i]);
    x[2 * i + 1] = interleave_high64(b[i], b[4 + i]);
  }
}

}  // namespace
}  // namespace tq::formats::x86
