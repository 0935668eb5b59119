// Images and options that a sweep works with, and proof that failures left them as they were.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "core/dib.h"
#include "include/tarnquill.h"
#include "tests/support/bmp_file.h"

namespace tq::test {

// All that may be switched on, but for what turns damage and large pictures away.
class OptionsOn {
 public:
  explicit OptionsOn(bool on = true) {
    if (on) set(1);
  }
  ~OptionsOn() { set(0); }
  OptionsOn(const OptionsOn&) = delete;
  OptionsOn& operator=(const OptionsOn&) = delete;

 private:
  static void set(std::int32_t value) {
    for (std::int32_t option = 1; option < 64; ++option) {
      const bool refuses = option == IMG_OPTION_STRICT ||
                           (option >= IMG_OPTION_MAX_PIXELS && option <= IMG_OPTION_MAX_SCANS);
      if (!refuses) IMG_set_option(option, value);
    }
  }
};

// Rows that differ from each other, with runs and without.
inline Bytes pattern(std::size_t bytes) {
  Bytes pattern(bytes);
  for (std::size_t i = 0; i < bytes; ++i) {
    pattern[i] = static_cast<std::uint8_t>(i % 11 < 6 ? 0x33 : i * 37);
  }
  return pattern;
}

// An uncompressed file of `bits` bits, black and white or grey below 16.
inline Bytes plain_file(std::int32_t width, std::int32_t height, int bits) {
  BmpFields fields{.width = width, .height = height, .bits = bits};
  if (bits <= 8) fields.palette = grey_palette(1 << bits);
  fields.pixels = pattern(static_cast<std::size_t>(row_bytes(width, bits) * height));
  return bmp_file(fields);
}

inline std::int32_t load(const Bytes& file) {
  return IMG_decompress_bitmap_block(file.data(), file.size(), 0);
}

// The picture of a BMP file in another format.
inline Bytes saved(const Bytes& file, std::int32_t code) {
  Bytes block(9000);
  const std::int32_t image = load(file);
  const std::int32_t size = IMG_save_bitmap_block(image, block.data(), block.size(), code);
  EXPECT_GT(size, 0);
  EXPECT_EQ(IMG_delete_bitmap(image), IMG_OK);
  block.resize(static_cast<std::size_t>(std::max(size, 0)));
  return block;
}

// All that the interface shows of an image.
struct Seen {
  std::array<std::uint8_t, IMG_HEADER_BLOCK_BYTES> header{};
  std::array<std::int32_t, 4> crop{};
  std::int32_t transparent = 0;
  std::vector<Bytes> rows = {};
  friend bool operator==(const Seen&, const Seen&) = default;
};

inline Seen see(std::int32_t image) {
  Seen seen;
  EXPECT_EQ(IMGLOW_get_bitmap_header(image, seen.header.data()), IMG_OK);
  auto& crop = seen.crop;
  EXPECT_EQ(IMG_get_croprect(image, &crop[0], &crop[1], &crop[2], &crop[3]), IMG_OK);
  seen.transparent = IMGLOW_get_transp_color(image);
  std::int32_t width = 0, height = 0, bits = 0;
  IMG_bitmap_info(image, &width, &height, &bits);
  for (std::int32_t y = 0; y < height; ++y) {
    seen.rows.emplace_back(static_cast<std::size_t>(row_bytes(width, bits)));
    EXPECT_EQ(IMGLOW_get_raster(image, seen.rows.back().data(), y, 0), IMG_OK);
  }
  return seen;
}

// One image in run lists, one of 1 bit in plain pixels, one of 24 bits.
class WatchedImages {
 public:
  static constexpr std::int32_t kRuns = 0, kPlain = 1, kDeep = 2, kCount = 3;

  WatchedImages() {
    EXPECT_EQ(load(plain_file(70, 5, 1)), kRuns);
    // Large enough for its run lists to outgrow their first block.
    EXPECT_EQ(load(plain_file(600, 300, 1)), kPlain);
    EXPECT_EQ(IMG_runs_to_dib(kPlain), IMG_OK);
    IMG_set_croprect(kPlain, 8, 1, 64, 5);
    EXPECT_EQ(load(plain_file(9, 4, 24)), kDeep);
    IMG_set_croprect(kDeep, 1, 1, 5, 2);
    IMGLOW_set_transp_color(kDeep, 200);
  }
  WatchedImages(const WatchedImages&) = delete;
  WatchedImages& operator=(const WatchedImages&) = delete;
  ~WatchedImages() {
    for (std::int32_t image = 0; image < kCount + 8; ++image) IMG_delete_bitmap(image);
  }

  std::vector<Seen> see_all() const {
    std::vector<Seen> all;
    all.reserve(kCount);
    for (std::int32_t image = 0; image < kCount; ++image) all.push_back(see(image));
    return all;
  }
};

}  // namespace tq::test
