// WPG graphics of both versions: their bitmaps. Lines and text are not drawn.
#pragma once

#include "formats/codec.h"

namespace tq::wpg {

// The largest bitmap; unsupported when there is none.
Status decode_wpg(const formats::DecodeRequest& request);

// 1, 4 and 8 bits in runs, 24 bits plain.
Status encode_wpg(const formats::EncodeRequest& request);
// wrong_depth for 16 bits and for cyan, magenta, yellow, black; unsupported for sides above 65535.
Status can_encode_wpg(const formats::EncodeRequest& request);

}  // namespace tq::wpg
