// Rows of an image as what is averaged: levels of 1 bit and of grey palettes, else bytes in turn; and
// back.
#pragma once

#include <algorithm>
#include <array>
#include <cstdlib>

#include "process/frame.h"

namespace tq::process {

// Levels of a grey palette, and the entry nearest to each level, the first of equal ones.
struct GreyTables {
  explicit GreyTables(std::span<const Rgb> palette) {
    if (palette.size() == 256) {
      bool is_ramp = true;
      for (int i = 0; i < 256 && is_ramp; ++i) is_ramp = palette[i].green == i;
      for (int i = 0; i < 256 && is_ramp; ++i) levels[i] = index[i] = byte(i);
      if (is_ramp) return;
    }
    for (int i = 0; i < 256; ++i) {
      const std::size_t entry = std::min<std::size_t>(i, palette.size() - 1);
      levels[i] = palette[entry].green;
      const auto distance = [i](Rgb c) { return std::abs(c.green - i); };
      index[i] = byte(std::ranges::min_element(palette, {}, distance) - palette.begin());
    }
  }
  std::array<std::uint8_t, 256> levels, index;
};

inline bool is_identity(const std::array<std::uint8_t, 256>& table) {
  for (int i = 0; i < 256; ++i) {
    if (table[i] != i) return false;
  }
  return true;
}

class GreyOrColourRows {
 public:
  // Upwards row 0 is the last one.
  explicit GreyOrColourRows(const ImageSource& image, bool upwards = false)
      : image_(image), rows_(image, upwards), upwards_(upwards) {
    if (image.bits() == 4 || image.bits() == 8) levels_ = GreyTables(image.palette()).levels;
    if (image.bits() == 1) levels_[1] = 255;
    bytes_are_levels_ = image.bits() >= 24 || (image.bits() == 8 && is_identity(levels_));
  }
  Status allocate() {
    TQ_TRY(rows_.allocate());
    return bytes_are_levels_ ? kOk : greys_.allocate(image_.width());
  }
  int channels() const { return image_.bits() >= 24 ? image_.bits() / 8 : 1; }
  // Whether rows are read where they lie, so that one stays when the next is read.
  bool in_place() const { return bytes_are_levels_; }

  Bytes read(int y) {
    const Bytes from = rows_.read(upwards_ ? image_.height() - 1 - y : y);
    if (bytes_are_levels_) return from.first(static_cast<std::size_t>(image_.width()) * channels());
    std::uint8_t* const out = greys_.data();
    pixels::for_each_index(from.data(), image_.bits(), image_.width(),
                           [&](int x, int index) { out[x] = levels_[index]; });
    return greys_.pixels();
  }

 private:
  const ImageSource& image_;
  StoredRows rows_;
  bool upwards_;
  std::array<std::uint8_t, 256> levels_{};
  bool bytes_are_levels_;
  RowBuffer<std::uint8_t> greys_;
};

// And back: levels, or channels in turn, as the pixels of a result.
class LevelsToRow {
 public:
  LevelsToRow(const ImageSource& image, int bits) : bits_(bits) {
    const bool has_palette = image.bits() == 4 || image.bits() == 8;
    index_ = GreyTables(has_palette ? image.palette() : pixels::grey_ramp()).index;
    levels_are_bytes_ = bits >= 24 || (bits == 8 && is_identity(index_));
  }
  // Whether they are the bytes of the row, so that they can be made in place.
  bool levels_are_bytes() const { return levels_are_bytes_; }

  void put(Bytes levels, Row row) const {
    const int width = static_cast<int>(levels.size());
    if (levels_are_bytes_) {
      copy_row(levels, row);
    } else if (bits_ == 8) {
      std::ranges::transform(levels, row.begin(), [this](std::uint8_t v) { return index_[v]; });
    } else if (bits_ == 4) {
      pixels::pack_nibbles(row.data(), width, [&](int x) { return index_[levels[x]]; });
    } else {
      for (int x = 0; x < width; ++x) {
        if (x % 8 == 0) row[x / 8] = 0;
        row[x / 8] |= byte((levels[x] >= 128 ? 0x80 : 0) >> x % 8);
      }
    }
  }

 private:
  int bits_;
  bool levels_are_bytes_;
  std::array<std::uint8_t, 256> index_{};
};

}  // namespace tq::process
