// The light of the paper behind what is on it, as it changes over a page: of a plane of levels, and
// of an image by its greys.
#pragma once

#include <algorithm>

#include "process/cleanup/kernels.h"
#include "process/frame.h"

namespace tq::process {

// A level that Otsu's rule has found on even paper: without bounds it cuts the grain of paper with
// little or faint text.
inline int clamp_on_paper(int level) {
  return std::clamp(level, 90, 190);
}

class Background {
 public:
  Status allocate(int width, int height);
  // Rows from the top, all of them, and then the end.
  void add_row(Bytes levels);
  Status finish();

  // Sixteenths of the levels of a row's background, 16 at least. Valid until the next call.
  std::span<const std::uint16_t> read(int y);

  // Whether there is no paper at a pixel: the background, or that of a tile next to it, is much darker
  // than that of the page.
  bool is_dark(int x, int y) const {
    return dark_[y / kTile * std::ptrdiff_t{columns_} + x / kTile] != 0;
  }

  // Levels as they would be on even paper; `levels` and `out` may be the same.
  void level_row(int y, Bytes levels, Row out);

  // Sets marks[x] to 1 where these would be at most `level`, which is below 254, else to 0.
  void mark_dark(int y, Bytes levels, int level, Row marks);

 private:
  static constexpr int kTile = kTileSide;

  void end_tiles();
  Status find_dark();
  int width_ = 0, height_ = 0, columns_ = 0, rows_ = 0;  // the latter in tiles
  int row_ = 0;
  CleanupKernels kernels_ = cleanup_kernels();
  RowBuffer<std::uint8_t> band_, tiles_, dark_;
  RowBuffer<std::uint16_t> smooth_;
  RowBuffer<std::int32_t> between_;  // tiles at the height of a row
  RowBuffer<std::uint16_t> line_;    // from the centre of a tile before the first one
};

// Greys of an image on even paper. Not for 1 bit.
class LevelledRows {
 public:
  explicit LevelledRows(const ImageSource& image) : grey_(image, GreyKind::luma), image_(image) {}

  // Goes through the image once, without a report of progress.
  Status find();
  Bytes read(int y);

  // The same of the image's rows.
  void mark_dark(int y, int level, Row out);
  bool is_dark(int x, int y) const { return background_.is_dark(x, y); }

 private:
  GreyRows grey_;
  const ImageSource& image_;
  Background background_;
  RowBuffer<std::uint8_t> levels_;
};

}  // namespace tq::process
