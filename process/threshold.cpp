// One cut between black and white, given or found.
#include <algorithm>

#include "process/grey_rows.h"
#include "process/kernels.h"
#include "process/process.h"
#include "process/rebuild.h"

namespace tq::process {
namespace {

constexpr std::int32_t kAutomatic = -1;
constexpr int kCut = 40;  // of 255, in the equalised image
constexpr int kNoWhite = 256;

// The least grey that an equalised histogram puts above the cut.
int least_equalised(const std::uint32_t (&counts)[256], std::int32_t width, std::int32_t height) {
  const double pixels = static_cast<double>(width) * static_cast<double>(height);
  double sum = 0;
  for (int grey = 0; grey < 256; ++grey) {
    sum += static_cast<double>(counts[grey]) / pixels;
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
    std::uint32_t counts[256] = {};
    for (std::int32_t y = 0; y < image.height(); ++y) {
      count_levels(grey.read(y), counts);
    }
    least = least_equalised(counts, image.width(), image.height());
  } else if (threshold < 255) {
    least = std::max(threshold, kAutomatic) + 1;
  }

  return replace_by_mono(image, [&](std::int32_t y, std::span<std::uint8_t> bits) {
    if (least == kNoWhite) {
      std::fill(bits.begin(), bits.end(), std::uint8_t{0});
      return;
    }
    LeastWhite white;
    std::fill(white.grey, white.grey + 8, static_cast<std::uint8_t>(least));
    kernels().at_least(grey.read(y).data(), white, bits.data(), image.width());
  });
}

}  // namespace tq::process
