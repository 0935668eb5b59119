// The image creation step: from a header to a record with its DIB block.
#pragma once

#include "core/image_record.h"

namespace tq {

// What the new image is to look like; `header` describes the source as its decoder delivers it.
struct ImageShape {
  std::int32_t width = 0, height = 0, bits = 0;
  std::uint32_t compression = 0;
  bool in_runs = false;
  const Rgb* palette = nullptr;  // of the stored depth; null: the source's
};

// Gives `image` a DIB block of this shape (out_of_memory, bad_image) in place of what it had, and
// the geometry, crop rectangle, gamma and transparency of a new image. The pixels are NOT cleared:
// who creates fills them or calls clear_rows. Run lists start all white.
Status create_image(ImageRecord& image, const HeaderBlock& source, const ImageShape& shape);

// The part of it that concerns pixels alone: DIB block, run table, header and palette. For another
// set of pixels beside an image that exists.
Status create_pixels(ImageRecord& image, const HeaderBlock& source, const ImageShape& shape);

// Gives an image that is being made another number of rows: those at the bottom go, or come, with
// pixels that are NOT cleared (white in run lists). The crop rectangle becomes the whole image. On
// failure (out_of_memory) it keeps its height; rows that were to go may have lost their pixels.
Status change_height(ImageRecord& image, std::int32_t height);

// Sets stored rows first .. last - 1, counted from the top, to 0.
void clear_rows(ImageRecord& image, std::int32_t first, std::int32_t last);

// The `shell` image: this header's geometry, plain pixels, all 0.
Status create_shell(ImageRecord& image, const void* header);

// Registers a caller's packed DIB; bad_image leaves the record empty.
Status adopt_dib(ImageRecord& image, void* packed_dib);

// Makes a block of memory that holds a packed DIB, and came from elsewhere, the image's own: it is
// freed with it. On failure (bad_image, out_of_memory) both are left alone.
Status take_dib(ImageRecord& image, void* packed_dib);

// Other pixels for an image, built beside the present ones. They vanish unless they are installed,
// so an operation that fails leaves the image as it was.
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
