// GIF files as other programs show them: the first frame on the screen of the whole file.
#pragma once

#include "formats/codec.h"

namespace tq::gif {

// `decode_frame` decodes the frame alone, which is all there is when it covers the screen. Around it is
// the background's colour, or white where that is the transparent one.
Status decode_on_screen(const formats::DecodeRequest& request, formats::Decoder decode_frame);

}  // namespace tq::gif
