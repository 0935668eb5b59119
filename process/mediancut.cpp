// Fixed palette with error diffusion. Despite the name of the operation no colours are chosen.
#include "core/display_cache.h"
#include "core/settings.h"
#include "process/colour_window.h"
#include "process/kernels.h"
#include "process/nearest_colour.h"
#include "process/process.h"
#include "process/rebuild.h"

namespace tq::process {

Status mediancut_color(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::wrong_depth;
  const std::array<Rgb, 256>& palette = fixed_palette(settings().dither_mode);
  CellColours cells(palette);
  TQ_TRY(cells.allocate());
  ColourWindow window(image);
  TQ_TRY(window.allocate());
  return replace_rows(image, {8, palette, marker_below_32(image)},
                      [&](std::int32_t y, std::span<std::uint8_t> row) {
                        window.move_to(y);
                        kernels().diffuse_to_cells(window.current(), window.next(), cells,
                                                   row.data(), image.width());
                      });
}

}  // namespace tq::process
