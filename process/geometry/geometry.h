// What operations share that move pixels: the colour of what comes in from outside, and what changes
// about an image beside its pixels.
#pragma once

#include <array>

#include "process/frame.h"

namespace tq::process {

// 1, 4, 8, 16, 24 or 32 bits.
inline bool has_known_depth(const ImageSource& image) {
  return image.bits() == 1 || image.is_deep();
}

// Whether every entry is.
bool is_grey(std::span<const Rgb> palette);

// A pixel by its bytes as they are stored; of 1 to 8 bits the index.
using Pixel = std::array<std::uint8_t, 4>;

inline constexpr std::int32_t kPaper = -1;

// The pixel that a colour argument names, see the public header; unsupported: it names none.
Status choose_pixel(const ImageSource& image, std::int32_t colour, Pixel& pixel);

// A whole row of it, padding and all.
void fill_row(Row row, int bits, const Pixel& pixel);

void clear_padding(Row row, std::int64_t width, int bits);

// Bits `first` .. `first` + `count` - 1 of a row go to places `at` .. of another one, whose other
// bits keep their value.
void place_bits(Bytes from, std::int64_t first, std::int64_t count, Row to, std::int64_t at);

// The image's pixels stand elsewhere now: the crop rectangle is all of it.
void note_moved_pixels(ImageRecord& image, bool sides_swapped);

// Likewise; it has the same size on paper as before, when it had these sides.
void note_new_sides(ImageRecord& image, Size before);

}  // namespace tq::process
