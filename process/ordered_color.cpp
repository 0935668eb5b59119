// Ordered dither to the 16 fixed colours.
#include "core/display_cache.h"
#include "pixels/colours.h"
#include "pixels/rows.h"
#include "process/ordered.h"
#include "process/process.h"
#include "process/rebuild.h"

namespace tq::process {

Status bayer_color(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  RowBuffer<Rgb> colours;
  TQ_TRY(colours.allocate(image.width()));
  const auto read = [&](std::int32_t y) {
    // 16-bit samples have no colours here: the row stays black. Callers rely on it.
    if (image.bits() != 16) image.read_colours(y, colours.pixels());
  };
  // The intensity of 4-bit images is not lowered.
  const auto full_intensity = image.bits() == 4 ? pixels::brightness : pixels::intensity;
  return replace_rows(image, {4, pixels::sixteen_colours(), marker_below_32(image)},
                      [&](std::int32_t y, std::span<std::uint8_t> row) {
                        read(y);
                        pixels::pack_nibbles(row.data(), image.width(), [&](std::int32_t x) {
                          const Rgb c = colours.data()[x];
                          return pixels::ordered_sixteen(c, full_intensity(c),
                                                         pixels::kDispersedDots[x & 7][y & 7]);
                        });
                      });
}

}  // namespace tq::process
