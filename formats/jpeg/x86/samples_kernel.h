// Pixels to samples centred on 0. Rows are read and written in whole groups: up to 31 pixels more
// than asked for.
#pragma once

#include "formats/jpeg/colour.h"

namespace tq::formats::x86 {
namespace {

using namespace simd;

inline constexpr int kGroup = 8 * kLanes;  // pixels whose samples fill a register

// (green, red) pairs and (blue, 0) pairs of half a group, ready for multiplication.
struct Pairs {
  Vector green_red, blue;
};

// Every lane has four pixels of its eight.
TQ_SIMD Pairs load_pairs(const std::uint8_t* bgr) {
  constexpr std::uint8_t kNo = 0x80;  // gives 0
  alignas(16) static constexpr std::uint8_t kGreenRed[16] = {1, kNo, 2, kNo, 4,  kNo, 5,  kNo,
                                                             7, kNo, 8, kNo, 10, kNo, 11, kNo};
  alignas(16) static constexpr std::uint8_t kBlue[16] = {0, kNo, kNo, kNo, 3, kNo, kNo, kNo,
                                                         6, kNo, kNo, kNo, 9, kNo, kNo, kNo};
  const Vector pixels = load_lanes(bgr, bgr + 24 * (kLanes - 1));
  return {shuffle8(pixels, load_repeated(kGreenRed)), shuffle8(pixels, load_repeated(kBlue))};
}

TQ_SIMD Pairs even_pixels(const Pairs& a, const Pairs& b) {
  return {even32(a.green_red, b.green_red), even32(a.blue, b.blue)};
}

template <int kGreen, int kRed, int kBlue>
TQ_SIMD Vector weighed(const Pairs& pixels) {
  const Vector sum =
      add32(multiply_add16(pixels.green_red, all32((kGreen & 0xFFFF) | kRed * 65536)),
            multiply_add16(pixels.blue, all32(kBlue & 0xFFFF)));
  return shift_right32<10>(sum);
}
template <int kGreen, int kRed, int kBlue>
TQ_SIMD Vector weighed(const Pairs& a, const Pairs& b) {
  return pack32(weighed<kGreen, kRed, kBlue>(a), weighed<kGreen, kRed, kBlue>(b));
}
TQ_SIMD Vector luma(const Pairs& a, const Pairs& b) {
  return subtract16(weighed<603, 308, 120>(a, b), all16(128));
}
TQ_SIMD Vector blue_difference(const Pairs& a, const Pairs& b) {
  return weighed<-339, -178, 512>(a, b);
}
TQ_SIMD Vector red_difference(const Pairs& a, const Pairs& b) {
  return weighed<-429, 512, -83>(a, b);
}

// Two groups at a time. Chroma of every kStep-th pixel; none for the step 0.
template <int kStep>
TQ_SIMD void convert_row(const std::uint8_t* bgr, std::int16_t* y, std::int16_t* cb,
                         std::int16_t* cr, int width) {
  for (int x = 0; x < width; x += 2 * kGroup, bgr += 6 * kGroup) {
    const Pairs a = load_pairs(bgr), b = load_pairs(bgr + 12);
    const Pairs c = load_pairs(bgr + 3 * kGroup), d = load_pairs(bgr + 3 * kGroup + 12);
    store(y + x, luma(a, b));
    store(y + x + kGroup, luma(c, d));
    if constexpr (kStep == 1) {
      store(cb + x, blue_difference(a, b));
      store(cb + x + kGroup, blue_difference(c, d));
      store(cr + x, red_difference(a, b));
      store(cr + x + kGroup, red_difference(c, d));
    } else if constexpr (kStep == 2) {
      const Pairs front = even_pixels(a, b), back = even_pixels(c, d);
      store(cb + x / 2, in_sequence(blue_difference(front, back)));
      store(cr + x / 2, in_sequence(red_difference(front, back)));
    }
  }
}

TQ_KERNEL void bgr_to_luma(const std::uint8_t* bgr, std::int16_t* y, int width) {
  convert_row<0>(bgr, y, nullptr, nullptr, width);
}

TQ_KERNEL void bgr_to_ycc(const std::uint8_t* bgr, int step, std::int16_t* y, std::int16_t* cb,
                          std::int16_t* cr, int width) {
  if (step == 1) {
    convert_row<1>(bgr, y, cb, cr, width);
  } else if (step == 2) {
    convert_row<2>(bgr, y, cb, cr, width);
  } else {
    convert_row<0>(bgr, y, cb, cr, width);
    bgr_to_chroma(bgr, step, cb, cr, width);
  }
}

TQ_KERNEL void grey_to_luma(const std::uint8_t* grey, std::int16_t* y, int width) {
  for (int x = 0; x < width; x += kGroup) {
    store(y + x, subtract16(load_widened(grey + x), all16(128)));
  }
}

}  // namespace
}  // namespace tq::formats::x86
