// The last step of all decoders.
#include "modules/ext/decoders.h"
#include "pixels/colours.h"

namespace tq::ext {

Status ColourRows::begin(std::int64_t width, std::int64_t height, const formats::RowSink& sink) {
  if (width < 1 || height < 1 || width > INT32_MAX || height > INT32_MAX) {
    return StatusCode::bad_image;
  }
  sink_ = &sink;
  width_ = static_cast<std::int32_t>(width);
  HeaderBlock image = dib_header(width_, static_cast<std::int32_t>(height), 24);
  TQ_TRY(sink.header(image));
  return row_.allocate(row_bytes(width_, 24));
}

Status ColourRows::put(Bytes pixels, bool has_alpha, bool is_mixed) {
  const auto on_white = [&](int level, int alpha) {
    return is_mixed ? pixels::mixed_on_white(level, alpha) : pixels::on_white(level, alpha);
  };
  const int step = has_alpha ? 4 : 3;
  const std::uint8_t* from = pixels.data();
  std::uint8_t* to = row_.data();
  for (std::int32_t x = 0; x < width_; ++x, from += step, to += 3) {
    const int alpha = has_alpha ? from[3] : 255;
    for (int i = 0; i < 3; ++i) to[2 - i] = has_alpha ? on_white(from[i], alpha) : from[i];
  }
  return sink_->row(row_.pixels(), y_++);
}

}  // namespace tq::ext
