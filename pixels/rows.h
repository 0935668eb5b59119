// Rows of pixels: from and to the layouts that files have, as colours, in part, narrower, with
// fewer bits. The library's own rows have pixels of 1, 4, 8, 16, 24 (blue, green, red) or 32 bits,
// those below a byte from its top bits on, and a multiple of 4 bytes.
#pragma once

#include <cstdint>
#include <span>

#include "core/dib.h"
#include "core/memory.h"
#include "core/numbers.h"

namespace tq::pixels {

using Bytes = std::span<const std::uint8_t>;
using Row = std::span<std::uint8_t>;

// How a file holds a row, where it differs from the library's rows.
enum class Layout : std::uint8_t {
  bits_1,        // indices or levels, from the top bits on
  bits_1_black,  // 1 is black
  bits_2,
  bits_4,
  bytes,
  bit_planes_2,  // one plane behind the other, the lowest bits first
  bit_planes_3,
  bit_planes_4,
  bit_planes_5,
  bit_planes_6,
  bit_planes_7,
  bit_planes_8,
  grey16_be,
  grey16_le,
  rgb555,  // words, low byte first: from the low bits on blue, green, red
  rgb565,
  rgb555_full,   // full intensity is 255
  rgb555_alpha,  // the same, the top bit being alpha
  rgb555_be,     // full as well, high byte first
  rgb_planes,
  ink_planes,  // cyan to black, one behind the other; 255 is none
  rgb,
  bgr,
  rgbx,
  bgrx,
  xrgb,
  xbgr,
  cmyk,        // as it is, or as colours
  greyx,       // and a byte of nothing
  grey_alpha,  // becomes what it looks like on white
  grey_mixed,  // with alpha by which it is multiplied already
  rgba,
  bgra,
  bgra_mixed,
};

struct RowLayout {
  using Unpack = void (*)(const std::uint8_t* stored, std::ptrdiff_t plane_bytes, int width,
                          std::uint8_t* row);
  using Pack = void (*)(const std::uint8_t* row, int width, std::uint8_t* stored,
                        std::ptrdiff_t plane_bytes);
  Layout layout;
  int bits;        // of a pixel of the library
  int plane_bits;  // of a pixel in one plane of the file
  int planes;
  Unpack unpack;
  Pack pack;  // either is null where nobody needs that way
};

// All there are, and the one between a layout and rows of a depth; null where there is none.
std::span<const RowLayout> row_layouts();
const RowLayout* find_layout(Layout layout, int bits);

// How rows of 1-bit indices arrive: with one bit, 1 being white, where the first two colours are
// black and white in either order; else with 4.
const RowLayout* find_bit_layout(std::span<const Rgb> colours);

// And how rows of 1 bit leave for a file where 1 is black.
const RowLayout* find_black_layout(std::span<const Rgb> colours);

// Of 1 to 8 planes of bits: to rows of 4 bits, above 4 planes of 8.
const RowLayout* find_plane_layout(int planes);

// Bytes of a row of `width` pixels in a file that pads each plane to bytes.
constexpr std::int64_t stored_bytes(const RowLayout& layout, std::int64_t width) {
  return layout.planes * ((width * layout.plane_bits + 7) / 8);
}

// A row of a file to one of the library. The planes share `stored` equally; pixels that it does not
// hold, and what `row` has behind the pixels, become 0.
void unpack(const RowLayout& layout, Bytes stored, int width, Row row);

// And back: what `stored` has behind the pixels becomes 0, in every plane.
void pack(const RowLayout& layout, Bytes row, int width, Row stored);

// Which bits of a pixel, stored as a number, are its colours.
struct ColourMasks {
  std::uint32_t red = 0, green = 0, blue = 0;
};

// Numbers of `bytes` bytes to blue, green, red.
void unpack_masked(const ColourMasks& masks, Bytes stored, int bytes, bool big_endian, int width,
                   Row row);

// Numbers of 2 or 4 bytes, low byte first, to blue, green, red: the nearest of 8 bits. With alpha they
// become what they look like on white.
class PixelMasks {
 public:
  PixelMasks() = default;
  PixelMasks(const ColourMasks& masks, std::uint32_t alpha, int pixel_bytes);

