// What a file's header says about its image.
#pragma once

#include "core/dib.h"
#include "io/byte_stream.h"

namespace tq::dispatch {

// The header of the image at the start of the stream; all 0 when the decoder fails before it has
// one, and kept when it fails afterwards.
Status file_info(StreamHandle stream, BitmapInfoHeader& header);

// How the image is to be turned; unsupported for every format that does not tell.
Status image_orientation(StreamHandle stream);

}  // namespace tq::dispatch
