// Samples to pixels. Rows are read and written in whole groups: up to 31 samples and pixels more
// than asked for.
#pragma once

namespace tq::formats::x86 {
namespace {

using namespace simd;

inline constexpr int kPixels = 16 * kLanes;  // whose samples fill a register

// 65536 times the fraction of a factor, so chosen that the high product of any amount up to 128 is
// the product with the exact fraction, cut.
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
      turns.of[place / 16][colour][place % 16] = static_cast<std::uint8_t>(pixel);
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

}  // namespace
}  // namespace tq::formats::x86
