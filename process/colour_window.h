// The current and the next row of a diffusion that reads its image from the top.
#pragma once

#include <utility>

#include "process/image_source.h"

namespace tq::process {

// Errors may leave the row by two pixels at either end; what lands there is never read.
class ColourWindow {
 public:
  static constexpr int kMargin = 2;

  explicit ColourWindow(const ImageSource& image) : image_(image) {}

  Status allocate() {
    TQ_TRY(rows_[0].allocate(image_.width()));
    return rows_[1].allocate(image_.width());
  }

  // Call for every row from the top. After it `current` is row y with the errors it has received,
  // `next` is the row below as it is in the image.
  void move_to(std::int32_t y) {
    if (y == 0) load(0);
    std::swap(rows_[0], rows_[1]);
    load(y + 1 < image_.height() ? y + 1 : y);
  }

  Rgb* current() const { return rows_[0].data(); }
  Rgb* next() const { return rows_[1].data(); }

 private:
  void load(std::int32_t y) { image_.read_colours(y, rows_[1].pixels()); }

  const ImageSource& image_;
  RowBuffer<Rgb, kMargin> rows_[2];
};

}  // namespace tq::process
