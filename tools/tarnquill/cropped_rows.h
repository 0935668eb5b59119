// A rectangle of an image as rows for an encoder. The library's own crop rectangle starts 1- and
// 4-bit rows at a whole byte and is cut at the right and bottom edge; this one is exact.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "options.h"
#include "progress.h"

namespace tool {

class CroppedRows {
 public:
  // `crop` lies inside the image. All must outlive this object.
  CroppedRows(std::int32_t image, const Rect& crop, Progress& progress);

  // Encodes the rectangle; the encoder's result.
  std::int32_t save(std::int32_t stream, std::int32_t code);

 private:
  static std::int32_t IMG_CB_C on_row(void* self, void* dest, std::int32_t y, std::int32_t bytes);
  std::int32_t make_header();
  std::int32_t supply(std::uint8_t* dest, std::int32_t y, std::int32_t bytes);

  std::int32_t image_;
  Rect crop_;
  Progress& progress_;
  int bits_ = 0;
  std::vector<std::uint8_t> row_;  // of the whole image
  std::array<std::uint8_t, IMG_HEADER_BLOCK_BYTES> header_ = {};
};

}  // namespace tool
