// Opening, finding, decoding.
#include "formats/pdf/page/document.h"

namespace tq::pdf::page {

Status Document::open(StreamHandle stream, std::int64_t start) {
  if (start < 0) return StatusCode::read_failed;
  const auto unlock = [](void* context, objects::File& file) {
    return static_cast<objects::Encryption*>(context)->unlock(file);
  };
  file_.set_unlocker({&encryption_, unlock});
  return file_.open(stream, start);
}

Status decode_document(const formats::DecodeRequest& request, bool& left_out,
                       objects::PictureDecoder decoder) {
  Document document;
  Page page;
  document.file().set_picture_decoder(decoder);
  TQ_TRY(document.open(request.stream, request.start()));
  TQ_TRY(find_page(document.file(), request.has_page() ? request.page : 0, page));
  return decode_page(document.file(), page, request.sink, left_out);
}

}  // namespace tq::pdf::page
