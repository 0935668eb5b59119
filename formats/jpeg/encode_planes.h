// Rows of pixels to planes of samples, one MCU row at a time.
#pragma once

#include <array>

#include "core/memory.h"
#include "formats/codec.h"
#include "formats/jpeg/encode_header.h"
#include "formats/jpeg/kernels.h"

namespace tq::formats {

// How the rows that are supplied hold their pixels.
enum class Pixels : std::uint8_t { grey, palette, bgr, four };

Status choose_pixels(const HeaderBlock& image, Pixels& pixels);

struct Plane {
  std::int16_t* samples = nullptr;
  std::ptrdiff_t stride = 0;  // samples
  int width = 0;              // samples that come from pixels
  int padded_width = 0;
  int h = 1, v = 1;  // blocks of an MCU
};

class Planes {
 public:
  // The request and the frame have to live as long as this.
  Status allocate(const EncodeRequest& request, Pixels pixels, const EncodedFrame& frame);

  int mcus() const { return mcus_; }
  const Plane& operator[](int i) const { return planes_[i]; }

  // From row `top` of the picture on.
  Status load(int top);

 private:
  bool has_chroma(int y) const { return y % frame_->v == 0; }
  std::int16_t* row_of(int i, int y) const {
    return planes_[i].samples + planes_[i].stride * (i == 0 ? y : y / frame_->v);
  }
  const std::uint8_t* greys();
  const std::uint8_t* colours();
  void convert(int y);
  void repeat_last(int y);

  const EncodeRequest* request_ = nullptr;
  const EncodedFrame* frame_ = nullptr;
  Pixels pixels_ = Pixels::bgr;
  bool ramp_ = false;  // every index is its own grey level
  JpegKernels kernels_{};
  int mcus_ = 0;
  std::array<Plane, kMostEncodedComponents> planes_{};
  GlobalBlock samples_;
  RowBuffer<std::uint8_t> row_;        // as it is supplied
  RowBuffer<std::uint8_t> looked_up_;  // as the kernels take it
  std::size_t row_bytes_ = 0;
};

}  // namespace tq::formats
