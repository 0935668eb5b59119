// What operations on levels share: counts of them, and tables that change them.
#pragma once

#include <algorithm>
#include <array>

#include "process/geometry/geometry.h"
#include "process/tone/threshold.h"

namespace tq::process {

using LevelTable = std::array<std::uint8_t, 256>;

// One for each channel of a colour.
struct ColourTables {
  explicit ColourTables(const LevelTable& all) : blue(all), green(all), red(all) {}
  ColourTables(const LevelTable& b, const LevelTable& g, const LevelTable& r)
      : blue(b), green(g), red(r) {}
  bool all_equal() const { return blue == green && green == red; }
  LevelTable blue, green, red;
};

// 4, 8, 24 or 32 bits: what has levels.
inline bool has_levels(const ImageSource& image) {
  return image.is_deep() && image.bits() != 16;
}

// Whether a palette has colours; then its indices mean nothing by themselves.
inline bool has_colour_palette(const ImageSource& image) {
  return (image.bits() == 4 || image.bits() == 8) && !is_grey(image.palette());
}

// Whether pixels are cyan, magenta, yellow, black.
inline bool has_inks(const ImageSource& image) {
  return image.bits() == 32 && image.header().biCompression == 0;
}

// The pixels of a palette image stay, its entries become what `changed` makes of them.
template <class Change>
Status replace_entries(ImageSource& image, Change&& changed) {
  std::array<Rgb, 256> entries{};
  std::ranges::transform(image.palette(), entries.begin(), changed);
  NewShape shape = same_kind(image, image.width(), image.height());
  shape.palette = std::span(entries).first(image.palette().size());
  return replace_single_rows(image, shape, [&](int y, Row row) {
    copy_row(plain_row(image.record(), y), row);
    clear_padding(row, image.width(), image.bits());
  });
}

// Levels by a table: the pixels, but of a palette with colours, or where the tables differ, its
// entries. Inks are taken by the light that they leave.
Status map_levels(ImageSource& image, const ColourTables& tables);

enum class Channel : std::uint8_t { grey, red, green, blue };

// Of all pixels, those of palettes through their entries; inks as the colours that they give.
// Reports no progress.
Status count_levels(const ImageSource& image, Channel channel, LevelCounts& counts);

}  // namespace tq::process
