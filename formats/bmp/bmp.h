// Windows bitmaps: BMP files and bare DIBs, uncompressed and run-length coded.
#pragma once

#include "formats/codec.h"

namespace tq::formats {

Status decode_bmp(const DecodeRequest& request);

enum BmpVariant : std::int32_t {
  kBmpPlain = 0,
  kBmpRunLengths = 1,  // RLE8, or RLE4 for 4 bits
  kBmpBareDib = 2      // plain, without file header
};
Status encode_bmp(const EncodeRequest& request);

Status can_encode_bmp(
    const EncodeRequest& request);  // wrong_depth for 1 and 24 bits in run lengths

}  // namespace tq::formats
