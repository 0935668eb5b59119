// The page that searches look at: what is ink of an image, in blocks of pixels. Their size goes by
// the image's sides and not by its resolution, which is wrong in many files: an A4 sheet has 100
// blocks to the inch.
#pragma once

#include "process/frame.h"

namespace tq::process {

// What is taken for ink in images of more than 1 bit; of 1 bit that is black.
struct InkRule {
  // Greys are compared as they would be on even paper, so that no dark surround is left of a page.
  bool levelled = true;
  // What is at most as light is ink. kByOtsu: by Otsu's rule, and nothing where light and dark differ
  // by less than 30 levels; on even paper within 90 to 190.
  int level = kByOtsu;

  static constexpr int kByOtsu = -1;

  // Blocks of half the sides, where the image's pixels are that small. Of tiles nothing is known then.
  bool fine = false;
};

// 1 bit, grey or colours; not 16 bits.
inline bool can_be_searched(const ImageSource& image) {
  return image.bits() == 1 || (image.is_deep() && image.bits() != 16);
}

class InkPage {
 public:
  enum class Reports : std::uint8_t { none, source_rows };

  // wrong_depth for what cannot be searched; the answer of the progress callback.
  Status find(ImageSource& image, Reports reports, InkRule rule = {});

  // Tiles of a sixth of an inch. Those are screened that are full of dots in the image itself: as
  // blocks their pattern may look like anything.
  static constexpr int kTile = 16;
  int tile_columns() const { return (width_ - 1) / kTile + 1; }
  int tile_rows() const { return (height_ - 1) / kTile + 1; }
  bool is_screened(int tile_x, int tile_y) const {
    return screened_[tile_y * std::ptrdiff_t{tile_columns()} + tile_x] != 0;
  }

  // The other page with its columns as rows; of tiles nothing is known.
  Status transpose(const InkPage& page);

  // The other page with its columns moved up by `slope` of a row each, from the middle; likewise.
  Status level(const InkPage& page, double slope);

  int width() const { return width_; }
  int height() const { return height_; }
  // Pixels of the image to a block; the last block of a row or column may have fewer.
  int block_width() const { return block_width_; }
  int block_height() const { return block_height_; }
  // How wide a block is on paper, of its height.
  double aspect() const { return aspect_; }

  // As rows of 1-bit images are: 0 is ink, 1 is none, also behind the end; a multiple of 8 bytes.
  Row row(int y) const {
    return bits_.pixels().subspan(static_cast<std::size_t>(y) * row_bytes_, row_bytes_);
  }
  bool has_ink(int x, int y) const { return (row(y)[x / 8] >> (7 - x % 8) & 1) == 0; }
  // Whether there is some in the columns and rows before the last two.
  bool has_ink(int left, int top, int right, int bottom) const;

  // Whether a place is dark as a whole, as pictures are and what is around a sheet: not known of 1 bit.
  bool knows_dark() const { return dark_.size() > 0; }
  bool is_dark(int x, int y) const {
    return knows_dark() && dark_[y * std::ptrdiff_t{width_} + x] != 0;
  }

 private:
  void choose_blocks(const ImageSource& image, bool fine);
  Status allocate();
  Status find_black(ImageSource& image, Reports reports, bool fine);
  Status find_dark(ImageSource& image, Reports reports, InkRule rule);
  template <class Blocks, class Add>
  Status count_rows(ImageSource& image, Reports reports, Blocks& blocks, Add&& add);

  int width_ = 0, height_ = 0, block_width_ = 1, block_height_ = 1;
  double aspect_ = 1;
  std::size_t row_bytes_ = 0;
  RowBuffer<std::uint8_t> bits_, dark_, screened_;
};

}  // namespace tq::process
