// The device-independent bitmap: header, palette, size rules.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "core/memory.h"

namespace tq {

struct BitmapInfoHeader {
  std::uint32_t biSize;
  std::int32_t biWidth, biHeight;
  std::uint16_t biPlanes, biBitCount;
  std::uint32_t biCompression, biSizeImage;
  std::int32_t biXPelsPerMeter, biYPelsPerMeter;  // dots per inch inside the library
  std::uint32_t biClrUsed, biClrImportant;
};
static_assert(sizeof(BitmapInfoHeader) == 40);

struct Rgb {
  std::uint8_t blue, green, red, reserved;
  friend constexpr bool operator==(const Rgb&, const Rgb&) = default;
};
static_assert(sizeof(Rgb) == 4);

inline constexpr int kDibHeaderBytes = 40;
inline constexpr std::uint32_t kInRuns = 99;  // biCompression: rows are run lists
inline constexpr std::uint32_t kRgb32 = 200;  // biCompression: 32 bits are B G R and unused
inline constexpr std::uint32_t kTransparent =
    0x1000;  // biClrUsed: transparent index in the low byte
inline constexpr int kDeepest = 32;

// 16-bit images keep a full 256-entry map; a depth without a table of its own never claims more.
constexpr int palette_bytes(int bits) {
  if (bits == 24 || bits == 32) return 0;
  if (bits >= 8) return 1024;
  return 4 << bits;
}

// Bytes per row, a multiple of 4.
constexpr std::int64_t row_bytes(std::int64_t width, int bits) {
  std::int64_t bytes = width;
  switch (bits) {
    case 1:
      bytes = (width + 7) / 8;
      break;
    case 4:
      bytes = (width + 1) / 2;
      break;
    case 16:
      bytes = 2 * width;
      break;
    case 24:
      bytes = 3 * width;
      break;
    case 32:
      bytes = 4 * width;
      break;
    default:
      break;
  }
  return (bytes + 3) & ~std::int64_t{3};
}

// All rows, as biSizeImage says it. The sides may be anything: what is too large wraps.
constexpr std::uint32_t image_bytes(std::int32_t width, std::int32_t height, int bits) {
  return static_cast<std::uint32_t>(row_bytes(width, bits)) * height;
}

// Header, palette and rows in one block. Sides are above 0 and below 2^31.
constexpr std::uint64_t dib_bytes(std::int32_t width, std::int32_t height, int bits) {
  const std::uint64_t row = row_bytes(width, bits);
  return row * height + palette_bytes(bits) + kDibHeaderBytes;
}

struct RowRange {
  std::int32_t first = -1, last = -1;  // none
};

// Thousandths of a dot per inch; 0 when it is not known.
struct Resolution {
  static constexpr std::int64_t kMost = 65535000;

  std::int32_t x = 0, y = 0;
};

// As a header of dots per inch says it.
constexpr Resolution resolution_of(const BitmapInfoHeader& header) {
  const auto thousandths = [](std::int64_t dots) {
    return dots > 0 ? static_cast<std::int32_t>(std::min(1000 * dots, Resolution::kMost)) : 0;
  };
  return {thousandths(header.biXPelsPerMeter), thousandths(header.biYPelsPerMeter)};
}

// From and to pixels per metre; 0 for what nothing can have.
constexpr Resolution resolution_of_metres(std::int64_t x, std::int64_t y) {
  const auto thousandths = [](std::int64_t pixels) {
    const std::int64_t value = pixels > 0 && pixels < INT32_MAX ? (254 * pixels + 5) / 10 : 0;
    return value <= Resolution::kMost ? static_cast<std::int32_t>(value) : 0;
  };
  return {thousandths(x), thousandths(y)};
}
constexpr std::int32_t pixels_per_metre(std::int32_t thousandths) {
  return static_cast<std::int32_t>((10 * std::int64_t{thousandths} + 127) / 254);
}

// What a decoder says about its image before the first row, and an encoder is told.
struct HeaderBlock {
  BitmapInfoHeader header{};
  std::array<Rgb, 256> palette{};
};
static_assert(sizeof(HeaderBlock) == 1064);

// One plane, no compression, no resolution, palette all 0.
HeaderBlock dib_header(std::int32_t width, std::int32_t height, int bits);

// bad_image for a side below 1 or a depth outside 1..32, out_of_memory for an image that no block
// can hold. After it row_bytes, and row_bytes times height, fit 31 bits.
Status check_geometry(const BitmapInfoHeader& header);

// A 1-bit palette whose entry 0 has no zero byte becomes black, white; the bits stay as they are.
void normalise_mono_palette(Rgb* palette);

}  // namespace tq
