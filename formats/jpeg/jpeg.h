// JPEG (ITU-T T.81): baseline, extended and progressive Huffman streams are read, baseline ones
// written.
#pragma once

#include "formats/codec.h"

namespace tq::jpeg {

Status decode_jpeg(const formats::DecodeRequest& request);

Status encode_jpeg(const formats::EncodeRequest& request);

// wrong_depth for other than 8, 24 and 32 bits; unsupported for sides above 65535 and for sampling
// factors that no file can have.
Status can_encode_jpeg(const formats::EncodeRequest& request);

// What later saves use. The quality is taken as 1..100; factors are checked by the save.
void set_jpeg_quality(std::int32_t quality);
void set_jpeg_sampling(std::int32_t horizontal, std::int32_t vertical);

}  // namespace tq::jpeg
