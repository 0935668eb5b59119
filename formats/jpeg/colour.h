// Colour conversion of rows of samples, both ways.
#pragma once

#include <array>
#include <cstdint>

namespace tq::formats {

// YCbCr to blue, green, red. The second form has one chroma sample per two pixels.
void ycc_to_bgr(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                std::uint8_t* bgr, int width);
void ycc_to_bgr_halved(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                       std::uint8_t* bgr, int width);

// Rows of the encoder: pixels to samples centred on 0. Chroma is taken from every `step`-th pixel.
void bgr_to_luma(const std::uint8_t* bgr, std::int16_t* y, int width);
void bgr_to_chroma(const std::uint8_t* bgr, int step, std::int16_t* cb, std::int16_t* cr,
                   int width);
void bgr_to_ycc(const std::uint8_t* bgr, int step, std::int16_t* y, std::int16_t* cb,
                std::int16_t* cr, int width);
void grey_to_luma(const std::uint8_t* grey, std::int16_t* y, int width);

}  // namespace tq::formats
