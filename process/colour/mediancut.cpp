// Fixed palette with error diffusion. Despite the name of the operation no colours are chosen.
#include <algorithm>
#include <utility>

#include "core/context.h"
#include "core/image_record.h"
#include "process/colour/kernels.h"
#include "process/process.h"

namespace tq::process {

Status CellColours::allocate() {
  TQ_TRY(entries_.allocate(kCells));
  std::fill_n(entries_.data(), kCells, IndexedColour{255, 255, 255, 0});
  return kOk;
}

IndexedColour CellColours::fill(Rgb colour) {
  const std::uint8_t index = pixels::nearest_colour(colour, palette_);
  const Rgb found = palette_[index];
  return entries_[cell_of(colour)] = {found.blue, found.green, found.red, index};
}

Status mediancut_color(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::wrong_depth;
  const std::array<Rgb, 256>& palette = pixels::fixed_palette(context().settings.dither_mode);
  CellColours cells(palette);
  TQ_TRY(cells.allocate());
  // Errors may leave a row by two pixels at either end; what lands there is never read.
  RowBuffer<Rgb, 2> current, next;
  TQ_TRY(current.allocate(image.width()));
  TQ_TRY(next.allocate(image.width()));
  const auto load_next = [&](int y) { image.read_colours(y, next.pixels()); };
  return replace_rows(image, {8, palette, marker_below_32(image)}, [&](int y, Row row) {
    if (y == 0) load_next(0);
    std::swap(current, next);
    load_next(std::min(y + 1, image.height() - 1));
    kernels().diffuse_to_cells(current.data(), next.data(), cells, row.data(), image.width());
  });
}

}  // namespace tq::process
