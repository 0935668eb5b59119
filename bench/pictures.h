// A photograph of 12 megapixels and an A4 page of 300 dots per inch, drawn, as packed DIBs.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/dib.h"

namespace tq::bench {

using Bytes = std::vector<std::uint8_t>;

struct Picture {
  int width, height, bits;
  Bytes dib;
  double pixels() const { return double(width) * height; }
  std::uint8_t* row(int y) {
    const auto stride = static_cast<std::size_t>(tq::row_bytes(width, bits));
    return dib.data() + 40 + tq::palette_bytes(bits) +
           static_cast<std::size_t>(height - 1 - y) * stride;
  }
};

inline Picture empty_picture(int width, int height, int bits) {
  tq::HeaderBlock block = tq::dib_header(width, height, bits);
  const int entries = bits == 1 ? 2 : 256;
  for (int i = 0; i < entries; ++i) {
    const auto v = static_cast<std::uint8_t>(i * 255 / (entries - 1));
    block.palette[i] = {v, v, v, 0};
  }
  Picture picture{width, height, bits, Bytes(tq::dib_bytes(width, height, bits))};
  std::memcpy(picture.dib.data(), &block, 40 + static_cast<std::size_t>(tq::palette_bytes(bits)));
  return picture;
}

// Noise in octaves, as clouds and surfaces have it, plus a little of the sensor's.
inline Picture make_photo(int bits) {
  constexpr int kWidth = 4000, kHeight = 3000;
  Picture picture = empty_picture(kWidth, kHeight, bits);
  std::uint32_t state = 1;
  const auto random = [&] {
    state = state * 1664525 + 1013904223;
    return static_cast<int>(state >> 24);
  };
  std::uint8_t lattice[3][256];
  for (auto& channel : lattice) {
    for (auto& value : channel) value = static_cast<std::uint8_t>(random());
  }
  const auto smooth = [&](const std::uint8_t* values, int x, int y, int shift) {
    const auto at = [&](int i, int j) { return int(values[(i * 57 + j * 131) & 255]); };
    const int size = 1 << shift, i = x >> shift, j = y >> shift;
    const int fx = x & (size - 1), fy = y & (size - 1);
    const int top = at(i, j) * (size - fx) + at(i + 1, j) * fx;
    const int bottom = at(i, j + 1) * (size - fx) + at(i + 1, j + 1) * fx;
    return (top * (size - fy) + bottom * fy) >> (2 * shift);
  };
  for (int y = 0; y < kHeight; ++y) {
    std::uint8_t* row = picture.row(y);
    for (int x = 0; x < kWidth; ++x) {
      const int light = smooth(lattice[0], x, y, 9);
      for (int c = 0; c < bits / 8; ++c) {
        const int hue = smooth(lattice[c % 3], x + 977 * c, y, 10);
        const int detail = smooth(lattice[2 - c % 3], x, y, 4);
        const int value = (light * 3 + hue * 3 + detail * 2) / 8 + (random() & 7) - 4;
        row[x * (bits / 8) + c] = static_cast<std::uint8_t>(std::clamp(value, 0, 255));
      }
    }
  }
  return picture;
}

// Lines of dark marks on white.
inline Picture make_page(int bits) {
  constexpr int kWidth = 2480, kHeight = 3508;
  Picture picture = empty_picture(kWidth, kHeight, bits);
  for (int y = 0; y < kHeight; ++y) {
    std::uint8_t* row = picture.row(y);
    const bool in_line = y > 250 && y < 3250 && y % 60 < 30;
    for (int x = 0; x < kWidth * bits / 8; ++x) {
      const int at = x * 8 / bits;
      const bool in_text = in_line && at > 250 && at < 2230;
      const bool ink = in_text && (at / 5 * 7919 + y / 5 * 104729) % 11 < 4;
      row[x] = ink ? 25 : 250;
    }
  }
  return picture;
}

inline Picture& photo(int bits) {
  static Picture deep = make_photo(24), grey = make_photo(8);
  return bits == 24 ? deep : grey;
}
inline Picture& page(int bits) {
  static Picture deep = make_page(24), grey = make_page(8);
  return bits == 24 ? deep : grey;
}

// The same page in black and white.
inline Picture make_mono_page() {
  Picture grey = make_page(8), picture = empty_picture(grey.width, grey.height, 1);
  for (int y = 0; y < grey.height; ++y) {
    std::uint8_t* row = picture.row(y);
    for (int x = 0; x < grey.width; ++x) {
      if (grey.row(y)[x] > 128) row[x / 8] |= static_cast<std::uint8_t>(0x80 >> x % 8);
    }
  }
  return picture;
}

}  // namespace tq::bench
