// The encoder's settings and their setters.
#include "formats/jpeg/encoder_settings.h"

#include <algorithm>

#include "formats/jpeg/jpeg.h"

namespace tq::formats {
namespace {

// Until a quality is set the chrominance table differs from the one of quality 50 in two places;
// callers rely on it.
constexpr std::array<std::uint8_t, kBlock> initial_chrominance() {
  std::array<std::uint8_t, kBlock> table = kBaseChrominance;
  table[2 * 8 + 2] = 56;
  table[4 * 8] = 99;
  return table;
}

constinit JpegEncoderSettings state{kBaseLuminance, initial_chrominance(), 2, 1};

void scale(const std::array<std::uint8_t, kBlock>& base, std::int32_t percent,
           std::array<std::uint8_t, kBlock>& table) {
  std::transform(base.begin(), base.end(), table.begin(), [percent](std::int32_t step) {
    return static_cast<std::uint8_t>(std::clamp((step * percent + 50) / 100, 1, 255));
  });
}

}  // namespace

JpegEncoderSettings& jpeg_encoder_settings() {
  return state;
}

void set_jpeg_quality(std::int32_t quality) {
  quality = std::clamp(quality, 1, 100);
  const std::int32_t percent = quality < 50 ? 5000 / quality : 200 - 2 * quality;
  scale(kBaseLuminance, percent, state.luminance);
  scale(kBaseChrominance, percent, state.chrominance);
}

void set_jpeg_sampling(std::int32_t horizontal, std::int32_t vertical) {
  state.h = horizontal;
  state.v = vertical;
}

}  // namespace tq::formats
