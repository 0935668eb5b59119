// What an image of the library must look like, kept beside it and compared with it.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "core/dib.h"
#include "fuzz/fuzz_support.h"
#include "include/tarnquill.h"

namespace tq::fuzz {

using Bytes = std::span<const std::uint8_t>;

// Rows from the top, each padded to a multiple of 4 bytes; the padding is 0.
struct Picture {
  std::int32_t width = 0, height = 0, bits = 0;
  std::vector<std::uint8_t> rows{}, palette{};

  std::size_t row_bytes() const { return static_cast<std::size_t>(tq::row_bytes(width, bits)); }
  std::size_t palette_bytes() const { return static_cast<std::size_t>(tq::palette_bytes(bits)); }
  std::uint8_t* row(std::int32_t y) { return &rows[row_bytes() * static_cast<std::size_t>(y)]; }
  const std::uint8_t* row(std::int32_t y) const {
    return &rows[row_bytes() * static_cast<std::size_t>(y)];
  }

  void clear_padding() {
    // Depths without a rule take a byte per pixel.
    const int stored_bits = bits == 1 || bits == 4 || bits >= 16 ? bits : 8;
    const std::int64_t used = std::int64_t{width} * stored_bits;
    for (std::int32_t y = 0; y < height; ++y) {
      for (std::int64_t at = used / 8; at < static_cast<std::int64_t>(row_bytes()); ++at) {
        row(y)[at] = at == used / 8 ? static_cast<std::uint8_t>(row(y)[at] & 0xFF00 >> used % 8)
                                    : std::uint8_t{0};
      }
    }
  }
  void normalise_mono_palette() {
    if (bits != 1 || palette[0] == 0 || palette[1] == 0 || palette[2] == 0) return;
    palette = {0, 0, 0, 0, 255, 255, 255, 0};
  }
  friend bool operator==(const Picture&, const Picture&) = default;
};

// Pixels and a palette that look random.
inline Picture make_picture(std::int32_t width, std::int32_t height, std::int32_t bits,
                            std::uint32_t seed) {
  Picture picture{.width = width, .height = height, .bits = bits};
  picture.rows.resize(picture.row_bytes() * static_cast<std::size_t>(height));
  picture.palette.resize(picture.palette_bytes());
  const auto next = [&] {
    return static_cast<std::uint8_t>((seed = seed * 1664525 + 1013904223) >> 24);
  };
  // A few seeds give white pictures and long runs.
  const int longest = seed % 5 == 0 ? 50 : 3;
  for (std::size_t i = 0; i < picture.rows.size();) {
    const std::uint8_t value = seed % 11 == 0 ? std::uint8_t{0xFF} : next();
    for (int run = next() % longest; run >= 0 && i < picture.rows.size(); --run)
      picture.rows[i++] = value;
  }
  for (std::uint8_t& byte : picture.palette) byte = next();
  picture.clear_padding();
  return picture;
}

inline void put16(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
  bytes.push_back(static_cast<std::uint8_t>(value));
  bytes.push_back(static_cast<std::uint8_t>(value >> 8));
}
inline void put32(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
  put16(bytes, value);
  put16(bytes, value >> 16);
}

inline std::vector<std::uint8_t> header_bytes(const Picture& picture) {
  std::vector<std::uint8_t> bytes;
  put32(bytes, 40);
  put32(bytes, static_cast<std::uint32_t>(picture.width));
  put32(bytes, static_cast<std::uint32_t>(picture.height));
  put16(bytes, 1);
  put16(bytes, static_cast<std::uint32_t>(picture.bits));
  for (int i = 0; i < 6; ++i) put32(bytes, 0);
  bytes.insert(bytes.end(), picture.palette.begin(), picture.palette.end());
  return bytes;
}

// Header, palette, rows from the bottom.
inline std::vector<std::uint8_t> packed_dib(const Picture& picture) {
  std::vector<std::uint8_t> bytes = header_bytes(picture);
  for (std::int32_t y = picture.height - 1; y >= 0; --y) {
    bytes.insert(bytes.end(), picture.row(y), picture.row(y) + picture.row_bytes());
  }
  return bytes;
}

inline std::vector<std::uint8_t> bmp_file(const Picture& picture) {
  const std::vector<std::uint8_t> dib = packed_dib(picture);
  std::vector<std::uint8_t> bytes = {'B', 'M'};
  put32(bytes, static_cast<std::uint32_t>(14 + dib.size()));
  put32(bytes, 0);
  put32(bytes, static_cast<std::uint32_t>(54 + picture.palette.size()));
  bytes.insert(bytes.end(), dib.begin(), dib.end());
  return bytes;
}

struct Crop {
  std::int32_t x = 0, y = 0, width = 0, height = 0;
  friend bool operator==(const Crop&, const Crop&) = default;
};

struct ImageModel {
  std::int32_t handle = -1;
  std::uint64_t serial = 0;  // of the model, as handles come back
  bool has_pixels = true;    // false after a registration that failed
  bool in_runs = false;
  Picture picture;
  Crop crop;
  std::optional<std::int32_t> transparent{};
};

// Reads an image back, whatever it is.
inline Picture read_picture(std::int32_t handle) {
  Picture picture;
  const std::intptr_t address =
      IMG_bitmap_info(handle, &picture.width, &picture.height, &picture.bits);
  TQ_CLAIM(address != IMG_BAD_HANDLE && address != IMG_OUT_OF_MEMORY);
  picture.rows.resize(picture.row_bytes() * static_cast<std::size_t>(picture.height));
  for (std::int32_t y = 0; y < picture.height; ++y) {
    const ExactBytes row(picture.row_bytes());
    TQ_CLAIM(IMGLOW_get_raster(handle, row.data(), y, 0) == 0);
    std::copy_n(row.data(), row.size(), picture.row(y));
  }
  picture.clear_padding();
  const ExactBytes palette(picture.palette_bytes());
  TQ_CLAIM(IMGLOW_get_palette(handle, palette.data()) == 0);
  picture.palette.assign(palette.data(), palette.data() + palette.size());
  return picture;
}

inline bool shown_in_runs(std::int32_t handle) {
  std::array<std::uint8_t, IMG_HEADER_BLOCK_BYTES> header{};
  TQ_CLAIM(IMGLOW_get_bitmap_header(handle, header.data()) == 0);
  return header[16] == kInRuns;
}

inline void verify(const ImageModel& model) {
  Crop crop;
  TQ_CLAIM(IMG_get_croprect(model.handle, &crop.x, &crop.y, &crop.width, &crop.height) == 0);
  TQ_CLAIM(crop == model.crop);
  const std::int32_t index = IMGLOW_get_transp_color(model.handle);
  TQ_CLAIM(index == (model.transparent ? *model.transparent & 255 : IMG_NO_TRANSPARENCY));
  if (!model.has_pixels) {
    TQ_CLAIM(IMG_bitmap_info(model.handle, nullptr, nullptr, nullptr) == IMG_OUT_OF_MEMORY);
    return;
  }
  TQ_CLAIM(read_picture(model.handle) == model.picture);
  TQ_CLAIM(shown_in_runs(model.handle) == model.in_runs);
}

// How many pixels of a saved row are the image's own: a crop rectangle that starts inside a byte of
// plain pixels starts at the next one.
inline std::int32_t first_saved_pixel(const ImageModel& model) {
  const std::int32_t x = model.crop.x;
  if (model.in_runs && model.crop.width != model.picture.width) return x;
  if (model.picture.bits == 1) return (x + 7) / 8 * 8;
  if (model.picture.bits == 4) return (x + 1) / 2 * 2;
  return x;
}

inline int pixel_at(const std::uint8_t* row, std::int32_t x, int bits) {
  if (bits == 1) return row[x / 8] >> (7 - x % 8) & 1;
  if (bits == 4) return x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15;
  int value = 0;
  const int bytes = bits < 16 ? 1 : bits / 8;
  for (int i = 0; i < bytes; ++i) value = value << 7 ^ row[x * bytes + i];
  return value;
}

// A saved DIB (without its file header) must show the crop rectangle.
inline void check_saved(const ImageModel& model, Bytes dib) {
  const Picture& picture = model.picture;
  Picture saved{.width = model.crop.width, .height = model.crop.height, .bits = picture.bits};
  TQ_CLAIM(dib.size() ==
           40 + saved.palette_bytes() + saved.row_bytes() * static_cast<std::size_t>(saved.height));
  BitmapInfoHeader header;
  std::memcpy(&header, dib.data(), sizeof header);
  TQ_CLAIM(header.biSize == 40 && header.biWidth == saved.width &&
           header.biHeight == saved.height && header.biBitCount == saved.bits &&
           header.biCompression == 0);
  const std::uint8_t* palette = dib.data() + 40;
  TQ_CLAIM(std::equal(picture.palette.begin(), picture.palette.end(), palette));
  const std::uint8_t* pixels = palette + saved.palette_bytes();
  const std::int32_t first = first_saved_pixel(model);
  const std::int32_t count = std::min(saved.width, picture.width - first);
  for (std::int32_t y = 0; y < saved.height; ++y) {
    const std::uint8_t* row =
        pixels + saved.row_bytes() * static_cast<std::size_t>(saved.height - 1 - y);
    const std::uint8_t* source = picture.row(model.crop.y + y);
    for (std::int32_t x = 0; x < count; ++x) {
      TQ_CLAIM(pixel_at(row, x, saved.bits) == pixel_at(source, first + x, saved.bits));
    }
  }
}

}  // namespace tq::fuzz
