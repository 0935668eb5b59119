// Rows lie in bands, one block each.
#include "formats/pdf/page/canvas.h"

#include <algorithm>

namespace tq::pdf::page {

Canvas::~Canvas() {
  for (std::uint8_t* const band : bands_.pixels()) free_block(band);
}

Status Canvas::allocate(std::int32_t width, std::int32_t height, int bits) {
  constexpr std::ptrdiff_t kBand = 1 << 20;  // bytes
  width_ = width;
  height_ = height;
  bits_ = bits;
  TQ_TRY(white_.allocate(row_bytes(width, bits)));
  stride_ = std::ssize(white_.pixels());
  const std::int64_t used = (std::int64_t{width} * bits + 7) / 8;
  std::fill_n(white_.data(), used, std::uint8_t{0xFF});
  if (bits == 1 && width % 8 != 0) {
    white_[static_cast<std::ptrdiff_t>(used) - 1] = byte(0xFF00 >> width % 8);
  }
  band_rows_ = static_cast<std::int32_t>(std::clamp<std::ptrdiff_t>(kBand / stride_, 1, height));
  return bands_.allocate((height - 1) / band_rows_ + 1);
}

Status Canvas::touch(std::int32_t y, pixels::Row& row) {
  std::uint8_t*& band = band_of(y);
  if (band == nullptr) {
    band = alloc_block(static_cast<std::uint64_t>(stride_) * band_rows_);
    if (band == nullptr) return StatusCode::out_of_memory;
    for (std::int32_t i = 0; i < band_rows_; ++i) {
      std::ranges::copy(white_.pixels(), band + i * stride_);
    }
  }
  row = {band + y % band_rows_ * stride_, static_cast<std::size_t>(stride_)};
  return kOk;
}

pixels::Bytes Canvas::take(std::int32_t y) {
  if (y % band_rows_ == 0 && y > 0) {
    std::uint8_t*& above = band_of(y - 1);
    free_block(above);
    above = nullptr;
  }
  const std::uint8_t* const band = band_of(y);
  if (band == nullptr) return white_.pixels();
  return {band + y % band_rows_ * stride_, static_cast<std::size_t>(stride_)};
}

}  // namespace tq::pdf::page
