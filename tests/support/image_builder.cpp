#include "tests/support/image_builder.h"

#include <gmock/gmock.h>

#include <cstring>

namespace tq::test {
namespace {

// Bits that a pixel takes.
int pixel_bits(int bits) {
  const bool known = bits == 1 || bits == 4 || bits == 16 || bits == 24 || bits == 32;
  return known ? bits : 8;
}

}  // namespace

std::size_t stride(std::int64_t width, int bits) {
  return static_cast<std::size_t>((width * pixel_bits(bits) + 31) / 32 * 4);
}

Bytes pack(const Pixels& pixels, int bits, std::uint8_t filler) {
  const int size = pixel_bits(bits);
  Bytes row(stride(static_cast<std::int64_t>(pixels.size()), bits), filler);
  std::size_t at = 0;  // bits
  for (const std::uint32_t pixel : pixels) {
    // Below a byte the left pixel is the upper one, above it the low byte comes first.
    for (int bit = 0; bit < size; ++bit, ++at) {
      const int from = size < 8 ? size - 1 - bit : bit / 8 * 8 + 7 - bit % 8;
      const auto mask = static_cast<std::uint8_t>(0x80 >> (at % 8));
      row[at / 8] =
          static_cast<std::uint8_t>((row[at / 8] & ~mask) | ((pixel >> from & 1) != 0 ? mask : 0));
    }
  }
  return row;
}

Pixels unpack(const Bytes& row, std::int32_t width, int bits) {
  const int size = pixel_bits(bits);
  Pixels pixels(static_cast<std::size_t>(width));
  for (std::size_t x = 0; x < pixels.size(); ++x) {
    const std::size_t at = x * static_cast<std::size_t>(size);
    if (size < 8) {
      pixels[x] = row.at(at / 8) >> (8 - size - at % 8) & ((1u << size) - 1);
      continue;
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(size) / 8; ++i) {
      pixels[x] |= static_cast<std::uint32_t>(row.at(at / 8 + i)) << 8 * i;
    }
  }
  return pixels;
}

HeaderBlock header_block(std::int32_t width, std::int32_t height, int bits) {
  HeaderBlock block;
  block.header.biSize = 40;
  block.header.biWidth = width;
  block.header.biHeight = height;
  block.header.biPlanes = 1;
  block.header.biBitCount = static_cast<std::uint16_t>(bits);
  return block;
}

Image make_image(std::int32_t width, int bits, const Rows& rows, bool in_runs) {
  const HeaderBlock header = header_block(width, static_cast<std::int32_t>(rows.size()), bits);
  Image image(IMG_create_handle_shell(&header));
  EXPECT_GE(image, 0);
  if (in_runs) {
    EXPECT_EQ(IMG_dib_to_runs(image), 0);
  }
  for (std::size_t y = 0; y < rows.size(); ++y) {
    EXPECT_EQ(IMGLOW_put_raster(image, rows[y].data(), static_cast<std::int32_t>(y), 0), 0);
  }
  return image;
}

BitmapInfoHeader header_of_image(std::int32_t image) {
  std::uint8_t bytes[1064];
  BitmapInfoHeader header{};
  EXPECT_EQ(IMGLOW_get_bitmap_header(image, bytes), 0);
  std::memcpy(&header, bytes, sizeof header);
  return header;
}

Rows rows_of_image(std::int32_t image) {
  const BitmapInfoHeader header = header_of_image(image);
  Rows rows(static_cast<std::size_t>(header.biHeight),
            Bytes(stride(header.biWidth, header.biBitCount)));
  for (std::size_t y = 0; y < rows.size(); ++y) {
    EXPECT_EQ(IMGLOW_get_raster(image, rows[y].data(), static_cast<std::int32_t>(y), 0), 0);
  }
  return rows;
}

Bytes Random::bytes(std::size_t count) {
  Bytes bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(engine_());
  return bytes;
}

Pixels Random::pixels(std::int32_t width, int bits) {
  return unpack(bytes(stride(width, bits)), width, bits);
}

Bytes Random::bit_row(std::int32_t width, int percent) {
  Bytes row = bytes(stride(width, 1));
  bool white = true;
  for (std::int32_t x = 0; x < width; ++x) {
    white = white != chance(percent);
    const auto mask = static_cast<std::uint8_t>(0x80 >> (x % 8));
    std::uint8_t& byte = row[static_cast<std::size_t>(x / 8)];
    byte = static_cast<std::uint8_t>((byte & ~mask) | (white ? mask : 0));
  }
  return row;
}

}  // namespace tq::test
