// Decoding a PCX image that is a part of its stream.
#pragma once

#include "formats/pcx/pcx_header.h"

namespace tq::formats {

Status decode_pcx_in(const DecodeRequest& request, const PcxExtent& extent);

}  // namespace tq::formats
