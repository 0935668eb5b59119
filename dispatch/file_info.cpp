// A decode that stops at the header.
#include "dispatch/file_info.h"

#include "dispatch/decode.h"
#include "dispatch/detect.h"

namespace tq::dispatch {
namespace {

std::int32_t IMG_CB_C take_header(void* block, void* context) {
  *static_cast<BitmapInfoHeader*>(context) = static_cast<const HeaderBlock*>(block)->header;
  return IMG_STOP_AFTER_HEADER;
}

}  // namespace

Status file_info(StreamHandle stream, BitmapInfoHeader& header) {
  header = {};
  const formats::RowSink sink{.on_header = take_header, .context = &header};
  const Status decoded = dispatch_decode(stream, 0, 0, sink);
  return decoded == StatusCode::stop_after_header ? kOk : decoded;
}

Status image_orientation(StreamHandle stream) {
  const FileType* found = nullptr;
  TQ_TRY(detect(stream, found));
  return StatusCode::unsupported;  // the formats that know it have no decoder
}

}  // namespace tq::dispatch
