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

// What an animation has to know of a frame; decode() gives its pixels.
struct FramePlace {
  std::int32_t left = 0, top = 0, width = 0, height = 0;
  std::int32_t screen_width = 0, screen_height = 0;
  int delay = -1;    // hundredths of a second; negative: the file does not say
  int disposal = 0;  // 2: its rectangle becomes the background; 3: what was there before comes back
  int loops = -1;    // of the file as far as it was read: 0 for ever; negative: it does not say
};

// Of frame `wanted` of the file that begins where the stream stands. page_past_end, bad_image.
Status find_place(StreamHandle stream, std::int32_t wanted, FramePlace& place);

// Images of 1, 4 and 8 bits; 89a only for a transparent colour. wrong_depth, or unsupported for
// sides above 65535.
Status encode(const formats::EncodeRequest& request);
Status encode_interlaced(const formats::EncodeRequest& request);

}  // namespace tq::gif
