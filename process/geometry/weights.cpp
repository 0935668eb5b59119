// Weights of the kernels, in integers: the same on every machine.
#include "process/geometry/weights.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace tq::process {
namespace {

#include "process/geometry/lanczos.inc"

constexpr std::int64_t kWhole = 1 << 14;  // the sum of the weights of a pixel
constexpr int kFinest = 65536;            // arguments of kernels
constexpr int kSteps = 1024;              // of tables, to the unit

constexpr std::int64_t floored(std::int64_t a, std::int64_t b) {  // b above 0
  return a >= 0 ? a / b : -((b - 1 - a) / b);
}

// (3 t^3 - 5 t^2 + 2) / 2 below 1, (-t^3 + 5 t^2 - 8 t + 4) / 2 below 2, in units of 2^-20.
constexpr auto kCubic = [] {
  std::array<std::int32_t, 2 * kSteps + 1> values{};
  for (std::ptrdiff_t at = 0; at <= 2 * kSteps; ++at) {
    const std::int64_t i = at, cube = i * i * i, square = i * i * kSteps;
    constexpr std::int64_t kUnit = std::int64_t{kSteps} * kSteps;
    const std::int64_t twice = i < kSteps ? 3 * cube - 5 * square + 2 * kUnit * kSteps
                                          : -cube + 5 * square - 8 * kUnit * i + 4 * kUnit * kSteps;
    values[static_cast<std::size_t>(at)] =
        static_cast<std::int32_t>(floored(twice + kSteps, 2 * kSteps));
  }
  return values;
}();

// At t of 1/65536, in units of 2^-20.
std::int32_t value_at(Kernel kernel, std::int64_t t) {
  if (kernel == Kernel::triangle) {
    return t < kFinest ? static_cast<std::int32_t>(kFinest - t) << 4 : 0;
  }
  const std::span<const std::int32_t> table =
      kernel == Kernel::cubic ? std::span<const std::int32_t>(kCubic) : std::span(kLanczos);
  const std::int64_t step = t >> 6;
  if (step + 1 >= std::ssize(table)) return 0;
  const std::int32_t* const at = &table[static_cast<std::size_t>(step)];
  return at[0] + (((at[1] - at[0]) * static_cast<std::int32_t>(t & 63) + 32) >> 6);
}

constexpr std::int64_t kOne = 1 << 30;

// e to the power of -x, both in units of 2^-30: the series for parts of at most 1.
std::int64_t falling(std::int64_t x) {
  std::int64_t value = kOne;
  for (; x > 0; x -= std::min(x, kOne)) {
    const std::int64_t part = std::min(x, kOne);
    std::int64_t sum = kOne, term = kOne;
    for (int k = 1; term != 0; ++k) {
      term = -term * part / (k * kOne);
      sum += term;
    }
    value = (value * sum + kOne / 2) >> 30;
  }
  return value;
}

}  // namespace

Bell::Bell(int deviation) : deviation_(deviation), radius_((3 * deviation + 99) / 100) {}

// From the far end: what all weights from a place on are together is rounded, so that none is off by
// more than 1.
Status Bell::allocate() {
  TQ_TRY(weights_.allocate(std::int64_t{radius_} + 2));
  RowBuffer<std::int64_t> beyond;  // sums of the values from a place on
  TQ_TRY(beyond.allocate(std::int64_t{radius_} + 2));
  const std::int64_t square = std::int64_t{deviation_} * deviation_;
  for (std::int64_t j = radius_; j > 0; --j) {
    const auto place = static_cast<std::ptrdiff_t>(j);
    beyond[place] = beyond[place + 1] + falling((10000 * j * j * kOne + square) / (2 * square));
  }
  const std::int64_t all = 2 * beyond[1] + kOne;
  std::int64_t last = 0;
  for (std::ptrdiff_t j = radius_; j > 0; --j) {
    const std::int64_t rounded = (2 * kWhole * beyond[j] + all) / (2 * all);
    weights_[j] = static_cast<std::int16_t>(rounded - last);
    last = rounded;
  }
  weights_[0] = static_cast<std::int16_t>(kWhole - 2 * last);
  return kOk;
}

Weights::Weights(Kernel kernel, std::int32_t from, std::int32_t to)
    : kernel_(kernel),
      from_(from),
      to_(to),
      block_(to <= from / 4 ? from / 2 / to : 1),
      radius_(kernel == Kernel::triangle ? 1
              : kernel == Kernel::cubic  ? 2
                                         : 3),
      most_taps_(2 * 4 * radius_ + 2) {}

Status Weights::allocate() {
  TQ_TRY(values_.allocate(most_taps_));
  return weights_.allocate(most_taps_);
}

// In units of which a block has 2 * to * block and a pixel of the result 2 * from.
Taps Weights::taps(std::int32_t i) {
  const std::int64_t unit = std::int64_t{to_} * block_, centre = (2 * std::int64_t{i} + 1) * from_;
  const std::int64_t scale = std::max<std::int64_t>(from_, unit);
  const std::int64_t first =
      std::max<std::int64_t>(0, floored(centre - 2 * radius_ * scale + unit, 2 * unit));
  const std::int64_t end =
      std::min(blocks(), floored(centre + 2 * radius_ * scale + unit, 2 * unit));
  const auto count = static_cast<std::ptrdiff_t>(end - first);
  std::int64_t sum = 0;
  for (std::ptrdiff_t k = 0; k < count; ++k) {
    const std::int64_t away = std::abs((2 * (first + k) + 1) * unit - centre);
    values_[k] = value_at(kernel_, (away * kFinest + scale) / (2 * scale));
    sum += values_[k];
  }
  std::int64_t left = kWhole;
  std::ptrdiff_t largest = 0;
  for (std::ptrdiff_t k = 0; k < count; ++k) {
    const std::int64_t weight = floored(2 * kWhole * values_[k] + sum, 2 * sum);
    weights_[k] = static_cast<std::int16_t>(weight);
    left -= weight;
    if (weights_[k] > weights_[largest]) largest = k;
  }
  weights_[largest] = static_cast<std::int16_t>(weights_[largest] + left);
  return {first, weights_.pixels().first(static_cast<std::size_t>(count))};
}

}  // namespace tq::process
