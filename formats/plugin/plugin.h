// Codecs that live in separately loaded modules: LZW (GIF, TIFF LZW).
#pragma once

#include "formats/codec.h"

namespace tq::formats {

// Whether the module's codecs can be called; no_lzw_module if not.
Status lzw_module_available();

Status decode_gif(const DecodeRequest& request);
Status encode_gif(const EncodeRequest& request);
Status encode_gif_interlaced(const EncodeRequest& request);
Status encode_tiff_lzw(const EncodeRequest& request);

// Frames are not counted, with or without the module; callers rely on the status.
Status count_gif_pages(StreamHandle stream);

}  // namespace tq::formats
