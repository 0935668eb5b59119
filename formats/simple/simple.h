// Raster formats of one file each: a header, maybe a colour table, and rows.
#pragma once

#include "formats/codec.h"

namespace tq::simple {

// Sun raster. Pictures of two colours keep 1 bit when these are black and white.
Status decode_sun(const formats::DecodeRequest& request);
Status encode_sun(const formats::EncodeRequest& request);

// wrong_depth for 16 bits and for cyan, magenta, yellow, black; unsupported for more bytes of pixels
// than their field can hold.
Status can_encode_sun(const formats::EncodeRequest& request);

}  // namespace tq::simple
