// A page as it comes from a scanner: rows or strips become an image while they arrive.
#pragma once

#include "core/image_create.h"
#include "core/image_table.h"
#include "pixels/rows.h"

namespace tq::scan {

// What a scanner's row holds, from the left.
enum class Samples : std::uint8_t {
  black_bits,  // 1 is black
  white_bits,  // 1 is white
  grey,
  indices,  // into the palette
  rgb,      // red, green, blue of each pixel, or a channel a row
};

struct PageShape {
  Samples samples = Samples::grey;
  int sample_bytes = 1;  // of grey and colours; of 2 bytes, low byte first, the high one counts
  std::int32_t width = 0;
  std::int32_t height = 0;  // below 1: known when the last row is there
  Resolution resolution{};
  std::span<const Rgb> palette = {};  // of indices
};

// Bytes of a row without padding.
std::int64_t sample_bytes(const PageShape& shape);

class PageBuilder {
 public:
  // Makes the image; unsupported for a shape that is none.
  Status begin(const PageShape& shape);

  // Row y from the top: whole, or as much as there is, the rest being white. Rows behind the last of a
  // known height are left out; rows that are passed over are white. Each is reported to the caller's
  // progress callback, whose negative answer is the result.
  Status put_row(std::int32_t y, pixels::Bytes stored);

  // Columns x to x + columns - 1 of such a row, of a page that comes in tiles. unsupported for bits that
  // do not begin with a byte.
  Status put_part(std::int32_t y, std::int32_t x, std::int32_t columns, pixels::Bytes stored);

  // The same of a page that comes in three passes: 0 red, 1 green, 2 blue.
  Status put_channel(std::int32_t y, int channel, pixels::Bytes stored);

  std::int32_t rows() const { return end_; }  // the lowest that has come, and those above

  // The image's handle. It ends below the last row that came; bad_image when none did.
  Status finish();

 private:
  bool is_ours() const;
  void whiten_for_lookers(ImageRecord& image, std::int32_t first);
  Status prepare_row(std::int32_t y, ImageRecord*& image);
  Status store(ImageRecord& image, std::int32_t y, pixels::Bytes stored);
  pixels::Bytes whole(pixels::Bytes stored);
  void whiten(ImageRecord& image, std::int32_t first, std::int32_t last);

  PageShape shape_;
  ImageSlot slot_;
  const std::uint8_t* dib_ = nullptr;  // of the image, as it was left
  bool in_runs_ = false;
  std::int32_t height_ = 0;  // of the image as it is now
  std::int32_t end_ = 0;
  std::size_t row_bytes_ = 0;         // of a whole row from the scanner
  RowBuffer<std::uint8_t> stored_;    // one of these, filled up
  RowBuffer<std::uint8_t> narrowed_;  // its high bytes
  RowBuffer<std::uint8_t> row_;       // a row of the image
};

}  // namespace tq::scan
