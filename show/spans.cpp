// Weights in whole numbers, so that they are the same everywhere.
#include "show/spans.h"

#include <algorithm>
#include <utility>

namespace tq::show {

Sampling choose_sampling(const Axis& axis, std::int32_t alias, std::int32_t quality, int bits) {
  if (alias == 0 || axis.shown == axis.pixels) return Sampling::nearest;
  if (axis.shown < axis.pixels) return quality == 0 ? Sampling::whole_areas : Sampling::areas;
  return quality == 2 && bits != 1 ? Sampling::linear : Sampling::nearest;
}

Spans::Spans(const Axis& axis, Sampling sampling) : axis_(axis), sampling_(sampling) {
  const bool means = sampling == Sampling::areas || sampling == Sampling::whole_areas;
  if (!means) return;
  const std::int64_t most = axis.pixels / axis.shown + std::int64_t{1};
  while (bits_ > 0 && most << bits_ > std::int64_t{1} << kTotalBits) --bits_;
}

// Where a shown pixel begins, in the weight of one pixel.
std::int64_t Spans::edge(std::int32_t shown) const {
  const std::int64_t at = std::int64_t{shown} * axis_.pixels;
  const std::int64_t whole = at / axis_.shown, rest = at % axis_.shown;
  const std::int64_t part = sampling_ == Sampling::areas ? (rest << bits_) / axis_.shown : 0;
  return (whole << bits_) + part;
}

Span Spans::counted_in_window(std::int32_t shown) const {
  switch (sampling_) {
    case Sampling::nearest: {
      const std::int32_t pixel = axis_.pixel_of(shown);
      return {pixel, pixel, one(), 0};
    }
    case Sampling::linear: {
      const std::int64_t steps = 2 * std::int64_t{axis_.shown};  // of one pixel
      const std::int64_t last = (axis_.pixels - 1) * steps;
      const std::int64_t middle = (2 * std::int64_t{shown} + 1) * axis_.pixels - axis_.shown;
      const std::int64_t at = std::clamp<std::int64_t>(middle, 0, last);
      const auto pixel = static_cast<std::int32_t>(at / steps);
      const auto part = static_cast<std::uint32_t>((at % steps << bits_) / steps);
      if (part == 0) return {pixel, pixel, one(), 0};
      return {pixel, pixel + 1, one() - part, part};
    }
    default: {
      const std::int64_t begin = edge(shown), end = edge(shown + 1);
      Span span{.first = static_cast<std::int32_t>(begin >> bits_),
                .last = static_cast<std::int32_t>((end - 1) >> bits_)};
      const std::int64_t first_end = (std::int64_t{span.first} + 1) << bits_;
      span.first_weight = static_cast<std::uint32_t>(std::min(first_end, end) - begin);
      if (span.last > span.first) {
        span.last_weight = static_cast<std::uint32_t>(end - (std::int64_t{span.last} << bits_));
      }
      return span;
    }
  }
}

Span Spans::at(std::int32_t shown) const {
  Span span = counted_in_window(shown);
  span.first = axis_.in_image(span.first);
  span.last = axis_.in_image(span.last);
  if (span.last < span.first) {
    std::swap(span.first, span.last);
    std::swap(span.first_weight, span.last_weight);
  }
  return span;
}

}  // namespace tq::show
