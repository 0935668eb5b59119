// To grey, and by thresholds to black and white: given ones, found ones, matrices of them.
#include <algorithm>

#include "core/image_record.h"
#include "process/colour/kernels.h"
#include "process/process.h"
#include "process/tone/threshold.h"

namespace tq::process {

Status color_gray(ImageSource& image) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  GreyRows grey(image, GreyKind::level);
  TQ_TRY(grey.allocate());
  return replace_rows(image, {8, pixels::grey_ramp(), marker_below_32(image)},
                      [&](int y, Row row) { grey.read(y, row); });
}

namespace {

constexpr std::int32_t kAutomatic = -1;
constexpr int kCut = 40;  // of 255, in the equalised image
constexpr int kNoWhite = 256;

// The least grey that an equalised histogram puts above the cut.
int least_equalised(const LevelCounts& counts, double pixels) {
  double sum = 0;
  for (int grey = 0; grey < 256; ++grey) {
    sum += counts[grey] / pixels;
    // The sum never falls, so every brighter grey is above the cut as well.
    if (static_cast<int>(255.0 * sum) > kCut) return grey;
  }
  return kNoWhite;
}

}  // namespace

Status thresh_mono(ImageSource& image, std::int32_t threshold) {
  if (!image.is_deep()) return StatusCode::unsupported;
  GreyRows grey(image, GreyKind::luma);
  TQ_TRY(grey.allocate());

  int least = kNoWhite;
  if (threshold == kAutomatic) {
    LevelCounter counter;
    TQ_TRY(counter.allocate(std::int64_t{image.width()} * image.height()));
    for (int y = 0; y < image.height(); ++y) counter.add(grey.read(y));
    least = least_equalised(counter.counts(), double{1} * image.width() * image.height());
  } else if (threshold < 255) {
    least = std::max(threshold, kAutomatic) + 1;
  }

  return replace_by_mono(image, [&](int y, Row bits) {
    if (least == kNoWhite) {
      std::fill(bits.begin(), bits.end(), std::uint8_t{0});
      return;
    }
    LeastWhite white;
    std::fill(white.grey, white.grey + 8, byte(least));
    kernels().at_least(grey.read(y).data(), white, bits.data(), image.width());
  });
}

namespace {

const pixels::ThresholdMatrix kClusteredDots = {
    {136, 192, 160, 128, 116, 60, 92, 124}, {168, 232, 224, 212, 84, 20, 28, 40},
    {200, 248, 244, 180, 52, 4, 8, 72},     {152, 184, 216, 148, 100, 68, 36, 104},
    {112, 56, 88, 120, 140, 196, 164, 132}, {80, 16, 24, 44, 172, 236, 228, 208},
    {48, 0, 12, 76, 204, 252, 240, 176},    {96, 64, 32, 108, 156, 188, 220, 144},
};

Status dither(ImageSource& image, const pixels::ThresholdMatrix& matrix) {
  release_display_cache(image.record());
  if (!image.is_deep()) return StatusCode::unsupported;
  GreyRows grey(image, GreyKind::luma);
  TQ_TRY(grey.allocate());
  return replace_by_mono(image, [&](int y, Row bits) {
    LeastWhite least;
    for (int x = 0; x < 8; ++x) least.grey[x] = byte(matrix[x][y & 7] + 1);
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