  void unpack(Bytes stored, int width, Row row) const;
  bool any_alpha(Bytes stored, int width) const;
  void drop_alpha() { alpha_ = {}; }

 private:
  // Level v of a mask of n bits is v of 2 to the power of n, less 1, whichever bits lie between.
  struct Channel {
    Channel() = default;
    explicit Channel(std::uint32_t mask);
    std::uint8_t level(std::uint32_t pixel) const;

    std::uint32_t mask = 0, most = 0;
    int low = 0;
    const std::uint8_t* levels = nullptr;  // null above 8 bits
  };
  template <int kBytes, bool kAlpha>
  void unpack_pixels(const std::uint8_t* stored, int width, std::uint8_t* row) const;

  int pixel_bytes_ = 4;
  Channel red_, green_, blue_, alpha_;
};

// Luma and chroma (BT.601, in full range) to colours: Cr, Cb and Y lie where blue, green and red will.
void mix_luma_and_chroma(Row row, int width);

// Turns round what is held in whole bytes: the last pixel comes first.
void mirror(Row pixels, int pixel_bytes);

// 16-bit samples, high byte first, to the nearest of 8 bits: as many as `samples` holds.
void narrow_samples(Bytes stored, Row samples);

// The other way round, for images whose first colour is white: of equal length, or in one place.
void invert(Bytes from, Row to);

// Copies pixels `first` .. `first` + `width` - 1 of a row of 1-bit pixels to the start of `out`,
// whose other bits keep their value.
void copy_bits(Bytes bits, int first, int width, Row out);

// `out` becomes a row of `out_width` pixels, pixel i being source pixel i * step / 65536 with the
// step (width << 16) / out_width.
void scale_row(Bytes row, int width, int bits, Row out, int out_width);

// `out` becomes pixels first .. first + out_width - 1; what lies beyond the source is white for 1
// bit, 0 otherwise.
void cut_row(Bytes row, int width, int bits, int first, Row out, int out_width);

// How the pixels of a row are to be understood.
struct RowFormat {
  int width = 0;
  int bits = 0;
  bool cmyk = false;  // 32 bits without an RGB marker: cyan, magenta, yellow, black
  std::span<const Rgb> palette;
};

// Widens a stored row to colours. 16-bit samples index the palette by their high byte; any other
// depth without a rule gives black.
void row_to_colours(Bytes row, const RowFormat& format, std::span<Rgb> colours);

// Cyan, magenta, yellow, black to blue, green, red, as they look without a profile.
void inks_to_colours(Bytes inks, int width, Row colours);

// Calls `put(x, index)` for every pixel of a row of 1, 4, 8 or 16 bits; samples of 16 bits have the
// index in their high byte.
template <class Put>
void for_each_index(const std::uint8_t* row, int bits, int width, Put&& put) {
  switch (bits) {
    case 1:
      for (int x = 0; x < width; ++x) put(x, row[x / 8] >> (7 - x % 8) & 1);
      break;
    case 4:
      for (int x = 0; x < width; ++x) put(x, x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15);
      break;
    case 8:
#pragma GCC unroll 8
      for (int x = 0; x < width; ++x) put(x, row[x]);
      break;
    default:
      for (int x = 0; x < width; ++x) put(x, row[2 * x + 1]);
      break;
  }
}

// Makes a row of 4 bits of `index_at(x)`, called from the left.
template <class IndexAt>
void pack_nibbles(std::uint8_t* out, int width, IndexAt&& index_at) {
  int x = 0;
  for (; x + 1 < width; x += 2) {
    const int left = index_at(x);
    *out++ = byte(left << 4 | index_at(x + 1));
  }
  if (x < width) *out = byte(index_at(x) << 4);
}

}  // namespace tq::pixels
