// PNG images, over libpng. Built without it, all functions answer unsupported.
#pragma once

#include "formats/codec.h"

namespace tq::png {

// 16-bit grey stays 16 bits, other 16-bit samples lose their low byte. Transparent pixels are laid
// on white, unless exactly one entry of a palette, or level of grey, is transparent: then it is
// marked.
Status decode_png(const formats::DecodeRequest& request);

Status encode_png(const formats::EncodeRequest& request);

// wrong_depth for other than 1, 4, 8, 16, 24 and 32 bits, and for cyan, magenta, yellow, black.
Status can_encode_png(const formats::EncodeRequest& request);

// A file without transparency and interlace; without libpng, too.
Status find_stored_png(const formats::DecodeRequest& request, formats::StoredPicture& stored);

Status png_available();

}  // namespace tq::png
