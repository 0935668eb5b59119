// PCX headers and palettes.
#include "formats/pcx/pcx_header.h"

#include <algorithm>

#include "formats/pcx/pcx_rows.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::formats {
namespace {

constexpr Rgb kBlack{0, 0, 0, 0};
constexpr Rgb kWhite{255, 255, 255, 0};

Rgb load_colour(const std::uint8_t* p) {
  return {p[2], p[1], p[0], 0};
}

void store_colour(std::uint8_t* p, const Rgb& colour) {
  p[0] = colour.red;
  p[1] = colour.green;
  p[2] = colour.blue;
}

// Some writers name the depth of a pixel where that of a plane belongs.
void settle_layout(PcxHeader& file) {
  if (file.bits == 4 && file.planes == 4) file.bits = 1;
  if (file.bits == 16) file.bits = 4;
}

bool is_known_layout(const PcxHeader& file) {
  switch (file.bits) {
    case 1:
      return file.planes == 1 || file.planes == 3 || file.planes == 4;
    case 4:
      return file.planes == 1;
    case 8:
      return file.planes == 1 || file.planes == 3;
    default:
      return false;
  }
}

void fill_grey(int bits, HeaderBlock& image) {
  const int last = (1 << bits) - 1;
  for (int i = 0; i <= last; ++i) image.palette[i] = pixels::grey_ramp()[i * 255 / last];
}

template <class Colours>
void fill(const Colours& colours, HeaderBlock& image) {
  std::copy(colours.begin(), colours.end(), image.palette.begin());
}

// A two-entry colour map; black, white is what images have. Whether the bits have to be inverted.
bool normalise_two_colours(HeaderBlock& image) {
  const Rgb zero = image.palette[0], one = image.palette[1];
  const bool inverted = one == kBlack && zero != kBlack;
  const bool useless = zero == one && (zero == kBlack || zero == kWhite);
  if (inverted || useless) fill(pixels::black_and_white(), image);
  return inverted;
}

// Whether a small colour map says that the rows are inverted.
bool read_small_palette(const PcxHeader& file, HeaderBlock& image) {
  const int bits = file.pixel_bits();
  if (file.grey) {
    fill_grey(bits, image);
  } else if (file.version == 0 || file.version == 3) {
    if (bits == 1) {
      fill(pixels::black_and_white(), image);
    } else {
      fill(pixels::sixteen_colours(), image);
    }
  } else {
    std::copy_n(file.colours.begin(), 1 << bits, image.palette.begin());
    return bits == 1 && normalise_two_colours(image);
  }
  return false;
}

// Behind the pixels, for memory whose end is unknown.
Status find_palette(StreamHandle stream, std::int32_t start, const PcxHeader& file) {
  seek(stream, start + kPcxHeaderBytes, Origin::start);
  TQ_TRY(skip_pcx_rows(stream, file));
  std::array<std::uint8_t, 1> marker{};
  if (read(stream, marker) != 1 || marker[0] != kPcxPaletteMarker) return StatusCode::bad_image;
  return kOk;
}

using PaletteBytes = std::array<std::uint8_t, kPcxPaletteBytes>;

// The last 768 bytes before `end`, whatever stands before them; callers rely on nothing else.
bool read_palette_before(StreamHandle stream, std::int32_t end, PaletteBytes& bytes) {
  const std::int32_t from = end - kPcxPaletteBytes;
  return from >= 0 && seek(stream, from, Origin::start) == from &&
         read_fully(stream, bytes) == kPcxPaletteBytes;
}

bool read_palette_at_end(StreamHandle stream, std::int32_t start, const PcxHeader& file,
                         PaletteBytes& bytes) {
  if (!end_is_known(stream)) {
    if (find_palette(stream, start, file).failed()) return false;
  } else if (seek(stream, -kPcxPaletteBytes, Origin::end) < 0) {
    return false;
  }
  return read_fully(stream, bytes) == kPcxPaletteBytes;
}

void read_large_palette(StreamHandle stream, const PcxExtent& extent, const PcxHeader& file,
                        HeaderBlock& image) {
  PaletteBytes bytes{};
  const bool found = (extent.end && read_palette_before(stream, *extent.end, bytes)) ||
                     read_palette_at_end(stream, extent.start, file, bytes);
  if (!found) return fill(pixels::grey_ramp(), image);
  for (int i = 0; i < 256; ++i) image.palette[i] = load_colour(&bytes[3 * i]);
}

std::uint16_t resolution(std::int32_t dots_per_inch) {
  return static_cast<std::uint16_t>(std::clamp(dots_per_inch, 0, 0xFFFF));
}

}  // namespace

Status read_pcx_header(StreamHandle stream, std::int32_t start, PcxHeader& file) {
  // What lies behind the header must have a position.
  if (start > INT32_MAX - kPcxHeaderBytes) return StatusCode::cannot_open;
  std::array<std::uint8_t, kPcxHeaderBytes> bytes{};
  seek(stream, start, Origin::start);
  if (read_fully(stream, bytes) < kPcxHeaderBytes) return StatusCode::cannot_open;
  file.version = bytes[1];
  file.bits = bytes[3];
  file.width = load_le16(&bytes[8]) - load_le16(&bytes[4]) + 1;
  file.height = load_le16(&bytes[10]) - load_le16(&bytes[6]) + 1;
  file.x_dpi = load_le16(&bytes[12]);
  file.y_dpi = load_le16(&bytes[14]);
  for (int i = 0; i < 16; ++i) file.colours[i] = load_colour(&bytes[16 + 3 * i]);
  file.planes = bytes[65];
  file.bytes_per_line = load_le16(&bytes[66]);
  file.grey = load_le16(&bytes[68]) == 2;
  if (file.line_bytes() == 0) return StatusCode::bad_image;
  settle_layout(file);
  return is_known_layout(file) ? StatusCode::ok : StatusCode::unsupported;
}

bool read_pcx_palette(StreamHandle stream, const PcxExtent& extent, const PcxHeader& file,
                      HeaderBlock& image) {
  if (file.pixel_bits() < 5) return read_small_palette(file, image);
  if (file.pixel_bits() == 8) read_large_palette(stream, extent, file, image);
  return false;
}

std::array<std::uint8_t, kPcxHeaderBytes> pcx_header_for(const HeaderBlock& image) {
  const BitmapInfoHeader& header = image.header;
  const int bits = header.biBitCount;
  const int bytes_per_line = bits >= 8 ? header.biWidth : (header.biWidth + 7) / 8;
  std::array<std::uint8_t, kPcxHeaderBytes> bytes{};
  bytes[0] = 10;
  bytes[1] = bits == 4 ? 2 : 5;
  bytes[2] = 1;
  bytes[3] = bits >= 8 ? 8 : 1;
  store_le16(&bytes[8], static_cast<std::uint16_t>(header.biWidth - 1));
  store_le16(&bytes[10], static_cast<std::uint16_t>(header.biHeight - 1));
  store_le16(&bytes[12], resolution(header.biXPelsPerMeter));
  store_le16(&bytes[14], resolution(header.biYPelsPerMeter));
  // A 1-bit file's map stays all 0, which readers take for black, white.
  for (int i = 0; bits == 4 && i < 16; ++i) store_colour(&bytes[16 + 3 * i], image.palette[i]);
  bytes[65] = static_cast<std::uint8_t>(bits == 24 ? 3 : bits == 4 ? 4 : 1);
  store_le16(&bytes[66], static_cast<std::uint16_t>(bytes_per_line));
  store_le16(&bytes[68], bits == 24 ? 0 : 1);
  return bytes;
}

}  // namespace tq::formats
