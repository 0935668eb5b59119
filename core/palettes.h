// Standard and fixed palettes.
#pragma once

#include <array>

#include "core/dib.h"

namespace tq {

// Entry i is i, i, i.
const std::array<Rgb, 256>& grey_ramp();

// The 16 fixed colours: bit 2 blue, bit 1 green, bit 0 red, at 128 below index 8 and 255 above, so
// that 0 and 8 are both black.
const std::array<Rgb, 16>& sixteen_colours();
const std::array<Rgb, 2>& black_and_white();

// The 256 fixed colours by dither mode: 3 bits red, 3 green, 2 blue; or the mode 2 table, which is
// built around the 20 colours that a window system reserves.
const std::array<Rgb, 256>& fixed_palette(std::int32_t dither_mode);

// The dispersed-dot threshold of pixel (x, y) is kDispersedDots[x & 7][y & 7]: eight-by-eight Bayer
// order times 4, with 0 replaced by 4.
extern const std::uint8_t kDispersedDots[8][8];

}  // namespace tq
