// Access to the parts of an image's DIB block.
#include "core/image_record.h"

#include <cstring>

namespace tq {

BitmapInfoHeader header_of(const ImageRecord& image) {
  BitmapInfoHeader header;
  std::memcpy(&header, image.dib, sizeof header);
  return header;
}

void set_header(ImageRecord& image, const BitmapInfoHeader& header) {
  std::memcpy(image.dib, &header, sizeof header);
}

std::span<Rgb> palette_of(const ImageRecord& image) {
  return {reinterpret_cast<Rgb*>(image.dib + kDibHeaderBytes),
          static_cast<std::size_t>(palette_bytes(image.bits) / 4)};
}

}  // namespace tq
