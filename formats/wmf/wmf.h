// Windows metafiles: drawing commands that are played, or the one bitmap that they draw.
#pragma once

#include "formats/codec.h"

namespace tq::wmf {

// A metafile that is all of one bitmap arrives as that; else in 24 bits, on white, at most 4096 dots a
// side. Without the header that says how large it is, its window does.
Status decode_wmf(const formats::DecodeRequest& request);

// A metafile that is part of another file, mostly without that header.
struct Part {
  std::int64_t at = 0, end = INT32_MAX;  // in the stream
  std::int32_t width = 0, height = 0;    // of a picture without it, in 1/2540 inch; 0: not known
};
Status decode_part(const formats::DecodeRequest& request, const Part& part);

// A placeable metafile of one bitmap.
Status encode_wmf(const formats::EncodeRequest& request);

// wrong_depth for 16 bits and for cyan, magenta, yellow, black; unsupported for sides above 32767, and
// for more bytes than a record can hold.
Status can_encode_wmf(const formats::EncodeRequest& request);

}  // namespace tq::wmf
