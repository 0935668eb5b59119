// FlashPix: a picture in several sizes, each in tiles, within a compound file.
#pragma once

#include "formats/codec.h"

namespace tq::fpx {

// The largest size of the picture, grey or in colours; what is more or less opaque is put on white.
// Tiles that are missing or damaged are white. bad_image for a compound file without a picture,
// unsupported for other documents and other channels.
Status decode_fpx(const formats::DecodeRequest& request);

}  // namespace tq::fpx
