// Columns of an image that become rows, a block of them at a time.
#pragma once

#include "pixels/turn.h"
#include "process/frame.h"
#include "process/geometry/kernels.h"

namespace tq::process {

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
  bool is_page_;                  // small enough that all its bits are held
  int columns_;                   // of a block
  int block_ = -1;                // that `rows_` are of
  Row rows_[64];                  // a column each
  RowBuffer<std::uint8_t> made_;  // a block of bits, whose rows are stored one after the other
  // Of run lists: all of a page as bits, or how many transitions of a row lie before the block.
  RowBuffer<std::uint8_t> expanded_;
  RowBuffer<std::uint16_t> passed_;
};

}  // namespace tq::process
