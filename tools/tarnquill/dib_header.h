// The header that images and decoders hand out, and the sizes that follow from it.
#pragma once

#include <cstdint>

namespace tool {

struct DibHeader {
  std::uint32_t biSize;
  std::int32_t biWidth;
  std::int32_t biHeight;
  std::uint16_t biPlanes;
  std::uint16_t biBitCount;
  std::uint32_t biCompression;
  std::uint32_t biSizeImage;
  std::int32_t biXPelsPerMeter;  // dots per inch
  std::int32_t biYPelsPerMeter;
  std::uint32_t biClrUsed;
  std::uint32_t biClrImportant;
};
static_assert(sizeof(DibHeader) == 40);

constexpr std::uint32_t kRunLists = 99;         // biCompression of an image without plain pixels
constexpr std::uint32_t kTransparent = 0x1000;  // in biClrUsed, with the transparent index

constexpr std::int64_t row_bytes(std::int64_t width, int bits) {
  return (width * bits + 31) / 32 * 4;
}

}  // namespace tool
