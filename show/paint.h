// Rows of a picture onto a caller's pixels: tone, format, what shows through, raster operation.
#pragma once

#include <array>

#include "core/memory.h"
#include "core/numbers.h"
#include "show/reduce_rows.h"

namespace tq::show {

// Pixels of a window, in one of the formats of the interface.
struct Canvas {
  std::uint8_t* pixels = nullptr;  // of row `first_row`, column 0
  std::intptr_t stride = 0;        // bytes
  std::int32_t first_row = 0, rows = 0;
  std::int32_t format = IMG_PIXELS_BGRX;

  int pixel_bytes() const { return format / 8; }
};

// Whether a raster operation asks for no pattern: what it makes of bits of a picture and of what is
// there can be done in memory.
bool can_operate(std::int32_t raster_operation);
inline constexpr std::int32_t kCopy = 0x00CC0020;

// How a picture gets onto a canvas.
struct Paint {
  std::array<std::uint8_t, 256> tone{};
  bool has_tone = false;        // else the table is not looked at
  bool has_background = false;  // else what is there shows through
  std::uint32_t background = 0;
  std::int32_t raster_operation = kCopy;
};

class Painter {
 public:
  Painter(const Canvas& canvas, const Paint& paint);
  Status open(std::int32_t most_pixels);

  // The background outside of a rectangle of the window, all of it for an empty one.
  void surround(std::int32_t width, const Rect& picture);

  // A row from a place on, each of its pixels `step` bytes behind the one before.
  void put(const ShownRow& row, std::int32_t count, std::uint8_t* at, std::ptrdiff_t step);

 private:
  void make_pixels(const ShownRow& row, std::int32_t count, std::uint8_t* out) const;
  template <bool kTone>
  void make_pixels(const ShownRow& row, std::int32_t count, std::uint8_t* out) const;
  void blend(const std::uint8_t* pixel, int share, std::uint8_t* at) const;
  void fill(std::uint8_t* at, std::int32_t count) const;

  Canvas canvas_;
  Paint paint_;
  std::array<std::uint8_t, 4> background_{};  // in the canvas' format
  Kernels kernels_ = kernels();
  RowBuffer<std::uint8_t> made_;
};

}  // namespace tq::show
