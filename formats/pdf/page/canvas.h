// White paper of 1, 8 or 24 bits, of which only what is painted on takes memory.
#pragma once

#include "core/dib.h"
#include "pixels/rows.h"

namespace tq::pdf::page {

class Canvas {
 public:
  Canvas() = default;
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;
  ~Canvas();

  Status allocate(std::int32_t width, std::int32_t height, int bits);
  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  int bits() const { return bits_; }

  // To paint on. out_of_memory.
  Status touch(std::int32_t y, pixels::Row& row);
  // To look at, once, from the top: what is above is forgotten.
  pixels::Bytes take(std::int32_t y);

 private:
  std::uint8_t*& band_of(std::int32_t y) { return bands_[y / band_rows_]; }

  std::int32_t width_ = 0, height_ = 0;
  int bits_ = 0;
  std::ptrdiff_t stride_ = 0;
  std::int32_t band_rows_ = 1;
  RowBuffer<std::uint8_t*> bands_;  // null: white
  RowBuffer<std::uint8_t> white_;
};

}  // namespace tq::pdf::page
