// Filters by their kind, and windows whose weights a caller gives.
#include "process/tone/filter.h"

namespace tq::process {
namespace {

enum Filter : std::int32_t { kBox, kGauss, kMedian, kDarkest, kLightest, kUnsharp, kEdges };

bool has_deviation(std::int32_t kind) {
  return kind == kGauss || kind == kUnsharp;
}

bool is_radius(std::int32_t kind, std::int32_t radius) {
  constexpr std::int32_t kLeastDeviation = 30, kMostDeviation = 10000, kMostRadius = 127;
  if (has_deviation(kind)) return kLeastDeviation <= radius && radius <= kMostDeviation;
  return 1 <= radius && radius <= (kind == kEdges ? 1 : kMostRadius);
}

}  // namespace

Status check_filtered_depth(const ImageSource& image, bool takes_mono) {
  if (!has_levels(image) && !(takes_mono && image.bits() == 1)) return StatusCode::wrong_depth;
  return has_colour_palette(image) ? StatusCode::not_grey : StatusCode::ok;
}

Status filter_bitmap(ImageSource& image, std::int32_t kind, std::int32_t radius,
                     std::int32_t amount) {
  constexpr std::int32_t kMostAmount = 1000;
  release_display_cache(image.record());
  const bool is_kind = kBox <= kind && kind <= kEdges;
  TQ_TRY(check_filtered_depth(image, !is_kind || (kMedian <= kind && kind <= kLightest)));
  if (!is_kind || !is_radius(kind, radius)) return StatusCode::unsupported;
  switch (kind) {
    case kBox:
      return box_filter(image, radius);
    case kGauss:
      return gauss_filter(image, radius);
    case kMedian:
      return median_filter(image, radius);
    case kDarkest:
      return darkest_filter(image, radius);
    case kLightest:
      return lightest_filter(image, radius);
    case kUnsharp:
      if (amount < 0 || amount > kMostAmount) return StatusCode::unsupported;
      return unsharp_filter(image, radius, amount);
    default:
      return edge_filter(image);
  }
}

}  // namespace tq::process
