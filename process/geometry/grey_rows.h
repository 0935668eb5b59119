// Rows of an image as what is averaged: levels of 1 bit and of grey palettes, else bytes in turn.
#pragma once

#include <algorithm>
#include <array>
#include <cstdlib>

#include "process/frame.h"

namespace tq::process {

// Levels of a grey palette, and the entry nearest to each level, the first of equal ones.
struct GreyTables {
  explicit GreyTables(std::span<const Rgb> palette) {
    for (int i = 0; i < 256; ++i) {
      const std::size_t entry = std::min<std::size_t>(i, palette.size() - 1);
      levels[i] = palette[entry].green;
      const auto distance = [i](Rgb c) { return std::abs(c.green - i); };
      index[i] = byte(std::ranges::min_element(palette, {}, distance) - palette.begin());
    }
  }
  std::array<std::uint8_t, 256> levels, index;
};

class GreyOrColourRows {
 public:
  explicit GreyOrColourRows(const ImageSource& image) : image_(image), rows_(image) {
    if (image.bits() == 4 || image.bits() == 8) levels_ = GreyTables(image.palette()).levels;
    if (image.bits() == 1) levels_[1] = 255;
  }
  Status allocate() {
    TQ_TRY(rows_.allocate());
    return channels() == 1 ? greys_.allocate(image_.width()) : kOk;
  }
  int channels() const { return image_.bits() >= 24 ? image_.bits() / 8 : 1; }

  Bytes read(int y) {
    const Bytes from = rows_.read(y);
    if (channels() > 1) return from.first(static_cast<std::size_t>(image_.width()) * channels());
    std::uint8_t* const out = greys_.data();
    pixels::for_each_index(from.data(), image_.bits(), image_.width(),
                           [&](int x, int index) { out[x] = levels_[index]; });
    return greys_.pixels();
  }

 private:
  const ImageSource& image_;
  StoredRows rows_;
  std::array<std::uint8_t, 256> levels_{};
  RowBuffer<std::uint8_t> greys_;
};

}  // namespace tq::process
