// What the transforms of both directions are made of.
#pragma once

#include "formats/jpeg/x86/registers.h"

namespace tq::formats::x86 {
namespace {

// (x * k + 512) >> 10 as one rounded product of the fraction, and x as often as k has 1024.
template <int kFactor>
TQ_TARGET Vector scaled(Vector x) {
  Vector product = rounded_product(x, all16(kFactor % 1024 * 32));
  TQ_UNROLLED for (int i = 0; i < kFactor / 1024; ++i) product = add16(product, x);
  return product;
}

TQ_TARGET void transpose(Vector (&x)[8]) {
  Vector a[8], b[8];
  TQ_UNROLLED for (int i = 0; i < 4; ++i) {
    a[2 * i] = low16(x[2 * i], x[2 * i + 1]);
    a[2 * i + 1] = high16(x[2 * i], x[2 * i + 1]);
  }
  TQ_UNROLLED for (int i = 0; i < 8; i += 4) {
    b[i] = low32(a[i], a[i + 2]);
    b[i + 1] = high32(a[i], a[i + 2]);
    b[i + 2] = low32(a[i + 1], a[i + 3]);
    b[i + 3] = high32(a[i + 1], a[i + 3]);
  }
  TQ_UNROLLED for (int i = 0; i < 4; ++i) {
    x[2 * i] = low64(b[i], b[4 + i]);
    x[2 * i + 1] = high64(b[i], b[4 + i]);
  }
}

}  // namespace
}  // namespace tq::formats::x86
