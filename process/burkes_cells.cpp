// One row of fixed-palette diffusion: Burkes kernel, values stay within 0 .. 255.
#include "process/kernels.h"
#include "process/nearest_colour.h"

namespace tq::process {
namespace {

std::uint8_t clamped(int value) {
  return static_cast<std::uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
}

// Each share is cut toward zero and clamped as it arrives, so their order counts.
void give(Rgb& to, const int (&error)[3], int divisor) {
  to.blue = clamped(to.blue + error[0] / divisor);
  to.green = clamped(to.green + error[1] / divisor);
  to.red = clamped(to.red + error[2] / divisor);
}

}  // namespace

void diffuse_to_cells(Rgb* current, Rgb* next, CellColours& cells, std::uint8_t* out,
                      std::int32_t width) {
  for (std::int32_t x = 0; x < width; ++x) {
    const Rgb colour = current[x];
    const CellColours::Entry entry = cells.find(colour);
    out[x] = entry.index;
    const int error[3] = {colour.blue - entry.blue, colour.green - entry.green,
                          colour.red - entry.red};
    give(current[x + 1], error, 4);
    give(current[x + 2], error, 8);
    give(next[x - 2], error, 16);
    give(next[x - 1], error, 8);
    give(next[x], error, 4);
    give(next[x + 1], error, 8);
    give(next[x + 2], error, 16);
  }
}

}  // namespace tq::process
