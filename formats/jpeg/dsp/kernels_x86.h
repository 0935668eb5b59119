// The kernels in registers of any width: compiled by kernels_ssse3.cpp and kernels_avx2.cpp, each
// behind the words of its instruction set.
#pragma once

#include "formats/jpeg/dsp/kernels.h"

namespace tq::jpeg::x86 {
namespace {

using namespace simd;

// Transforms, a block per lane.

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

TQ_SIMD void inverse_four(Vector (&x)[4]) {
  const Vector a = add16(x[0], x[2]), b = subtract16(x[0], x[2]);
  const Vector c = add16(scaled<1338>(x[1]), scaled<553>(x[3]));
  const Vector d = subtract16(scaled<553>(x[1]), scaled<1338>(x[3]));
  x[0] = add16(a, c);
  x[1] = add16(b, d);
  x[2] = subtract16(b, d);
  x[3] = subtract16(a, c);
}

TQ_SIMD void inverse_eight(Vector (&x)[8]) {
  Vector even[4] = {x[0], x[2], x[4], x[6]};
  inverse_four(even);
  Vector odd[4] = {scaled<1448>(x[1]), add16(x[1], x[3]), add16(x[3], x[5]), add16(x[5], x[7])};
  inverse_four(odd);
  odd[0] = scaled<522>(odd[0]);
  odd[1] = scaled<616>(odd[1]);
  odd[2] = scaled<922>(odd[2]);
  odd[3] = scaled<2624>(odd[3]);
  TQ_UNROLLED for (int n = 0; n < 4; ++n) {
    x[n] = add16(even[n], odd[n]);
    x[7 - n] = subtract16(even[n], odd[n]);
  }
}

// Two rows of samples: rounded, limited, with the level shift.
TQ_SIMD Vector limited_rows(Vector first, Vector second) {
  first = shift_right16<3>(add16(first, all16(4)));
  second = shift_right16<3>(add16(second, all16(4)));
  const Vector far_too_bright = pack16(greater16(first, all16(383)), greater16(second, all16(383)));
  return (pack16(first, second) ^ all16(0x8080)) & ~far_too_bright;
}

TQ_SIMD void inverse_blocks(const std::int16_t* const* coefficients, const DequantiseTable& table,
                            std::uint8_t* const* samples, std::ptrdiff_t stride) {
  Vector x[8];
  TQ_UNROLLED for (int i = 0; i < 8; ++i) {
    const Vector values = load_lanes(coefficients[0] + 8 * i, coefficients[kLanes - 1] + 8 * i);
    x[i] = multiply_low16(values, load_repeated(table.steps + 8 * i));
  }
  inverse_eight(x);
  transpose(x);
  inverse_eight(x);
  TQ_UNROLLED for (int i = 0; i < 8; i += 2) {
    const Vector rows = limited_rows(x[i], x[i + 1]);
    store_halves<0>(samples[0] + i * stride, samples[0] + (i + 1) * stride, rows);
    if constexpr (kLanes == 2) {
      store_halves<1>(samples[1] + i * stride, samples[1] + (i + 1) * stride, rows);
    }
  }
}

TQ_KERNEL void inverse_pair(const std::int16_t* const (&coefficients)[2],
                            const DequantiseTable& table, std::uint8_t* const (&samples)[2],
                            std::ptrdiff_t stride) {
  for (int i = 0; i < 2; i += kLanes) inverse_blocks(coefficients + i, table, samples + i, stride);
}

// 32768 is taken for 32767: either is beyond any bound.
TQ_KERNEL std::uint32_t magnitude(const std::int16_t* coefficients, const DequantiseTable& table) {
  Vector sum{};
  TQ_UNROLLED for (int i = 0; i < kBlock; i += 8 * kLanes) {
    const Vector x = load(coefficients + i);
    const Vector limited = max16(x, subtract_saturated16(Vector{}, x));
    sum = add32(sum, multiply_add16(limited, load(table.steps + i)));
  }
  return sum32(sum);
}

TQ_SIMD void forward_four(Vector (&s)[4]) {
  const Vector a = add16(s[0], s[3]), b = add16(s[1], s[2]);
  const Vector c = subtract16(s[0], s[3]), d = subtract16(s[1], s[2]);
  s[0] = add16(a, b);
  s[1] = add16(scaled<1338>(c), scaled<553>(d));
  s[2] = subtract16(a, b);
  s[3] = subtract16(scaled<553>(c), scaled<1338>(d));
}

TQ_SIMD void forward_eight(Vector (&x)[8]) {
  Vector even[4], odd[4];
  TQ_UNROLLED for (int n = 0; n < 4; ++n) {
    even[n] = add16(x[n], x[7 - n]);
    odd[n] = subtract16(x[n], x[7 - n]);
  }
  odd[0] = scaled<522>(odd[0]);
  odd[1] = scaled<616>(odd[1]);
  odd[2] = scaled<922>(odd[2]);
  odd[3] = scaled<2624>(odd[3]);
  forward_four(even);
  forward_four(odd);
  TQ_UNROLLED for (int n = 0; n < 4; ++n) x[2 * n] = even[n];
  x[1] = add16(scaled<1448>(odd[0]), odd[1]);
  x[3] = add16(odd[1], odd[2]);
  x[5] = add16(odd[2], odd[3]);
  x[7] = odd[3];
}

// The 4 times 16 bytes of a block are in zigzag order what these shuffles of its 4 pairs of rows
// give together.
struct ZigzagMoves {
  alignas(16) std::uint8_t places[4][4][16];  // by quarter of the sequence and pair of rows
  bool needed[4][4];
};
constexpr ZigzagMoves zigzag_moves() {
  ZigzagMoves moves{};
  for (int i = 0; i < kBlock; ++i) {
    const int from = kZigzag[i];
    for (int pair = 0; pair < 4; ++pair) {
      const bool here = from / 16 == pair;
      moves.places[i / 16][pair][i % 16] = byte(here ? from % 16 : 0x80);
      moves.needed[i / 16][pair] |= here;
    }
  }
  return moves;
}
inline constexpr ZigzagMoves kMoves = zigzag_moves();

// Which values are not 0: the flags are moved, not the values.
TQ_SIMD void find_present(const Vector (&rows)[8], QuantisedBlock* out) {
  Vector zeros[4];
  TQ_UNROLLED for (int i = 0; i < 4; ++i) {
    zeros[i] = equal8(pack16(rows[2 * i], rows[2 * i + 1]), Vector{});
  }
  std::uint64_t present[kLanes] = {};
  TQ_UNROLLED for (int quarter = 0; quarter < 4; ++quarter) {
    Vector moved{};
    TQ_UNROLLED for (int pair = 0; pair < 4; ++pair) {
      if (!kMoves.needed[quarter][pair]) continue;
      moved |= shuffle8(zeros[pair], load_repeated(kMoves.places[quarter][pair]));
    }
    const std::uint32_t flags = ~top_bits8(moved);
    TQ_UNROLLED for (int lane = 0; lane < kLanes; ++lane) {
      present[lane] |= std::uint64_t{flags >> 16 * lane & 0xFFFF} << 16 * quarter;
    }
  }
  TQ_UNROLLED for (int lane = 0; lane < kLanes; ++lane) out[lane].present = present[lane];
}

TQ_KERNEL void forward_blocks(const std::int16_t* samples, std::ptrdiff_t stride, int count,
                              const QuantiseTable& table, QuantisedBlock* out) {
  for (int n = 0; n < count; n += kLanes, samples += 8 * kLanes, out += kLanes) {
    Vector x[8];
    TQ_UNROLLED for (int i = 0; i < 8; ++i) x[i] = shift_left16<4>(load(samples + i * stride));
    transpose(x);
    forward_eight(x);
    TQ_UNROLLED for (Vector& values : x) values = rounded<3>(values);
    transpose(x);
    forward_eight(x);
    TQ_UNROLLED for (int i = 0; i < 8; ++i) {
      const Vector value = rounded<2>(x[i]);
      const Vector biased = add16(abs16(value), load_repeated(table.bias + 8 * i));
      const Vector quotient = multiply_high_unsigned16(
          multiply_high_unsigned16(biased, load_repeated(table.reciprocal + 8 * i)),
          load_repeated(table.scale + 8 * i));
      x[i] = apply_sign16(quotient, value);
      store_lane<0>(out[0].values + 8 * i, x[i]);
      if constexpr (kLanes == 2) store_lane<1>(out[1].values + 8 * i, x[i]);
    }
    find_present(x, out);
  }
}

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

TQ_KERNEL void grey_to_luma(const std::uint8_t* grey, std::int16_t* y, int width) {
  for (int x = 0; x < width; x += kGroup) {
    store(y + x, subtract16(load_widened(grey + x), all16(128)));
  }
}

void add_kernels(Kernels& kernels) {
  kernels.inverse_small_pair = inverse_pair;
  kernels.magnitude = magnitude;
  kernels.ycc_to_bgr = ycc_to_bgr;
  kernels.ycc_to_bgr_halved = ycc_to_bgr_halved;
  kernels.forward = forward_blocks;
  kernels.bgr_to_luma = bgr_to_luma;
  kernels.bgr_to_ycc = bgr_to_ycc;
  kernels.grey_to_luma = grey_to_luma;
}

}  // namespace
}  // namespace tq::jpeg::x86
