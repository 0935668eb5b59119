// The last steps of every pixel.
#include "show/paint.h"

#include <algorithm>

namespace tq::show {
namespace {

constexpr std::uint8_t grey_of(int blue, int green, int red) {
  return byte((77 * red + 151 * green + 28 * blue + 128) >> 8);
}

// The table of an operation without its half that is for another pattern.
constexpr int table_of(std::int32_t raster_operation) {
  return raster_operation >> 16 & 0xFF;
}

// Bit 2 S + D of the table is the result for the bits S and D.
constexpr std::uint8_t operate(int table, int source, int there) {
  const auto where = [table](int bit, int bits) { return (table >> bit & 1) != 0 ? bits : 0; };
  return byte(where(0, ~source & ~there) | where(1, ~source & there) | where(2, source & ~there) |
              where(3, source & there));
}

}  // namespace

bool can_operate(std::int32_t raster_operation) {
  const int table = table_of(raster_operation);
  return (table >> 4) == (table & 15);
}

Painter::Painter(const Canvas& canvas, const Paint& paint) : canvas_(canvas), paint_(paint) {
  const int red = paint.background & 0xFF, green = paint.background >> 8 & 0xFF,
            blue = paint.background >> 16 & 0xFF;
  if (canvas.format == IMG_PIXELS_GREY) {
    background_[0] = grey_of(blue, green, red);
  } else {
    background_ = {byte(blue), byte(green), byte(red), 255};
  }
}

Status Painter::open(std::int32_t most_pixels) {
  return made_.allocate(std::int64_t{most_pixels} * canvas_.pixel_bytes());
}

void Painter::fill(std::uint8_t* at, std::int32_t count) const {
  const int bytes = canvas_.pixel_bytes();
  if (bytes == 1) {
    if (count > 0) std::memset(at, background_[0], count);
    return;
  }
  for (std::int32_t i = 0; i < count; ++i, at += bytes) std::memcpy(at, background_.data(), bytes);
}

void Painter::surround(std::int32_t width, const Rect& picture) {
  std::uint8_t* row = canvas_.pixels;
  for (std::int32_t i = 0; i < canvas_.rows; ++i, row += canvas_.stride) {
    const std::int32_t y = canvas_.first_row + i;
    if (y < picture.y || y >= picture.y + picture.height || picture.width < 1) {
      fill(row, width);
      continue;
    }
    const std::int32_t end = picture.x + picture.width;
    fill(row, picture.x);
    fill(row + std::ptrdiff_t{canvas_.pixel_bytes()} * end, width - end);
  }
}

template <bool kTone>
void Painter::make_pixels(const ShownRow& row, std::int32_t count, std::uint8_t* out) const {
  const auto toned = [this](std::uint8_t level) { return kTone ? paint_.tone[level] : level; };
  const std::uint8_t* from = row.colours;
  if (row.channels == 1) {
    const int bytes = canvas_.pixel_bytes();
    if (bytes == 1 && !kTone) {
      std::memcpy(out, from, static_cast<std::size_t>(count));
      return;
    }
    for (std::int32_t i = 0; i < count; ++i, out += bytes) {
      const std::uint8_t level = toned(from[i]);
      const std::uint8_t pixel[4] = {level, level, level, 255};
      std::memcpy(out, pixel, bytes);
    }
    return;
  }
  switch (canvas_.format) {
    case IMG_PIXELS_GREY:
      for (std::int32_t i = 0; i < count; ++i, from += 3) {
        *out++ = grey_of(toned(from[0]), toned(from[1]), toned(from[2]));
      }
      return;
    case IMG_PIXELS_BGR:
      if (!kTone) {
        std::memcpy(out, from, 3 * std::size_t(count));
        return;
      }
      for (std::int32_t i = 0; i < 3 * count; ++i) out[i] = toned(from[i]);
      return;
    default:
      if (!kTone) return kernels_.widen(from, out, count);
      for (std::int32_t i = 0; i < count; ++i, from += 3, out += 4) {
        const std::uint8_t pixel[4] = {toned(from[0]), toned(from[1]), toned(from[2]), 255};
        std::memcpy(out, pixel, 4);
      }
      return;
  }
}

void Painter::make_pixels(const ShownRow& row, std::int32_t count, std::uint8_t* out) const {
  if (paint_.has_tone) {
    make_pixels<true>(row, count, out);
  } else {
    make_pixels<false>(row, count, out);
  }
}

void Painter::blend(const std::uint8_t* pixel, int share, std::uint8_t* at) const {
  if (share == 0 && !paint_.has_background) return;
  const std::uint8_t* const below = paint_.has_background ? background_.data() : at;
  for (int i = 0; i < canvas_.pixel_bytes(); ++i) {
    at[i] = byte((pixel[i] * share + below[i] * (255 - share) + 127) / 255);
  }
  if (canvas_.format == IMG_PIXELS_BGRX) at[3] = 255;
}

void Painter::put(const ShownRow& row, std::int32_t count, std::uint8_t* at, std::ptrdiff_t step) {
  const int bytes = canvas_.pixel_bytes();
  const bool copies = paint_.raster_operation == kCopy;
  if (copies && row.share == nullptr && step == bytes) return make_pixels(row, count, at);
  make_pixels(row, count, made_.data());
  const std::uint8_t* pixel = made_.data();
  const int table = table_of(paint_.raster_operation);
  for (std::int32_t i = 0; i < count; ++i, pixel += bytes, at += step) {
    if (!copies) {
      for (int k = 0; k < bytes; ++k) at[k] = operate(table, pixel[k], at[k]);
      if (bytes == 4) at[3] = 255;
    } else if (row.share != nullptr) {
      blend(pixel, row.share[i], at);
    } else {
      std::memcpy(at, pixel, bytes);
    }
  }
}

}  // namespace tq::show
