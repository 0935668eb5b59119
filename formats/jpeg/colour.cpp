// Colour conversion, the reference for the faster variants.
#include "formats/jpeg/colour.h"

namespace tq::formats {
namespace {

using ChromaTable = std::array<std::int16_t, 256>;

// Cut towards zero: 127 becomes 178 for red and -128 becomes -179.
constexpr ChromaTable chroma_table(std::int32_t hundred_thousandths) {
  ChromaTable table{};
  for (std::int32_t i = 0; i < 256; ++i) {
    table[static_cast<std::size_t>(i)] =
        static_cast<std::int16_t>((i - 128) * hundred_thousandths / 100000);
  }
  return table;
}
constexpr ChromaTable kCrToRed = chroma_table(140200);
constexpr ChromaTable kCbToGreen = chroma_table(34414);
constexpr ChromaTable kCrToGreen = chroma_table(71414);
constexpr ChromaTable kCbToBlue = chroma_table(177200);

// Sums never leave -354 .. 352 around the middle.
constexpr std::uint8_t clamped(int value) {
  return static_cast<std::uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
}

void put_pixel(int y, std::uint8_t cb, std::uint8_t cr, std::uint8_t* bgr) {
  bgr[0] = clamped(y + kCbToBlue[cb]);
  bgr[1] = clamped(y - (kCbToGreen[cb] + kCrToGreen[cr]));
  bgr[2] = clamped(y + kCrToRed[cr]);
}

}  // namespace

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
    y[x] = static_cast<std::int16_t>(((308 * bgr[2] + 603 * bgr[1] + 120 * bgr[0]) >> 10) - 128);
  }
}

void bgr_to_chroma(const std::uint8_t* bgr, int step, std::int16_t* cb, std::int16_t* cr,
                   int width) {
  for (int x = 0, i = 0; x < width; x += step, ++i) {
    const std::uint8_t* p = bgr + 3 * x;
    cb[i] = static_cast<std::int16_t>((512 * p[0] - 339 * p[1] - 178 * p[2]) >> 10);
    cr[i] = static_cast<std::int16_t>((512 * p[2] - 429 * p[1] - 83 * p[0]) >> 10);
  }
}

void bgr_to_ycc(const std::uint8_t* bgr, int step, std::int16_t* y, std::int16_t* cb,
                std::int16_t* cr, int width) {
  bgr_to_luma(bgr, y, width);
  bgr_to_chroma(bgr, step, cb, cr, width);
}

void grey_to_luma(const std::uint8_t* grey, std::int16_t* y, int width) {
  for (int x = 0; x < width; ++x) y[x] = static_cast<std::int16_t>(grey[x] - 128);
}

}  // namespace tq::formats
