// Error diffusion to black and white: Stucki kernel, every other row from right to left.
#include "core/display_cache.h"
#include "process/grey_rows.h"
#include "process/process.h"
#include "process/rebuild.h"
#include "process/stucki.h"

namespace tq::process {

Status diffusion_mono(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  GreyRows grey(image, GreyKind::luma);
  TQ_TRY(grey.allocate());
  StuckiRows rows;
  TQ_TRY(rows.allocate(image.width()));
  return replace_by_mono(image, [&](std::int32_t y, std::span<std::uint8_t> bits) {
    rows.diffuse(grey.read(y), y % 2 == 0, bits);
  });
}

}  // namespace tq::process
