// The 128-byte PCX header, and the palettes in it and behind the pixels.
#pragma once

#include <array>
#include <optional>

#include "formats/codec.h"

namespace tq::formats {

inline constexpr int kPcxHeaderBytes = 128;
inline constexpr int kPcxPaletteBytes = 768;  // 256 entries of red, green, blue
inline constexpr std::uint8_t kPcxPaletteMarker = 12;

// As the file has it, except that bits and planes are those of one of the layouts below.
struct PcxHeader {
  std::int32_t width = 0, height = 0;  // below 1 when the corners are the wrong way round
  int bits = 0;                        // per pixel and plane
  int planes = 0;
  int bytes_per_line = 0;  // of one plane
  int version = 0;
  int x_dpi = 0, y_dpi = 0;
  bool grey = false;
  std::array<Rgb, 16> colours{};

  int line_bytes() const { return bytes_per_line * planes; }
  // Three planes of one bit fill the lower three of four bits.
  int pixel_bits() const { return bits == 1 && planes == 3 ? 4 : bits * planes; }
};

// Where a PCX file lies in its stream. Without an end it ends with the stream.
struct PcxExtent {
  std::int32_t start = 0;
  std::optional<std::int32_t> end{};
};

// cannot_open when there are not 128 bytes; bad_image for lines of no bytes, which would never end;
// unsupported for a layout other than 1 bit in 1, 3 or 4 planes, 4 bits in 1, 8 bits in 1 or 3.
Status read_pcx_header(StreamHandle stream, std::int32_t start, PcxHeader& file);

// Fills the palette of `image`. Whether the rows have to be inverted: the file's 0 is white.
bool read_pcx_palette(StreamHandle stream, const PcxExtent& extent, const PcxHeader& file,
                      HeaderBlock& image);

// The file's first 128 bytes for an image of 1, 4, 8 or 24 bits whose sides fit the fields.
std::array<std::uint8_t, kPcxHeaderBytes> pcx_header_for(const HeaderBlock& image);

}  // namespace tq::formats
