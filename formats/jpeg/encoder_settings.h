// What the next save uses: the one thing that lives from one call to the next here.
#pragma once

#include <array>
#include <cstdint>

#include "formats/jpeg/tables.h"

namespace tq::formats {

struct JpegEncoderSettings {
  std::array<std::uint8_t, kBlock> luminance;  // row by row
  std::array<std::uint8_t, kBlock> chrominance;
  std::int32_t h, v;  // sampling factors of luminance
};

JpegEncoderSettings& jpeg_encoder_settings();

}  // namespace tq::formats
