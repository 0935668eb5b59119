// Row kernels: plain functions over one row, without state. The portable ones are the reference;
// faster ones for some processors give the same bytes.
#pragma once

#include <cstdint>
#include <span>

#include "core/dib.h"

namespace tq::process {

class CellColours;
struct WideColour;
struct WideRows;

// The least grey that turns white, by x & 7.
struct LeastWhite {
  std::uint8_t grey[8];
};

constexpr std::uint16_t key_of(Rgb c) {
  return static_cast<std::uint16_t>((c.red >> 4) << 8 | (c.green >> 4) << 4 | c.blue >> 4);
}

struct Kernels {
  // The upper four bits of red, green and blue, in this order. `bgr` has 3 * width bytes, not one
  // more is read.
  void (*keys_24)(const std::uint8_t* bgr, std::uint16_t* keys, std::int32_t width);

  // A set bit, leftmost first, where the grey is not below `least`; (width + 7) / 8 bytes.
  void (*at_least)(const std::uint8_t* grey, const LeastWhite& least, std::uint8_t* bits,
                   std::int32_t width);

  // One row of error diffusion against the colours of `cells`; both rows have two pixels of margin.
  void (*diffuse_to_cells)(Rgb* current, Rgb* next, CellColours& cells, std::uint8_t* out,
                           std::int32_t width);
  void (*widen_channels)(const Rgb* colours, WideColour* out, std::int32_t width);
  void (*diffuse_to_sixteen)(const WideRows& rows);
};

// The portable forms of the two diffusions.
void diffuse_to_cells(Rgb* current, Rgb* next, CellColours& cells, std::uint8_t* out,
                      std::int32_t width);
void diffuse_to_sixteen(const WideRows& rows);

// The fastest for this processor.
const Kernels& kernels();

// Adds a row to a histogram.
void count_levels(std::span<const std::uint8_t> levels, std::uint32_t (&counts)[256]);

}  // namespace tq::process
