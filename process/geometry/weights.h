// What each pixel of a side takes from the pixels of the side before, in 14-bit weights.
#pragma once

#include <cstdint>
#include <span>

#include "core/memory.h"

namespace tq::process {

enum class Kernel : std::uint8_t { triangle, cubic, lanczos };

// Weights of the places from `first` on.
struct Taps {
  std::int64_t first;
  std::span<const std::int16_t> weights;
};

class Weights {
 public:
  Weights(Kernel kernel, std::int32_t from, std::int32_t to);
  Status allocate();

  // A side that shrinks to a quarter or less is averaged in blocks of this many pixels first, so that
  // weights of 14 bits can carry their number. Places are those of blocks.
  std::int32_t block() const { return block_; }
  std::int64_t blocks() const { return (std::int64_t{from_} + block_ - 1) / block_; }

  int most_taps() const { return most_taps_; }
  Taps taps(std::int32_t i);  // valid until the next call

 private:
  Kernel kernel_;
  std::int32_t from_, to_, block_;
  int radius_, most_taps_;
  RowBuffer<std::int32_t> values_;
  RowBuffer<std::int16_t> weights_;
};

// A bell curve, whose weights are the same on both sides.
class Bell {
 public:
  explicit Bell(int deviation);  // hundredths of a pixel
  Status allocate();

  int radius() const { return radius_; }
  // Of the middle, of the pixels beside it, and so on; one more, which is 0.
  const std::int16_t* weights() const { return weights_.data(); }

 private:
  int deviation_, radius_;
  RowBuffer<std::int16_t> weights_;
};

}  // namespace tq::process
