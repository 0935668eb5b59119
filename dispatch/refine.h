// The compression variant of a detected TIFF, BMP or GIF, read from the stream's current position.
#pragma once

#include "io/byte_stream.h"

namespace tq::dispatch {

Status refine_tiff(StreamHandle stream);  // by the Compression tag of the first IFD; unsupported
Status refine_bmp(StreamHandle stream);   // by biCompression
Status refine_gif(StreamHandle stream);   // by the interlace flag; bad_image if the file ends first

}  // namespace tq::dispatch
