// Headers of device-independent bitmaps: made, checked, normalised.
#include "core/dib.h"

namespace tq {

HeaderBlock dib_header(std::int32_t width, std::int32_t height, int bits) {
  HeaderBlock block;
  block.header.biSize = kDibHeaderBytes;
  block.header.biWidth = width;
  block.header.biHeight = height;
  block.header.biPlanes = 1;
  block.header.biBitCount = static_cast<std::uint16_t>(bits);
  // Sides that no image can have wrap here and are refused by check_geometry.
  block.header.biSizeImage =
      static_cast<std::uint32_t>(row_bytes(width, bits)) * static_cast<std::uint32_t>(height);
  return block;
}

Status check_geometry(const BitmapInfoHeader& header) {
  if (header.biWidth < 1 || header.biHeight < 1) return StatusCode::bad_image;
  if (header.biBitCount < 1 || header.biBitCount > kDeepest) return StatusCode::bad_image;
  if (dib_bytes(header.biWidth, header.biHeight, header.biBitCount) > kLargestBlock) {
    return StatusCode::out_of_memory;
  }
  return kOk;
}

void normalise_mono_palette(Rgb* palette) {
  if (palette[0].blue == 0 || palette[0].green == 0 || palette[0].red == 0) return;
  palette[0] = {0, 0, 0, 0};
  palette[1] = {255, 255, 255, 0};
}

}  // namespace tq
