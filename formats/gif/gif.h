// GIF 87a and 89a. The codec lives in the LZW module; the library reaches it through that.
#pragma once

#include "formats/codec.h"

namespace tq::gif {

// One frame, as large as the frame itself. A page number chooses it; the file then begins where the
// stream stands.
Status decode(const formats::DecodeRequest& request);

// The first frame on the screen of the whole file, as other programs show it. `decode_frame` decodes
// the frame alone, which is all there is when it covers the screen. Around it is the background's
// colour, or white where that is the transparent one. Of the library itself.
Status decode_on_screen(const formats::DecodeRequest& request, formats::Decoder decode_frame);

// Images of 1, 4 and 8 bits; 89a only for a transparent colour. wrong_depth, or unsupported for
// sides above 65535.
Status encode(const formats::EncodeRequest& request);
Status encode_interlaced(const formats::EncodeRequest& request);

}  // namespace tq::gif
