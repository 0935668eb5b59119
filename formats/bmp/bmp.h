// Windows bitmaps: BMP files and bare DIBs, uncompressed and run-length coded.
#pragma once

#include "formats/codec.h"

namespace tq::bmp {

Status decode(const formats::DecodeRequest& request);

enum Variant : std::int32_t {
  kPlain = 0,
  kRunLengths = 1,  // RLE8, or RLE4 for 4 bits
  kBareDib = 2      // plain, without file header
};
Status encode(const formats::EncodeRequest& request);

// wrong_depth for 1 and 24 bits in run lengths.
Status can_encode(const formats::EncodeRequest& request);

}  // namespace tq::bmp
