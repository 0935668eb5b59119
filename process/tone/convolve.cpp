// Windows whose weights the caller gives.
#include "process/tone/filter.h"

namespace tq::process {
namespace {

constexpr std::int32_t kWidest = 15;

struct Window {
  const std::int32_t* weights;  // row after row
  int width, height;
  std::int64_t divisor;  // above 0
  bool negated;          // what is divided
  std::int32_t offset;
};

template <class Sum>
class ConvolvedRows {
 public:
  ConvolvedRows(const ImageSource& image, const Window& window)
      : rows_(image, window.width / 2, window.height / 2, false), window_(window) {}

  Status allocate() {
    TQ_TRY(rows_.allocate());
    return sums_.allocate(rows_.row_samples());
  }

  void make(int y, Row to) {
    rows_.move_to(y);
    std::ranges::fill(sums_.pixels(), Sum{0});
    const std::int32_t* weight = window_.weights;
    for (int j = 0; j < window_.height; ++j) {
      const std::uint8_t* const row = rows_.row(y + j - window_.height / 2);
      for (int i = 0; i < window_.width; ++i, ++weight) {
        if (*weight != 0) add(row + (i - window_.width / 2) * rows_.channels(), *weight);
      }
    }
    std::ranges::transform(sums_.pixels(), to.begin(), [this](Sum sum) { return result(sum); });
  }

 private:
  void add(const std::uint8_t* from, Sum weight) {
    Sum* const sums = sums_.data();
    const std::ptrdiff_t count = std::ssize(sums_.pixels());
    for (std::ptrdiff_t i = 0; i < count; ++i) sums[i] += weight * from[i];
  }
  std::uint8_t result(std::int64_t sum) const {
    const std::int64_t unit = 2 * window_.divisor;
    const std::int64_t twice = 2 * (window_.negated ? -sum : sum) + window_.divisor;
    const std::int64_t floored = twice >= 0 ? twice / unit : -((unit - 1 - twice) / unit);
    return byte(std::clamp<std::int64_t>(floored + window_.offset, 0, 255));
  }

  PaddedRows rows_;
  Window window_;
  RowBuffer<Sum> sums_;
};

bool is_side(std::int32_t side) {
  return 1 <= side && side <= kWidest && side % 2 == 1;
}

}  // namespace

Status convolve_bitmap(ImageSource& image, const std::int32_t* kernel, std::int32_t width,
                       std::int32_t height, std::int32_t divisor, std::int32_t offset) {
  constexpr std::int64_t kMostSum = 1 << 23;
  release_display_cache(image.record());
  TQ_TRY(check_filtered_depth(image, false));
  if (kernel == nullptr || !is_side(width) || !is_side(height) || divisor == 0) {
    return StatusCode::unsupported;
  }
  // The caller's memory may be another's after the first row.
  std::array<std::int32_t, kWidest * kWidest> weights{};
  std::copy_n(kernel, width * height, weights.begin());
  std::int64_t sum = 0, reach = 0;
  for (const std::int64_t weight : weights) {
    sum += weight;
    reach += std::abs(weight);
  }
  if (std::abs(sum) > kMostSum) return StatusCode::unsupported;
  const std::int64_t exact = divisor;
  const Window window{weights.data(), width, height, std::abs(exact), divisor < 0, offset};
  if (reach <= kMostSum) return filter_by(image, ConvolvedRows<std::int32_t>(image, window), false);
  return filter_by(image, ConvolvedRows<std::int64_t>(image, window), false);
}

}  // namespace tq::process
