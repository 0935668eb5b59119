// The dots by themselves.
#include "formats/wmf/canvas.h"

namespace tq::wmf {

Status Canvas::open(std::int32_t width, std::int32_t height, std::int64_t most_work) {
  width_ = width;
  height_ = height;
  work_ = most_work;
  stride_ = row_bytes(width, 24);
  TQ_TRY(pixels_.allocate(stride_ * height));
  std::ranges::fill(pixels_.bytes(), std::uint8_t{255});
  return kOk;
}

Status Canvas::deliver(const formats::RowSink& sink) {
  for (std::int32_t y = 0; y < height_; ++y) {
    // What pads a row is 0.
    const pixels::Row dots = row(y);
    std::fill(dots.begin() + 3 * std::ptrdiff_t{width_}, dots.end(), std::uint8_t{0});
    TQ_TRY(sink.row(dots, y));
  }
  return kOk;
}

}  // namespace tq::wmf
