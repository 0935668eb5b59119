// GIF 87a and 89a. The codec lives in the LZW module; the library reaches it through that.
#pragma once

#include "formats/codec.h"

namespace tq::gif {

// One frame, as large as the frame itself. A page number chooses it; the file then begins where the
// stream stands.
Status decode(const formats::DecodeRequest& request);

// Images of 1, 4 and 8 bits; 89a only for a transparent colour. wrong_depth, or unsupported for
// sides above 65535.
Status encode(const formats::EncodeRequest& request);
Status encode_interlaced(const formats::EncodeRequest& request);

}  // namespace tq::gif
