// The image table: handles and the records they name.
#pragma once

#include "core/image_record.h"

namespace tq {

inline constexpr std::int32_t kMostImages = 10000;

// A handle (the lowest free one), or out_of_memory; 10000 images are the most.
Status allocate_image_slot();
Status validate_image_handle(ImageHandle handle);

// Frees the record and all it owns. The other one leaves the DIB to the caller.
Status free_image_slot(ImageHandle handle);
Status free_image_slot_keep(ImageHandle handle);

ImageRecord& image_record(ImageHandle handle);  // of a validated handle

// The record that `handle` names, if it still is the image with this serial number; else null. For
// work during which a callback may delete images.
ImageRecord* find_image(ImageHandle handle, std::uint64_t serial);

// Makes a caller's packed DIB the pixels of an image that has none.
void adopt_block(ImageRecord& image, std::uint8_t* dib);

// Gives the image other pixels: a DIB block that the record then owns. The old block is freed
// unless it came from a caller; run lists are dropped.
void replace_dib(ImageRecord& image, std::uint8_t* dib);

// A new image that vanishes unless it is kept.
class ImageSlot {
 public:
  ImageSlot() = default;
  ImageSlot(const ImageSlot&) = delete;
  ImageSlot& operator=(const ImageSlot&) = delete;
  ~ImageSlot();
  Status allocate();
  ImageHandle handle() const { return handle_; }
  ImageRecord& record() const { return image_record(handle_); }
  bool still_there() const { return find_image(handle_, serial_) != nullptr; }
  Status keep();  // the handle; bad_handle when a callback has deleted the image

 private:
  ImageHandle handle_{-1};
  std::uint64_t serial_ = 0;
};

}  // namespace tq
