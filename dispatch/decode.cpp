// Detect, look up, call; with an image at the end, or stopped at the header.
#include "core/context.h"
#include "core/image_table.h"
#include "dispatch/dispatch.h"
#include "dispatch/row_sink.h"

namespace tq::dispatch {
namespace {

// Pages are numbers of 31 bits. An offset below 0 is taken as one, too; callers rely on it.
constexpr std::int32_t kPageBits = 0x7FFFFFFF;

std::int32_t IMG_CB_C take_header(void* block, void* context) {
  *static_cast<BitmapInfoHeader*>(context) = static_cast<const HeaderBlock*>(block)->header;
  return IMG_STOP_AFTER_HEADER;
}

// Not into an image alone: the header may be all that is wanted.
Status decode_page(StreamHandle stream, std::int32_t offset, std::int32_t page,
                   const formats::RowSink& sink, const Options& options) {
  seek(stream, offset, Origin::start);
  const FileType* found = nullptr;
  TQ_TRY(detect(stream, found));
  if (found == nullptr || found->decode == nullptr) return StatusCode::unsupported;
  formats::DecodeRequest request{
      .stream = stream, .offset = offset, .sink = sink, .options = options};
  if (page != 0) {
    seek(stream, offset, Origin::start);
    request.page = page & kPageBits;
  } else if (offset < 0) {
    request.page = offset & kPageBits;
  }
  if (request.page >= options.limit(IMG_OPTION_MAX_PAGES, INT64_MAX)) {
    return StatusCode::page_past_end;
  }
  const Status decoded = found->decode(request);
  return decoded.failed() ? decoded : kOk;
}

// The decode has been remembered as the context's last.
Status decode_noted(StreamHandle stream, std::int32_t offset, std::int32_t page,
                    formats::RowSink sink, formats::DecodeNotes& notes) {
  const Options options = context().options;
  notes.most_pixels = options.limit(IMG_OPTION_MAX_PIXELS, INT64_MAX);
  sink.notes = &notes;
  const Status decoded = decode_page(stream, offset, page, sink, options);
  if (decoded.ok()) notes.end();
  context().last_damage = {notes.rows, notes.damage};
  TQ_TRY(decoded);
  return options.get(IMG_OPTION_STRICT) == 1 ? notes.damage : StatusCode::ok;
}

}  // namespace

Status dispatch_decode(StreamHandle stream, std::int32_t offset, std::int32_t page,
                       const formats::RowSink& sink) {
  formats::DecodeNotes notes;
  return decode_noted(stream, offset, page, sink, notes);
}

Status decode_image(StreamHandle stream, std::int32_t offset, std::int32_t page) {
  ImageSlot slot;
  TQ_TRY(slot.allocate());
  ImageSink sink(slot.handle(), slot.record());
  formats::DecodeNotes notes;
  const Status decoded = decode_noted(stream, offset, page, sink.callbacks(), notes);
  // No decoder here makes whole images without the sink.
  if (decoded == StatusCode::whole_image_decoder) return StatusCode::unsupported;
  TQ_TRY(decoded);
  TQ_TRY(sink.finish());
  ImageRecord& image = slot.record();
  image.damage = {notes.rows, notes.damage};
  remember_resolution(image, notes.resolution);
  return slot.keep();
}

Status file_info(StreamHandle stream, std::int32_t page, BitmapInfoHeader& header) {
  header = {};
  if (page < 0) return StatusCode::page_past_end;
  if (page > 0) {
    const FileType* found = nullptr;
    TQ_TRY(detect(stream, found));
    const bool alone = found != nullptr && found->count_pages == nullptr &&
                       (found->traits & formats::kMultiPage) == 0;
    if (alone) return StatusCode::page_past_end;
  }
  const formats::RowSink sink{.on_header = take_header, .context = &header};
  const Status decoded = decode_page(stream, 0, page, sink, context().options);
  return decoded == StatusCode::stop_after_header ? kOk : decoded;
}

Status image_orientation(StreamHandle stream) {
  const FileType* found = nullptr;
  TQ_TRY(detect(stream, found));
  const bool tells = found != nullptr && found->find_orientation != nullptr;
  return tells ? found->find_orientation(stream) : StatusCode::unsupported;
}

}  // namespace tq::dispatch
