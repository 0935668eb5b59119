#include "process/geometry/sines.h"

namespace tq::process {
namespace {

#include "process/geometry/sines.inc"

constexpr std::int64_t kHalf = std::int64_t{1} << 29;

}  // namespace

Sines::Sines(int angle) {
  const std::int64_t s = kSineOfDegree[angle / 100], c = kSineOfDegree[90 - angle / 100];
  const std::int64_t ds = kSineOfHundredth[angle % 100], dc = kCosineOfHundredth[angle % 100];
  sine = (s * dc + c * ds + kHalf) >> 30;
  cosine = (c * dc - s * ds + kHalf) >> 30;
}

}  // namespace tq::process
