// Windows bitmaps: BMP files and bare DIBs, uncompressed and run-length coded.
#pragma once

#include "formats/codec.h"

namespace tq::bmp {

Status decode(const formats::DecodeRequest& request);

// A bare DIB that is part of another file, as other programs understand it. `end` is where the part
// ends in the stream: plain rows behind it are missing.
Status decode_part(const formats::DecodeRequest& request, std::int64_t end);

enum Variant : std::int32_t {
  kPlain = 0,
  kRunLengths = 1,  // RLE8, or RLE4 for 4 bits
  kBareDib = 2      // plain, without file header
};
Status encode(const formats::EncodeRequest& request);

// wrong_depth for 1 and 24 bits in run lengths.
Status can_encode(const formats::EncodeRequest& request);

// A bare DIB as part of another file: colours of 32 bits become 24.
Status encode_part(const formats::EncodeRequest& request);
std::int64_t part_bytes(const BitmapInfoHeader& header);

}  // namespace tq::bmp
