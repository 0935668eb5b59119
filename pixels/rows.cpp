// Rows of the library: colours, parts, nearest-neighbour scaling.
#include "pixels/rows.h"

#include <algorithm>
#include <cstring>

#include "pixels/colours.h"
#include "pixels/kernels.h"

namespace tq::pixels {
namespace {

int pixel_bit(Bytes row, int x) {
  return row[x / 8] >> (7 - x % 8) & 1;
}

int pixel_nibble(Bytes row, int x) {
  return x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15;
}

// A depth of its own kind has one byte a pixel.
constexpr int pixel_bytes(int bits) {
  return bits == 16 || bits == 24 || bits == 32 ? bits / 8 : 1;
}

template <int kBytes, class Source>
void gather_bytes(Bytes row, Row out, int count, Source&& source) {
  const std::uint8_t* const from = row.data();
  std::uint8_t* to = out.data();
  for (int i = 0; i < count; ++i, to += kBytes) {
    std::memcpy(to, from + std::ptrdiff_t{kBytes} * source(i), kBytes);
  }
}

// out pixel i = row pixel source(i), for i below `count`; `out` is clear.
template <class Source>
void gather(Bytes row, int bits, Row out, int count, Source&& source) {
  switch (bits) {
    case 1:
      for (int i = 0; i < count; ++i) out[i / 8] |= byte(pixel_bit(row, source(i)) << (7 - i % 8));
      return;
    case 4:
      return pack_nibbles(out.data(), count, [&](int i) { return pixel_nibble(row, source(i)); });
    default:
      break;
  }
  switch (pixel_bytes(bits)) {
    case 1:
      return gather_bytes<1>(row, out, count, source);
    case 2:
      return gather_bytes<2>(row, out, count, source);
    case 3:
      return gather_bytes<3>(row, out, count, source);
    default:
      return gather_bytes<4>(row, out, count, source);
  }
}

}  // namespace

void narrow_samples(Bytes stored, Row samples) {
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = from_16_bits(stored[2 * i] << 8 | stored[2 * i + 1]);
  }
}

void invert(Bytes from, Row to) {
  std::transform(from.begin(), from.end(), to.begin(), [](int all) { return byte(~all); });
}

void copy_bits(Bytes bits, int first, int width, Row out) {
  const Bytes from = bits.subspan(first / 8);
  const int shift = first & 7;
  const auto byte_at = [&](std::size_t i) {
    const int next = shift != 0 && i + 1 < from.size() ? from[i + 1] >> (8 - shift) : 0;
    return byte(from[i] << shift | next);
  };
  const int whole = width / 8;
  for (int i = 0; i < whole; ++i) out[i] = byte_at(i);
  if (const int rest = width & 7; rest != 0) {
    const int stay = 0xFF >> rest;
    out[whole] = byte((out[whole] & stay) | (byte_at(whole) & ~stay));
  }
}

void scale_row(Bytes row, int width, int bits, Row out, int out_width) {
  const std::int64_t step = (std::int64_t{width} << 16) / out_width;
  std::fill(out.begin(), out.end(), std::uint8_t{0});
  gather(row, bits, out, out_width, [&](int i) { return static_cast<int>(i * step >> 16); });
}

void cut_row(Bytes row, int width, int bits, int first, Row out, int out_width) {
  std::fill(out.begin(), out.end(), bits == 1 ? std::uint8_t{0xFF} : std::uint8_t{0});
  const int there = std::clamp(width - first, 0, out_width);
  if (there == 0) return;
  if (bits == 1) return copy_bits(row, first, there, out);
  const std::ptrdiff_t bytes = pixel_bytes(bits);
  if (bits != 4) {
    std::copy_n(row.data() + first * bytes, there * bytes, out.data());
    return;
  }
  gather(row, bits, out, there, [&](int i) { return first + i; });
}

void inks_to_colours(Bytes inks, int width, Row colours) {
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    const int light = 255 - inks[4 * x + 3];
    for (int i = 0; i < 3; ++i) {
      colours[3 * x + 2 - i] = byte(((255 - inks[4 * x + i]) * light + 127) / 255);
    }
  }
}

void row_to_colours(Bytes row, const RowFormat& format, std::span<Rgb> colours) {
  const std::uint8_t* from = row.data();
  Rgb* const out = colours.data();
  switch (format.bits) {
    case 1:
    case 4:
    case 8:
    case 16:
      return for_each_index(from, format.bits, format.width,
                            [&](int x, int index) { out[x] = format.palette[index]; });
    case 24:
      return kernels().widen_24(from, out, format.width);
    case 32:
      for (int x = 0; format.cmyk && x < format.width; ++x) out[x] = colour_of_cmyk(from + 4 * x);
      for (int x = 0; !format.cmyk && x < format.width; ++x, from += 4) {
        out[x] = {from[0], from[1], from[2], 0};
      }
      return;
    default:
      std::fill_n(out, format.width, Rgb{});
  }
}

}  // namespace tq::pixels
