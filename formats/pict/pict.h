// PICT: of the drawing commands of a picture those that draw bitmaps.
#pragma once

#include "formats/codec.h"

namespace tq::pict {

// One bitmap that is the whole picture arrives as it is; others are put together in 24 bits, on
// white. unsupported when there is none.
Status decode_pict(const formats::DecodeRequest& request);

Status encode_pict(const formats::EncodeRequest& request);

// wrong_depth for 16 bits and for cyan, magenta, yellow, black; unsupported for sides above 32767,
// and for rows above 16382 bytes (4095 pixels of colour).
Status can_encode_pict(const formats::EncodeRequest& request);

}  // namespace tq::pict
