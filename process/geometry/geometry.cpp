// Colours of what comes in from outside, bits at any place of a row, and the record of an image whose
// pixels have moved.
#include "process/geometry/geometry.h"

#include <algorithm>
#include <utility>

namespace tq::process {
namespace {

// Of equal ones the first.
int nearest_to_white(std::span<const Rgb> palette) {
  const auto distance = [](Rgb c) {
    const int blue = 255 - c.blue, green = 255 - c.green, red = 255 - c.red;
    return blue * blue + green * green + red * red;
  };
  return static_cast<int>(std::ranges::min_element(palette, {}, distance) - palette.begin());
}

// Dots per inch of a side that has other pixels now; what is unknown stays so.
std::int32_t scaled(std::int64_t dots, std::int32_t now, std::int32_t before) {
  if (dots <= 0) return static_cast<std::int32_t>(dots);
  const std::int64_t rounded = (2 * dots * now / before + 1) / 2;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(rounded, 1, INT32_MAX));
}

std::int32_t scaled_exactly(std::int64_t thousandths, std::int32_t now, std::int32_t before) {
  const std::int32_t exact = scaled(thousandths, now, before);
  return exact <= Resolution::kMost ? exact : 0;
}

}  // namespace

bool is_grey(std::span<const Rgb> palette) {
  return std::ranges::all_of(palette, [](Rgb c) { return c.blue == c.green && c.green == c.red; });
}

Status choose_pixel(const ImageSource& image, std::int32_t colour, Pixel& pixel) {
  const int bits = image.bits();
  const bool inks = bits == 32 && image.header().biCompression == 0;
  if (bits >= 24) {
    if (colour == kPaper) colour = 0xFFFFFF;
    if (colour < 0 || colour > 0xFFFFFF) return StatusCode::unsupported;
    pixel = {byte(colour >> 16), byte(colour >> 8), byte(colour), 0};
    if (inks) pixel = {byte(255 - pixel[2]), byte(255 - pixel[1]), byte(255 - pixel[0]), 0};
    return kOk;
  }
  const std::int32_t most = (1 << bits) - 1;
  if (colour == kPaper) {
    colour = bits == 1 || bits == 16 ? most : nearest_to_white(image.palette());
  }
  if (colour < 0 || colour > most) return StatusCode::unsupported;
  pixel = {byte(colour), byte(colour >> 8), 0, 0};
  return kOk;
}

void fill_row(Row row, int bits, const Pixel& pixel) {
  if (bits <= 8) {
    const int pattern = bits == 1 ? pixel[0] * 255 : bits == 4 ? pixel[0] * 17 : pixel[0];
    std::ranges::fill(row, byte(pattern));
    return;
  }
  const std::size_t bytes = bits / 8;
  for (std::size_t i = 0; i < row.size(); ++i) row[i] = pixel[i % bytes];
}

void clear_padding(Row row, std::int64_t width, int bits) {
  const std::int64_t used = width * bits;
  const auto whole = static_cast<std::size_t>((used + 7) / 8);
  if (used % 8 != 0) row[whole - 1] &= byte(0xFF00 >> used % 8);
  std::fill(row.begin() + static_cast<std::ptrdiff_t>(whole), row.end(), std::uint8_t{0});
}

void place_bits(Bytes from, std::int64_t first, std::int64_t count, Row to, std::int64_t at) {
  if (count <= 0) return;
  const std::int64_t last = at + count - 1, size = std::ssize(from);
  // Byte i of `to` has its first bit from bit 8 * i + offset.
  const std::int64_t offset = first - at;
  const int shift = static_cast<int>(offset & 7);
  const std::int64_t skip = (offset - shift) / 8;
  const auto taken = [&](std::int64_t i) {
    const std::int64_t k = i + skip;
    const int high = k >= 0 && k < size ? from[static_cast<std::size_t>(k)] : 0;
    const int low = k + 1 >= 0 && k + 1 < size ? from[static_cast<std::size_t>(k + 1)] : 0;
    return high << shift | low >> (8 - shift);
  };
  const auto put = [&](std::int64_t i, int mask) {
    std::uint8_t& place = to[static_cast<std::size_t>(i)];
    place = byte((place & ~mask) | (taken(i) & mask));
  };
  const int head = 0xFF >> at % 8, tail = 0xFF00 >> (last % 8 + 1) & 0xFF;
  if (at / 8 == last / 8) return put(at / 8, head & tail);
  put(at / 8, head);
  const std::int64_t begin = at / 8 + 1, end = last / 8;
  if (shift == 0 && begin < end) {
    std::memcpy(&to[static_cast<std::size_t>(begin)], &from[static_cast<std::size_t>(begin + skip)],
                static_cast<std::size_t>(end - begin));
  } else {
    const std::uint8_t* const in = from.data() + skip;
    std::uint8_t* const out = to.data();
    for (std::int64_t i = begin; i < end; ++i)
      out[i] = byte(in[i] << shift | in[i + 1] >> (8 - shift));
  }
  put(end, tail);
}

void note_moved_pixels(ImageRecord& image, bool sides_swapped) {
  image.crop = {0, 0, image.width, image.height};
  if (!sides_swapped) return;
  BitmapInfoHeader header = header_of(image);
  std::swap(header.biXPelsPerMeter, header.biYPelsPerMeter);
  set_header(image, header);
  ExactResolution& known = image.resolution;
  std::swap(known.exact.x, known.exact.y);
  std::swap(known.x_dots, known.y_dots);
}

void note_new_sides(ImageRecord& image, Size before) {
  const Resolution exact = resolution_of(image);
  BitmapInfoHeader header = header_of(image);
  header.biXPelsPerMeter = scaled(header.biXPelsPerMeter, image.width, before.width);
  header.biYPelsPerMeter = scaled(header.biYPelsPerMeter, image.height, before.height);
  set_header(image, header);
  remember_resolution(image, {scaled_exactly(exact.x, image.width, before.width),
                              scaled_exactly(exact.y, image.height, before.height)});
  note_moved_pixels(image, false);
}

}  // namespace tq::process
