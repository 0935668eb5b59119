// Other pixels for an image, built beside the present ones.
#pragma once

#include "core/image_create.h"

namespace tq {

// Vanishes unless it is installed, so an operation that fails leaves the image as it was.
class ImageDraft {
 public:
  ImageDraft() = default;
  ImageDraft(const ImageDraft&) = delete;
  ImageDraft& operator=(const ImageDraft&) = delete;
  ~ImageDraft();

  // A DIB block of this shape with the header and palette of `source`; pixels as create_pixels
  // leaves them.
  Status create(const HeaderBlock& source, const ImageShape& shape);
  ImageRecord& record() { return record_; }

  // Gives the pixels to `image` in place of its own; everything else about it stays.
  void install(ImageRecord& image);

 private:
  ImageRecord record_;
};

}  // namespace tq
