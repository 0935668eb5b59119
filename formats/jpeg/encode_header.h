// The segments in front of an encoded picture.
#pragma once

#include "formats/codec.h"
#include "formats/jpeg/encoder_settings.h"

namespace tq::formats {

inline constexpr int kMostEncodedComponents = 4;

struct EncodedFrame {
  int width = 0, height = 0;
  int count = 0;     // of components: 1, 3 or 4
  int h = 1, v = 1;  // sampling factors of the first; the others have 1
  int x_density = 0, y_density = 0;
};

// write_failed when not all of it could be written.
Status write_jpeg_header(StreamHandle stream, const EncodedFrame& frame,
                         const JpegEncoderSettings& settings);

}  // namespace tq::formats
