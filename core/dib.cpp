// Headers of device-independent bitmaps: made, checked, normalised.
#include "core/dib.h"

#include "core/numbers.h"

namespace tq {

HeaderBlock dib_header(std::int32_t width, std::int32_t height, int bits) {
  HeaderBlock block;
  block.header.biSize = kDibHeaderBytes;
  block.header.biWidth = width;
  block.header.biHeight = height;
  block.header.biPlanes = 1;
  block.header.biBitCount = word(bits);
  block.header.biSizeImage = image_bytes(width, height, bits);
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
