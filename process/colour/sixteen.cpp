// To the 16 fixed colours: by ordered dither, and by error diffusion with the Burkes kernel, always
// from left to right.
#include <utility>

#include "core/image_record.h"
#include "pixels/kernels.h"
#include "process/colour/kernels.h"
#include "process/process.h"

namespace tq::process {

Status bayer_color(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  RowBuffer<Rgb> colours;
  TQ_TRY(colours.allocate(image.width()));
  // The intensity of 4-bit images is not lowered.
  const int darker_by = image.bits() == 4 ? 0 : pixels::kDarkerBy;
  return replace_rows(
      image, {4, pixels::sixteen_colours(), marker_below_32(image)}, [&](int y, Row row) {
        // 16-bit samples have no colours here: the row stays black. Callers rely on it.
        if (image.bits() != 16) image.read_colours(y, colours.pixels());
        pixels::kernels().order_to_4(colours.data(), pixels::ordered_limits(y, darker_by),
                                     row.data(), image.width());
      });
}

Status diffusion_color(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  RowBuffer<Rgb> colours;
  TQ_TRY(colours.allocate(image.width()));
  RowBuffer<WideColour, 2> buffers[WideRows::kMost + 1];
  WideRows rows{.width = image.width(), .count = 0, .row = {}, .out = {}};
  for (int i = 0; i <= WideRows::kMost; ++i) {
    TQ_TRY(buffers[i].allocate(image.width()));
    rows.row[i] = buffers[i].data();
  }
  const Kernels kernel = kernels();
  const auto load = [&](int y, WideColour* row) {
    image.read_colours(y, colours.pixels());
    kernel.widen_channels(colours.data(), row, image.width());
  };
  return replace_rows(image, {4, pixels::sixteen_colours(), marker_below_32(image)},
                      [&](int y, Row row) {
                        const bool last = y + 1 == image.height();
                        if (y == 0) load(0, rows.row[0]);
                        rows.out[rows.count++] = row.data();
                        load(last ? y : y + 1, rows.row[rows.count]);
                        if (rows.count < WideRows::kMost && !last) return;
                        kernel.diffuse_to_sixteen(rows);
                        std::swap(rows.row[0], rows.row[rows.count]);
                        rows.count = 0;
                      });
}

}  // namespace tq::process
