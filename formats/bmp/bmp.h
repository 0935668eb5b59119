// Windows bitmaps: BMP files and bare DIBs, uncompressed and run-length coded.
#pragma once

#include "formats/codec.h"

namespace tq::formats {

Status decode_bmp(const DecodeRequest& request);

Status encode_bmp(const EncodeRequest& request);      // uncompressed, with file header
Status encode_bmp_rle(const EncodeRequest& request);  // RLE8, or RLE4 for 4 bits
Status encode_dib(const EncodeRequest& request);      // uncompressed, without file header

Status can_encode_bmp_rle(const EncodeRequest& request);  // wrong_depth for 1 and 24 bits

}  // namespace tq::formats
