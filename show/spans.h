// Which pixels of an image a shown pixel is made of, and how much of each.
#pragma once

#include <cstdint>

#include "show/view.h"

namespace tq::show {

enum class Sampling : std::uint8_t {
  nearest,
  linear,       // between the middles of pixels
  areas,        // the mean over exactly what is shown
  whole_areas,  // over whole pixels
};

// As settings choose it for an axis.
Sampling choose_sampling(const Axis& axis, std::int32_t alias, std::int32_t quality, int bits);

// Pixels first .. last of the image. Those between have the weight `one`.
struct Span {
  std::int32_t first = 0, last = 0;
  std::uint32_t first_weight = 0, last_weight = 0;  // the last: 0 where it is the first
  friend bool operator==(const Span&, const Span&) = default;
};

class Spans {
 public:
  Spans() = default;
  Spans(const Axis& axis, Sampling sampling);

  // Of a pixel of the picture, 0 .. shown - 1. Each depends on its own place alone.
  Span at(std::int32_t shown) const;

  std::uint32_t one() const { return std::uint32_t{1} << bits_; }
  bool is_nearest() const { return sampling_ == Sampling::nearest; }
  std::uint32_t total(const Span& span) const {
    const std::uint32_t inner = span.last > span.first ? span.last - span.first - 1 : 0;
    return span.first_weight + inner * one() + span.last_weight;
  }

 private:
  static constexpr int kMostBits = 12;
  static constexpr int kTotalBits = 24;  // that totals have, but for images of more pixels

  std::int64_t edge(std::int32_t shown) const;
  Span counted_in_window(std::int32_t shown) const;

  Axis axis_;
  Sampling sampling_ = Sampling::nearest;
  int bits_ = kMostBits;
};

}  // namespace tq::show
