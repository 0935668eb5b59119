// What filters share: rows that go on beyond the edges of the image, and results made row by row.
#pragma once

#include "process/geometry/grey_rows.h"
#include "process/process.h"
#include "process/tone/tone.h"

namespace tq::process {

// Levels or channels of some rows around one, whose first and last pixels are repeated on both
// sides; so are the first and the last row.
class PaddedRows {
 public:
  // As many pixels and rows beyond the ends.
  PaddedRows(const ImageSource& image, int aside, int above, bool upwards = true)
      : image_(image), rows_(image, upwards), aside_(aside), above_(above) {}

  Status allocate() {
    TQ_TRY(rows_.allocate());
    held_ = std::min(2 * above_ + 1, image_.height());
    stride_ = (std::int64_t{image_.width()} + 2 * aside_) * channels();
    return padded_.allocate(stride_ * held_);
  }
  int channels() const { return rows_.channels(); }
  std::int64_t row_samples() const { return std::int64_t{image_.width()} * channels(); }

  // Row y and those around it are at hand from now on; rows are asked for from the top.
  void move_to(int y) {
    for (; next_ <= std::min(y + above_, image_.height() - 1); ++next_) load(next_);
  }
  // The first sample inside of a row near the one moved to.
  const std::uint8_t* row(int y) const {
    const int inside = std::clamp(y, 0, image_.height() - 1);
    return start(inside) + std::ptrdiff_t{aside_} * channels();
  }

 private:
  std::uint8_t* start(int y) const {
    return padded_.data() + static_cast<std::ptrdiff_t>(y % held_ * stride_);
  }
  void load(int y) {
    const Bytes from = rows_.read(y);
    const std::ptrdiff_t size = channels(), margin = aside_ * size;
    std::uint8_t* const to = start(y);
    std::memcpy(to + margin, from.data(), from.size());
    for (std::ptrdiff_t i = margin; i-- > 0;) to[i] = to[i + size];
    std::uint8_t* const end = to + margin + from.size();
    for (std::ptrdiff_t i = 0; i < margin; ++i) end[i] = end[i - size];
  }

  const ImageSource& image_;
  GreyOrColourRows rows_;
  int aside_, above_;
  int held_ = 1, next_ = 0;
  std::int64_t stride_ = 0;
  RowBuffer<std::uint8_t> padded_;
};

// The image becomes what `rows.make(y, to)` makes of it, levels or channels in turn. Filters that are
// the same upside down go upwards, as rows lie in memory.
template <class Rows>
Status filter_by(ImageSource& image, Rows&& rows, bool upwards = true) {
  TQ_TRY(rows.allocate());
  const LevelsToRow levels(image, image.bits());
  RowBuffer<std::uint8_t> made;
  const int channels = std::max(1, image.bits() / 8);
  if (!levels.levels_are_bytes()) TQ_TRY(made.allocate(image.width()));
  ImageDraft result;
  TQ_TRY(create_result(result, image, same_kind(image, image.width(), image.height())));
  const auto make_row = [&](int y, Row row) {
    const int at = upwards ? image.height() - 1 - y : y;
    if (levels.levels_are_bytes()) {
      rows.make(at, row.first(static_cast<std::size_t>(image.width()) * channels));
    } else {
      rows.make(at, made.pixels());
      levels.put(made.pixels(), row);
    }
  };
  TQ_TRY(make_rows(result, image, make_row, upwards));
  result.install(image.record());
  return kOk;
}

// The kinds of IMG_filter_bitmap; sides of windows are 2 radius + 1.
Status box_filter(ImageSource& image, int radius);
Status gauss_filter(ImageSource& image, int deviation);  // hundredths of a pixel
Status unsharp_filter(ImageSource& image, int deviation, int amount);
Status edge_filter(ImageSource& image);
Status median_filter(ImageSource& image, int radius);
Status darkest_filter(ImageSource& image, int radius);
Status lightest_filter(ImageSource& image, int radius);

// 4 and 8 bits that are grey, 24 and 32 bits; 1 bit as well, where that makes sense.
Status check_filtered_depth(const ImageSource& image, bool takes_mono);

}  // namespace tq::process
