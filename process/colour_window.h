// The current and the next row of a diffusion that reads its image from the top.
#pragma once

#include <type_traits>
#include <utility>

#include "process/image_source.h"
#include "process/kernels.h"

namespace tq::process {

// A colour whose channels may leave 0 .. 255: blue, green, red, unused.
struct WideColour {
  WideColour() = default;
  explicit WideColour(Rgb c) : channel{c.blue, c.green, c.red, 0} {}
  std::int32_t channel[4];
};

// Errors may leave the row by two pixels at either end; what lands there is never read.
template <class Pixel>
class ColourWindow {
 public:
  static constexpr int kMargin = 2;

  explicit ColourWindow(const ImageSource& image) : image_(image) {}

  Status allocate() {
    if constexpr (!std::is_same_v<Pixel, Rgb>) TQ_TRY(colours_.allocate(image_.width()));
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

  Pixel* current() const { return rows_[0].data(); }
  Pixel* next() const { return rows_[1].data(); }

 private:
  void load(std::int32_t y) {
    if constexpr (std::is_same_v<Pixel, Rgb>) {
      image_.read_colours(y, rows_[1].pixels());
    } else {
      image_.read_colours(y, colours_.pixels());
      kernels().widen_channels(colours_.data(), rows_[1].data(), image_.width());
    }
  }

  const ImageSource& image_;
  RowBuffer<Rgb> colours_;
  RowBuffer<Pixel, kMargin> rows_[2];
};

}  // namespace tq::process
