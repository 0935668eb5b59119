// Ordered dithers to black and white.
#include "core/display_cache.h"
#include "process/grey_rows.h"
#include "process/kernels.h"
#include "process/ordered.h"
#include "process/process.h"
#include "process/rebuild.h"

namespace tq::process {

const pixels::ThresholdMatrix kClusteredDots = {
    {136, 192, 160, 128, 116, 60, 92, 124}, {168, 232, 224, 212, 84, 20, 28, 40},
    {200, 248, 244, 180, 52, 4, 8, 72},     {152, 184, 216, 148, 100, 68, 36, 104},
    {112, 56, 88, 120, 140, 196, 164, 132}, {80, 16, 24, 44, 172, 236, 228, 208},
    {48, 0, 12, 76, 204, 252, 240, 176},    {96, 64, 32, 108, 156, 188, 220, 144},
};

namespace {

Status dither(ImageSource& image, const pixels::ThresholdMatrix& matrix) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  GreyRows grey(image, GreyKind::luma);
  TQ_TRY(grey.allocate());
  return replace_by_mono(image, [&](std::int32_t y, std::span<std::uint8_t> bits) {
    LeastWhite least;
    for (int x = 0; x < 8; ++x) least.grey[x] = static_cast<std::uint8_t>(matrix[x][y & 7] + 1);
    kernels().at_least(grey.read(y).data(), least, bits.data(), image.width());
  });
}

}  // namespace

Status bayer_mono(ImageSource& image) {
  return dither(image, pixels::kDispersedDots);
}

Status halftone_mono(ImageSource& image) {
  return dither(image, kClusteredDots);
}

}  // namespace tq::process
