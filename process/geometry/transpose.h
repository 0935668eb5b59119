// Columns of an image that become rows, a block of them at a time.
#pragma once

#include "pixels/turn.h"
#include "process/frame.h"
#include "process/geometry/kernels.h"

namespace tq::process {

// A square of bits along its diagonal; the first of a row is the top one.
void transpose_square(std::uint64_t (&rows)[64]);

class TransposedRows {
 public:
  // `turn` swaps the sides.
  TransposedRows(const ImageSource& image, pixels::Turn turn);
  Status allocate();

  // Sets row y of the result, for y from 0 on.
  Status make_row(ImageRecord& result, int y);

 private:
  std::uint64_t bits_at(int y, int column);
  void turn_bits(int rows);
  void turn_nibbles(int rows);
  template <int kBytes>
  void turn_pixels(int rows);
  int source_row(int x) const { return turn_.from_bottom ? image_.height() - 1 - x : x; }

  const ImageSource& image_;
  pixels::Turn turn_;
  GeometryKernels kernels_ = geometry_kernels();
  bool is_page_;    // small enough that all its bits are held
  int columns_;     // of a block
  int block_ = -1;  // that `rows_` are of
  Row rows_[64];    // a column each
  // Of run lists: all of a page as bits, or how many transitions of a row lie before the block; and the
  // block of the result.
  RowBuffer<std::uint8_t> expanded_;
  RowBuffer<std::uint16_t> passed_;
  RowBuffer<std::uint8_t> bits_;
};

}  // namespace tq::process
