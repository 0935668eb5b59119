// The library's own row supplier: gives an encoder the rows of an image's crop rectangle.
#pragma once

#include <array>

#include "core/image_record.h"
#include "formats/codec.h"

namespace tq::dispatch {

using formats::Supplier;

// Transitions as encoders that ask for such lists get them, of the columns from `left` on; the list's
// bytes, or 0 where it does not fit.
Status list_transitions(std::span<const std::uint16_t> row, std::int32_t left, std::int32_t width,
                        std::span<std::uint8_t> dest);

class ImageSupplier {
 public:
  ImageSupplier(ImageHandle handle, const ImageRecord& image, Supplier kind);
  ImageSupplier(const ImageSupplier&) = delete;
  ImageSupplier& operator=(const ImageSupplier&) = delete;

  Status allocate();  // buffers
  formats::RowSupplier callback() { return {on_row, this, stored_rows()}; }

 private:
  static std::int32_t IMG_CB_C on_row(void* supplier, void* dest, std::int32_t y,
                                      std::int32_t bytes);

  Status row(std::span<std::uint8_t> dest, std::int32_t y);
  const ImageRecord* image() const;
  std::span<const std::uint8_t> stored_rows() const;
  void copy_plain(const ImageRecord& image, std::int32_t y, std::span<std::uint8_t> dest) const;
  void copy_runs(const ImageRecord& image, std::int32_t y, std::span<std::uint8_t> dest);

  ImageHandle handle_;
  std::uint64_t serial_;
  Supplier kind_;
  std::int32_t width_, height_, bits_;
  Rect crop_;
  std::int32_t progress_value_;
  std::uint8_t fill_;  // of what lies beyond the stored row
  bool has_tone_;      // that colours of a palette cannot take
  std::array<std::uint8_t, 256> tone_{};
  RowBuffer<std::uint8_t> expanded_;
  RowBuffer<std::uint16_t> transitions_;
};

}  // namespace tq::dispatch
