// Rows of an image as one byte of grey per pixel.
#pragma once

#include "pixels/colours.h"
#include "process/image_source.h"

namespace tq::process {

enum class GreyKind : std::uint8_t { level, luma };

class GreyRows {
 public:
  GreyRows(const ImageSource& image, GreyKind kind);
  Status allocate();
  // Row y: in the image itself where its bytes are the greys, else in a buffer of this object.
  std::span<const std::uint8_t> read(std::int32_t y);
  void read(std::int32_t y, std::uint8_t* out) const;

 private:
  const ImageSource& image_;
  GreyKind kind_;
  std::array<std::uint8_t, 256> table_;  // of palette indices
  bool bytes_are_greys_;
  RowBuffer<Rgb> colours_;  // of 32-bit rows
  RowBuffer<std::uint8_t> levels_;
};

}  // namespace tq::process
