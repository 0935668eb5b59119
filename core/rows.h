// Rows of an image by value: raw bytes in and out, and colours of any depth.
#pragma once

#include <cstdint>
#include <span>

#include "core/image_record.h"

namespace tq {

// The first `bytes` bytes of row y (0 or more than a row: the whole row). unsupported: row or count
// out of range.
Status get_raster(const ImageRecord& image, std::uint8_t* out, std::int32_t y, std::int32_t bytes);
Status put_raster(ImageRecord& image, const std::uint8_t* in, std::int32_t y, std::int32_t bytes);

// Copies pixels `first` .. `first` + `width` - 1 of a row of 1-bit pixels to the start of `out`,
// whose other bits keep their value.
void copy_bits(std::span<const std::uint8_t> bits, std::int32_t first, std::int32_t width,
               std::span<std::uint8_t> out);

// How the pixels of a row are to be understood.
struct RowFormat {
  std::int32_t width = 0;
  int bits = 0;
  bool cmyk = false;  // 32 bits without an RGB marker: cyan, magenta, yellow, black
  std::span<const Rgb> palette;
};

// Widens a stored row to colours. 16-bit samples index the palette by their high byte; any other
// depth without a rule gives black.
void row_to_colours(std::span<const std::uint8_t> row, const RowFormat& format,
                    std::span<Rgb> colours);

}  // namespace tq
