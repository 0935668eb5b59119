#include "tests/support/image_builder.h"

#include <gtest/gtest.h>

namespace tq::test {
std::size_t stride(std::int64_t width, int bits) {
  return static_cast<std::size_t>(row_bytes(width, bits));
}

Bytes pack(const Pixels& pixels, int bits, std::uint8_t filler) {
  Bytes row(stride(static_cast<std::int64_t>(pixels.size()), bits), filler);
  const std::size_t bytes = bits > 8 ? static_cast<std::size_t>(bits) / 8 : 1;  // of a pixel
  for (std::size_t x = 0; x < pixels.size(); ++x) {
    if (bits == 1 || bits == 4) {
      const std::size_t at = x * static_cast<std::size_t>(bits), shift = 8 - bits - at % 8;
      const std::uint32_t kept = row[at / 8] & ~(((1u << bits) - 1) << shift);
      row[at / 8] = static_cast<std::uint8_t>(kept | pixels[x] << shift);
      continue;
    }
    for (std::size_t i = 0; i < bytes; ++i) {
      row[x * bytes + i] = static_cast<std::uint8_t>(pixels[x] >> 8 * i);
    }
  }
  return row;
}

Pixels unpack(const Bytes& row, std::int32_t width, int bits) {
  Pixels pixels(static_cast<std::size_t>(width));
  const std::size_t bytes = bits > 8 ? static_cast<std::size_t>(bits) / 8 : 1;  // of a pixel
  for (std::size_t x = 0; x < pixels.size(); ++x) {
    if (bits == 1 || bits == 4) {
      const std::size_t at = x * static_cast<std::size_t>(bits);
      pixels[x] = row.at(at / 8) >> (8 - bits - at % 8) & ((1u << bits) - 1);
      continue;
    }
    for (std::size_t i = 0; i < bytes; ++i)
      pixels[x] |= std::uint32_t{row.at(x * bytes + i)} << 8 * i;
  }
  return pixels;
}

Image make_image(std::int32_t width, int bits, const Rows& rows, bool in_runs) {
  const HeaderBlock header = dib_header(width, static_cast<std::int32_t>(rows.size()), bits);
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
  HeaderBlock block{};
  EXPECT_EQ(IMGLOW_get_bitmap_header(image, &block), 0);
  return block.header;
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
