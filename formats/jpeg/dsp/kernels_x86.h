// The kernels in registers of any width: compiled by kernels_ssse3.cpp and kernels_avx2.cpp, each
// behind the words of its instruction set.
#pragma once

#include "formats/jpeg/dsp/transforms_x86.h"

namespace tq::jpeg::x86 {
namespace {

using namespace simd;

// Samples to pixels. Rows are read and written in whole groups: up to 31 samples and pixels more
// than asked for.

inline constexpr int kPixels = 16 * kLanes;  // whose samples fill a register

// 65536 times the fraction of a factor, so chosen that the high product of any magnitude up to
// 128 is the product with the exact fraction, truncated.
inline constexpr int kRedFraction = 26346, kGreenCbFraction = 22554, kGreenCrFraction = 46802,
                     kBlueFraction = 50594;

template <int kFraction>
TQ_SIMD Vector truncated_product(Vector magnitude) {
  return multiply_high_unsigned16(magnitude, all16(kFraction));
}

// What chroma adds to blue and red and takes from green.
struct Chroma {
  Vector blue, green, red;
};
TQ_SIMD Chroma chroma_of(Vector cb, Vector cr) {
  cb = subtract16(cb, all16(128));
  cr = subtract16(cr, all16(128));
  const Vector b = abs16(cb), r = abs16(cr);
  return {apply_sign16(add16(b, truncated_product<kBlueFraction>(b)), cb),
          add16(apply_sign16(truncated_product<kGreenCbFraction>(b), cb),
                apply_sign16(truncated_product<kGreenCrFraction>(r), cr)),
          apply_sign16(add16(r, truncated_product<kRedFraction>(r)), cr)};
}

// Which pixel's byte of a colour goes where in each third of 16 pixels.
struct Turns {
  alignas(16) std::uint8_t of[3][3][16];  // by third and colour
};
constexpr Turns pixel_turns() {
  Turns turns{};
  for (int place = 0; place < 48; ++place) {
    for (int colour = 0; colour < 3; ++colour) {
      const int pixel = place % 3 == colour ? place / 3 : 0x80;  // 0x80 gives 0
      turns.of[place / 16][colour][place % 16] = byte(pixel);
    }
  }
  return turns;
}
inline constexpr Turns kTurns = pixel_turns();

template <int kThird>
TQ_SIMD Vector third_of(Vector blue, Vector green, Vector red) {
  const auto& turn = kTurns.of[kThird];
  return shuffle8(blue, load_repeated(turn[0])) | shuffle8(green, load_repeated(turn[1])) |
         shuffle8(red, load_repeated(turn[2]));
}

// `low` and `high` belong to the first and the second 8 pixels of every lane.
TQ_SIMD void store_pixels(const std::uint8_t* y, const Chroma& low, const Chroma& high,
                          std::uint8_t* bgr) {
  const Vector luma = load(y);
  const Vector y0 = interleave_low8(luma, Vector{}), y1 = interleave_high8(luma, Vector{});
  const Vector blue = pack_unsigned16(add16(y0, low.blue), add16(y1, high.blue));
  const Vector green = pack_unsigned16(subtract16(y0, low.green), subtract16(y1, high.green));
  const Vector red = pack_unsigned16(add16(y0, low.red), add16(y1, high.red));
  store_in_turn(bgr, third_of<0>(blue, green, red), third_of<1>(blue, green, red),
                third_of<2>(blue, green, red));
}

TQ_KERNEL void ycc_to_bgr(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                          std::uint8_t* bgr, int width) {
  for (int x = 0; x < width; x += kPixels, bgr += 3 * kPixels) {
    const Vector b = load(cb + x), r = load(cr + x);
    store_pixels(y + x, chroma_of(interleave_low8(b, Vector{}), interleave_low8(r, Vector{})),
                 chroma_of(interleave_high8(b, Vector{}), interleave_high8(r, Vector{})), bgr);
  }
}

// One chroma sample per two pixels.
TQ_KERNEL void ycc_to_bgr_halved(const std::uint8_t* y, const std::uint8_t* cb,
                                 const std::uint8_t* cr, std::uint8_t* bgr, int width) {
  for (int x = 0; x < width; x += kPixels, bgr += 3 * kPixels) {
    const Chroma c = chroma_of(load_widened(cb + x / 2), load_widened(cr + x / 2));
    store_pixels(y + x,
                 {interleave_low16(c.blue, c.blue), interleave_low16(c.green, c.green),
                  interleave_low16(c.red, c.red)},
                 {interleave_high16(c.blue, c.blue), interleave_high16(c.green, c.green),
                  interleave_high16(c.red, c.red)},
                 bgr);
  }
}

// The fractions of the exact factors. Half the red one has half a bit less, which no sample shows.
TQ_SIMD Chroma exact_chroma_of(Vector cb, Vector cr) {
  cb = subtract16(cb, all16(128));
  cr = subtract16(cr, all16(128));
  const Vector green = rounded_pairs<16, -kGreenOfCb, 65536 - kGreenOfCr>(
      interleave_low16(cb, cr), interleave_high16(cb, cr));
  return {add16(add16(cb, cb), multiply_rounded16(cb, all16((kBlueOfCb - 2 * 65536) / 2))),
          subtract16(cr, green), add16(cr, multiply_rounded16(cr, all16((kRedOfCr - 65536) / 2)))};
}

TQ_KERNEL void exact_ycc_to_bgr(const std::uint8_t* y, const std::uint8_t* cb,
                                const std::uint8_t* cr, std::uint8_t* bgr, int width) {
  for (int x = 0; x < width; x += kPixels, bgr += 3 * kPixels) {
    const Vector b = load(cb + x), r = load(cr + x);
    store_pixels(y + x, exact_chroma_of(interleave_low8(b, Vector{}), interleave_low8(r, Vector{})),
                 exact_chroma_of(interleave_high8(b, Vector{}), interleave_high8(r, Vector{})),
                 bgr);
  }
}

// Twice as many samples.

// 3 a + b, of the low or the high half of each lane.
TQ_SIMD Vector three_and_one_low(Vector a, Vector b) {
  return multiply_add8(interleave_low8(a, b), all16(0x0103));
}
TQ_SIMD Vector three_and_one_high(Vector a, Vector b) {
  return multiply_add8(interleave_high8(a, b), all16(0x0103));
}
template <int kBits>
TQ_SIMD Vector biased_down(Vector x, int bias) {
  return shift_right_unsigned16<kBits>(add16(x, all16(bias)));
}
// Bytes in turn from the low bytes of 16 bits, for the first and the second half of each lane.
TQ_SIMD void store_twice(std::uint8_t* out, const Vector (&even)[2], const Vector (&odd)[2]) {
  const Vector low = even[0] | shift_left16<8>(odd[0]), high = even[1] | shift_left16<8>(odd[1]);
  store_lane<0>(out, low);
  store_lane<0>(out + 16, high);
  if constexpr (kLanes == 2) {
    store_lane<1>(out + 32, low);
    store_lane<1>(out + 48, high);
  }
}

TQ_KERNEL void smooth_across(const std::uint8_t* samples, std::uint8_t* out, int count) {
  for (int i = 0; i < count; i += kPixels, out += 2 * kPixels) {
    const Vector here = load(samples + i);
    const Vector before = load(samples + i - 1), behind = load(samples + i + 1);
    store_twice(out,
                {biased_down<2>(three_and_one_low(here, before), 1),
                 biased_down<2>(three_and_one_high(here, before), 1)},
                {biased_down<2>(three_and_one_low(here, behind), 2),
                 biased_down<2>(three_and_one_high(here, behind), 2)});
  }
}

TQ_KERNEL void smooth_down(NearFar rows, int bias, std::uint8_t* out, int count) {
  for (int i = 0; i < count; i += kPixels) {
    const Vector near = load(rows.near + i), far = load(rows.far + i);
    store(out + i, pack_unsigned16(biased_down<2>(three_and_one_low(near, far), bias),
                                   biased_down<2>(three_and_one_high(near, far), bias)));
  }
}

struct Columns {
  Vector low, high;
};
TQ_SIMD Columns load_columns(NearFar rows, int i) {
  const Vector near = load(rows.near + i), far = load(rows.far + i);
  return {three_and_one_low(near, far), three_and_one_high(near, far)};
}
TQ_SIMD Vector thrice(Vector x) {
  return add16(add16(x, x), x);
}

TQ_KERNEL void smooth_both(NearFar rows, std::uint8_t* out, int count) {
  for (int i = 0; i < count; i += kPixels, out += 2 * kPixels) {
    const Columns here = load_columns(rows, i);
    const Columns before = load_columns(rows, i - 1), behind = load_columns(rows, i + 1);
    const Vector low = thrice(here.low), high = thrice(here.high);
    store_twice(
        out,
        {biased_down<4>(add16(low, before.low), 8), biased_down<4>(add16(high, before.high), 8)},
        {biased_down<4>(add16(low, behind.low), 7), biased_down<4>(add16(high, behind.high), 7)});
  }
}

// Pixels to samples centred on 0, up to 31 pixels more than asked for.

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

// Two groups at a time. Chroma of every kH-th pixel; none for 0.
template <int kH>
TQ_SIMD void convert_row(const std::uint8_t* bgr, std::int16_t* y, std::int16_t* cb,
                         std::int16_t* cr, int width) {
  for (int x = 0; x < width; x += 2 * kGroup, bgr += 6 * kGroup) {
    const Pairs a = load_pairs(bgr), b = load_pairs(bgr + 12);
    const Pairs c = load_pairs(bgr + 3 * kGroup), d = load_pairs(bgr + 3 * kGroup + 12);
    store(y + x, luma(a, b));
    store(y + x + kGroup, luma(c, d));
    if constexpr (kH == 1) {
      store(cb + x, blue_difference(a, b));
      store(cb + x + kGroup, blue_difference(c, d));
      store(cr + x, red_difference(a, b));
      store(cr + x + kGroup, red_difference(c, d));
    } else if constexpr (kH == 2) {
      const Pairs front = even_pixels(a, b), back = even_pixels(c, d);
      store(cb + x / 2, in_sequence(blue_difference(front, back)));
      store(cr + x / 2, in_sequence(red_difference(front, back)));
    }
  }
}

TQ_KERNEL void bgr_to_luma(const std::uint8_t* bgr, std::int16_t* y, int width) {
  convert_row<0>(bgr, y, nullptr, nullptr, width);
}

TQ_KERNEL void bgr_to_ycc(const std::uint8_t* bgr, int h, std::int16_t* y, std::int16_t* cb,
                          std::int16_t* cr, int width) {
  if (h == 1) {
    convert_row<1>(bgr, y, cb, cr, width);
  } else if (h == 2) {
    convert_row<2>(bgr, y, cb, cr, width);
  } else {
    convert_row<0>(bgr, y, cb, cr, width);
    bgr_to_chroma(bgr, h, cb, cr, width);
  }
}

// (green, red) and (blue, green) of four pixels, for weights of which some are taken apart.
TQ_SIMD Pairs load_exact_pairs(const std::uint8_t* bgr) {
  constexpr std::uint8_t kNo = 0x80;  // gives 0
  alignas(16) static constexpr std::uint8_t kGreenRed[16] = {1, kNo, 2, kNo, 4,  kNo, 5,  kNo,
                                                             7, kNo, 8, kNo, 10, kNo, 11, kNo};
  alignas(16) static constexpr std::uint8_t kBlueGreen[16] = {0, kNo, 1, kNo, 3, kNo, 4,  kNo,
                                                              6, kNo, 7, kNo, 9, kNo, 10, kNo};
  const Vector pixels = load_lanes(bgr, bgr + 24 * (kLanes - 1));
  return {shuffle8(pixels, load_repeated(kGreenRed)), shuffle8(pixels, load_repeated(kBlueGreen))};
}

TQ_SIMD Vector exact_luma(const Pairs& pixels) {
  constexpr int kQuarter = 16384;
  const Vector sum =
      add32(weighed_pairs<kLumaWeights[1] - kQuarter, kLumaWeights[2]>(pixels.green_red),
            weighed_pairs<kLumaWeights[0], kQuarter>(pixels.blue));
  return shift_right32<16>(add32(sum, all32(32768 - (128 << 16))));
}
// By the weights with the opposite sign, as 32768 has no positive form in 16 bits.
template <int kBlue, int kGreen, int kRed>
TQ_SIMD Vector exact_difference(const Pairs& pixels) {
  const Vector sum =
      add32(weighed_pairs<-kGreen, -kRed>(pixels.green_red), weighed_pairs<-kBlue, 0>(pixels.blue));
  return shift_right32<16>(subtract32(all32(kJustBelowHalf), sum));
}
TQ_SIMD Vector exact_luma(const Pairs& a, const Pairs& b) {
  return pack32(exact_luma(a), exact_luma(b));
}
template <int kBlue, int kGreen, int kRed>
TQ_SIMD Vector exact_difference(const Pairs& a, const Pairs& b) {
  return pack32(exact_difference<kBlue, kGreen, kRed>(a), exact_difference<kBlue, kGreen, kRed>(b));
}

TQ_KERNEL void exact_bgr_to_luma(const std::uint8_t* bgr, std::int16_t* y, int width) {
  for (int x = 0; x < width; x += kGroup, bgr += 3 * kGroup) {
    store(y + x, exact_luma(load_exact_pairs(bgr), load_exact_pairs(bgr + 12)));
  }
}

TQ_KERNEL void exact_bgr_to_ycc(const std::uint8_t* bgr, int /*h*/, std::int16_t* y,
                                std::int16_t* cb, std::int16_t* cr, int width) {
  for (int x = 0; x < width; x += kGroup, bgr += 3 * kGroup) {
    const Pairs a = load_exact_pairs(bgr), b = load_exact_pairs(bgr + 12);
    store(y + x, exact_luma(a, b));
    store(cb + x, exact_difference<kBlueWeights[0], kBlueWeights[1], kBlueWeights[2]>(a, b));
    store(cr + x, exact_difference<kRedWeights[0], kRedWeights[1], kRedWeights[2]>(a, b));
  }
}

// Half as many samples.

TQ_KERNEL void halve_across(const std::int16_t* samples, std::int16_t* out, int count) {
  for (int i = 0; i < count; i += kGroup, samples += 2 * kGroup) {
    const Vector sums = in_sequence(add_neighbours16(load(samples), load(samples + kGroup)));
    store(out + i, shift_right16<1>(add16(sums, all32(1 << 16))));
  }
}

TQ_KERNEL void halve_both(const std::int16_t* upper, const std::int16_t* lower, std::int16_t* out,
                          int count) {
  for (int i = 0; i < count; i += kGroup, upper += 2 * kGroup, lower += 2 * kGroup) {
    const Vector front = add16(load(upper), load(lower));
    const Vector back = add16(load(upper + kGroup), load(lower + kGroup));
    const Vector sums = in_sequence(add_neighbours16(front, back));
    store(out + i, shift_right16<2>(add16(sums, all32(2 << 16 | 1))));
  }
}

TQ_KERNEL void grey_to_luma(const std::uint8_t* grey, std::int16_t* y, int width) {
  for (int x = 0; x < width; x += kGroup) {
    store(y + x, subtract16(load_widened(grey + x), all16(128)));
  }
}

void add_kernels(Kernels& kernels) {
  const bool exact = kernels.accuracy == Accuracy::exact;
  kernels.inverse_small_pair = exact ? exact_inverse_pair : inverse_pair;
  kernels.magnitude = magnitude;
  kernels.ycc_to_bgr = exact ? exact_ycc_to_bgr : ycc_to_bgr;
  kernels.ycc_to_bgr_halved = ycc_to_bgr_halved;
  kernels.smooth_across = smooth_across;
  kernels.smooth_down = smooth_down;
  kernels.smooth_both = smooth_both;
  kernels.forward = exact ? exact_forward_blocks : forward_blocks;
  kernels.bgr_to_luma = exact ? exact_bgr_to_luma : bgr_to_luma;
  kernels.bgr_to_ycc = exact ? exact_bgr_to_ycc : bgr_to_ycc;
  kernels.grey_to_luma = grey_to_luma;
  kernels.halve_across = halve_across;
  kernels.halve_both = halve_both;
}

}  // namespace
}  // namespace tq::jpeg::x86
