// An image as every program takes it: a packed device-independent bitmap (CF_DIB).
#pragma once

#include "core/image_record.h"

namespace tq::show {

// How many bytes the crop rectangle of an image takes.
std::uint64_t dib_copy_bytes(const ImageRecord& image);

// Writes it; `out` has room for so many. out_of_memory.
Status copy_dib(const ImageRecord& image, std::uint8_t* out);

// The same with alpha of 0 for the transparent colour and 255 for all others, of up to 8 bits
// (CF_DIBV5).
std::uint64_t transparent_dib_bytes(const ImageRecord& image);
Status copy_transparent_dib(const ImageRecord& image, std::uint8_t* out);

}  // namespace tq::show
