// The row kernels of resizing and turning: plain functions over one row. The portable ones are the
// reference, faster ones for some processors give the same bytes. Pixels have `size` channels, a byte
// each.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/numbers.h"
#include "platform/cpu.h"

namespace tq::process {

// A sum over an area, by the area: halves upwards.
class Mean {
 public:
  Mean() = default;
  explicit Mean(std::int64_t area)
      : area_(area), twice_(2 * area), inverse_(1 / static_cast<double>(2 * area)) {}
  std::uint8_t operator()(std::int64_t sum) const {
    const std::int64_t doubled = 2 * sum + area_;
    // The estimate is off by one at most.
    auto mean = static_cast<std::int32_t>(static_cast<double>(doubled) * inverse_);
    const std::int64_t left = doubled - mean * twice_;
    mean += (left >= twice_ ? 1 : 0) - (left < 0 ? 1 : 0);
    return byte(mean);
  }

 private:
  std::int64_t area_ = 1, twice_ = 2;
  double inverse_ = 0.5;
};

// Of each pixel of a row that is resized: its first tap, and the weights of all of them, `stride`
// apart from pixel to pixel. From the tap `used` on all weights are 0.
struct ColumnTaps {
  static constexpr int kGroup = 8;  // the stride is a multiple of it
  const std::int32_t* first;
  const std::int16_t* weights;
  int used, stride;
};

// Cells of bits: 2, 4 or 8 in a row and `count` rows, less than 256 in all; 2^shift of them, or another number
// where that is 0.
struct Cells {
  const std::uint8_t* const* rows;
  int count, wide, shift;
};

// Places along a row of the result, all with four neighbours inside of the image: coordinates in units
// of 2^-32 of a pixel, whose next 24 bits are left alone; from `origin` rows are `stride` apart.
struct Walk {
  const std::uint8_t* origin;
  std::ptrdiff_t stride;
  std::int64_t x, y, x_step, y_step;
};

// Copies bytes, with the bits of `other` the other way round.
using CopyBytes = void (*)(const std::uint8_t* from, std::uint8_t* to, std::ptrdiff_t bytes,
                           std::uint8_t other);

struct GeometryKernels {
  // Of what is more than caches hold, so that it does not pass through them.
  CopyBytes copy_past;

  // Adds the bytes of `count` rows to sums of 16 bits.
  void (*add_rows)(const std::uint8_t* const* rows, int count, std::uint16_t* sums,
                   std::ptrdiff_t samples);

  // Adds bytes, or sums of them, times a share.
  void (*add_shares)(const std::uint8_t* from, std::uint32_t share, std::uint64_t* sums,
                     std::ptrdiff_t count);
  void (*add_shares_16)(const std::uint16_t* from, std::uint32_t share, std::uint64_t* sums,
                        std::ptrdiff_t count);

  // The means of two by two pixels, halves upwards.
  void (*halve)(const std::uint8_t* upper, const std::uint8_t* lower, int size, std::uint8_t* to,
                std::ptrdiff_t pixels);

  // By weights of 14 bits: along a row of bytes to 6 bits of fraction, then down columns of these to
  // bytes, at most kMostDown rows. Behind the row as many pixels are read as have weights, rounded up,
  // and 16 bytes; behind `to` up to 8 bytes are written.
  void (*weigh_along)(const std::uint8_t* from, int size, const ColumnTaps& columns,
                      std::int16_t* to, int width);
  void (*weigh_down)(const std::int16_t* const* rows, const std::int16_t* weights, int count,
                     std::uint8_t* to, std::ptrdiff_t samples);

  // Eight rows of 24 bits become columns: `count` pixels of each, `to_stride` apart. Of `there` pixels
  // from the rows' begin on something may be read.
  void (*turn_24)(const std::uint8_t* const* rows, int count, int there, std::uint8_t* to,
                  std::ptrdiff_t to_stride);

  // A square of bits along its diagonal; the first of a row is the top one.
  void (*transpose_square)(std::uint64_t* rows);

  // How many bits of each cell are set, a byte each, or the level of that, of 2^shift; of rows of whole 32-bit
  // words. Behind the last word's cells some more are written.
  void (*count_cells)(const Cells& cells, std::ptrdiff_t row_bytes, std::uint8_t* to);

  // Levels of cells of this area, halves upwards, by how much more of a cell is black than of the one before.
  void (*levels_of_black)(const std::int64_t* more, std::int64_t area, std::uint8_t* to,
                          std::ptrdiff_t count);

  // Four neighbours by their distance in units of 1/256. Of pixels of 3 bytes, two more bytes behind
  // each row's neighbours are read.
  void (*blend)(const Walk& walk, int size, std::uint8_t* to, int count);
};

inline constexpr int kMostDown = 32;

extern const GeometryKernels kPortableGeometryKernels;
void add_avx2_kernels(GeometryKernels& kernels);
void add_avx2_bit_kernels(GeometryKernels& kernels);

// The fastest for this processor, less what is masked.
GeometryKernels geometry_kernels();

// What copies rows of so many bytes in all.
CopyBytes copy_rows_of(std::int64_t bytes);

}  // namespace tq::process
