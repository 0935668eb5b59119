// Detect, look up, call; and the same with an image at the end.
#include "dispatch/decode.h"

#include "core/image_table.h"
#include "dispatch/detect.h"
#include "dispatch/row_sink.h"

namespace tq::dispatch {
namespace {

constexpr std::uint32_t kPageFlag = 0x80000000;

}  // namespace

Status dispatch_decode(StreamHandle stream, std::int32_t offset, std::int32_t page,
                       const formats::RowSink& sink) {
  seek(stream, offset, Origin::start);
  const FileType* found = nullptr;
  TQ_TRY(detect(stream, found));
  if (found == nullptr || found->decode == nullptr) return StatusCode::unsupported;
  auto offset_or_page = static_cast<std::uint32_t>(offset);
  if (page != 0) {
    seek(stream, offset, Origin::start);
    offset_or_page = static_cast<std::uint32_t>(page) | kPageFlag;
  }
  const Status decoded = found->decode({stream, offset_or_page, sink});
  return decoded.failed() ? decoded : kOk;
}

Status decode_image(StreamHandle stream, std::int32_t offset, std::int32_t page) {
  ImageSlot slot;
  TQ_TRY(slot.allocate());
  ImageSink sink(slot.handle(), slot.record());
  const Status decoded = dispatch_decode(stream, offset, page, sink.callbacks());
  // No decoder here makes whole images without the sink.
  if (decoded == StatusCode::whole_image_decoder) return StatusCode::unsupported;
  TQ_TRY(decoded);
  TQ_TRY(sink.finish());
  return slot.keep();
}

}  // namespace tq::dispatch
