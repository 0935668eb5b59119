// Conversion to 8-bit grey.
#include "core/display_cache.h"
#include "pixels/colours.h"
#include "process/grey_rows.h"
#include "process/process.h"
#include "process/rebuild.h"

namespace tq::process {

Status color_gray(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  GreyRows grey(image, GreyKind::level);
  TQ_TRY(grey.allocate());
  return replace_rows(
      image, {8, pixels::grey_ramp(), marker_below_32(image)},
      [&](std::int32_t y, std::span<std::uint8_t> row) { grey.read(y, row.data()); });
}

}  // namespace tq::process
