// One image: its DIB block and everything that is remembered about it.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

#include "core/dib.h"

namespace tq {

enum class ImageHandle : std::int32_t {};

struct Rect {
  std::int32_t x = 0, y = 0, width = 0, height = 0;
};
struct Size {
  std::int32_t width = 0, height = 0;
};

// What a file had lost when it was decoded.
struct Damage {
  std::int32_t rows = 0;               // that came before anything was lost
  StatusCode reason = StatusCode::ok;  // nothing was
  RowRange lost{};                     // of the picture as its file has it
  std::int32_t height = 0;             // of that
};

// More than the header's integers can say, as long as they are these.
struct ExactResolution {
  Resolution exact;
  std::int32_t x_dots = 0, y_dots = 0;
};

// Geometry is kept here as well as in the DIB's header, because callers may write into the header
// through the address they were given: rows are found by these values alone.
struct ImageRecord {
  std::uint64_t serial = 0;  // tells a reused handle from the image it named before
  Rect display;              // where it was last drawn, device units
  Rect crop;
  std::int32_t raster_operation = 0x00CC0020;  // SRCCOPY
  std::uint8_t* dib = nullptr;                 // owned, unless caller_owned
  bool caller_owned = false;                   // the DIB came from a caller and stays with him
  std::int32_t width = 0, height = 0, bits = 0;
  std::int32_t bytes_per_row = 0;
  std::int32_t gamma = 0;                     // hundredths
  bool gamma_is_set = false;                  // by a caller: no other is shown
  std::int32_t brightness = 0, contrast = 0;  // -100 .. 100
  std::int32_t dib_size = 0;  // bytes of the DIB block in use; with runs: its capacity
  bool in_runs = false;       // rows are run lists
  std::uint32_t* run_table =
      nullptr;                  // owned; per row the offset of its list in the DIB block, 0: white
  std::uint32_t runs_end = 0;   // where the next list goes in the DIB block
  std::uint32_t runs_dead = 0;  // bytes of lists that were replaced
  std::uint32_t waiting_end = 0;  // before it rows of bits lie in equal steps; 0: none wait
  std::int32_t display_angle = 0;
  bool has_transparent = false;
  std::int32_t transparent_colour = 0;
  std::uint8_t* shown_copy = nullptr;  // owned; what was drawn last, for the next time
  void* animation = nullptr;           // that is drawn on it, and what ends that
  void (*end_animation)(void* animation) = nullptr;
  Damage damage;
  ExactResolution resolution;
};

// The header may lie at any address, so it is copied.
inline BitmapInfoHeader header_of(const ImageRecord& image) {
  BitmapInfoHeader header;
  std::memcpy(&header, image.dib, sizeof header);
  return header;
}
inline void set_header(ImageRecord& image, const BitmapInfoHeader& header) {
  std::memcpy(image.dib, &header, sizeof header);
}

// That of a header that was changed since is its integers'.
inline Resolution resolution_of(const ImageRecord& image) {
  const BitmapInfoHeader header = header_of(image);
  const ExactResolution& known = image.resolution;
  Resolution resolution = resolution_of(header);
  const auto take = [](std::int32_t exact, bool unchanged, std::int32_t& value) {
    if (unchanged && exact > 0) value = exact;
  };
  take(known.exact.x, header.biXPelsPerMeter == known.x_dots, resolution.x);
  take(known.exact.y, header.biYPelsPerMeter == known.y_dots, resolution.y);
  return resolution;
}
inline void remember_resolution(ImageRecord& image, Resolution exact) {
  const BitmapInfoHeader header = header_of(image);
  image.resolution = {exact, header.biXPelsPerMeter, header.biYPelsPerMeter};
}

inline std::span<Rgb> palette_of(const ImageRecord& image) {
  return std::span(reinterpret_cast<Rgb*>(image.dib + kDibHeaderBytes),
                   palette_bytes(image.bits) / 4);
}

// Where the rows begin.
inline std::uint8_t* pixels_of(const ImageRecord& image) {
  return image.dib + kDibHeaderBytes + palette_bytes(image.bits);
}

// A row of an image with plain pixels. y = 0 is the top row, stored last.
inline std::span<std::uint8_t> plain_row(const ImageRecord& image, std::int32_t y) {
  const std::size_t stride = image.bytes_per_row;
  return {pixels_of(image) + (image.height - y - 1) * stride, stride};
}

// Drops the copy of an image as it was drawn last; whatever changes pixels or header calls it before
// it looks at the image, even if it then refuses it.
inline void release_display_cache(ImageRecord& image) {
  if (image.shown_copy != nullptr) free_block(image.shown_copy);
  image.shown_copy = nullptr;
}

}  // namespace tq
