// The entries of the PDF module: documents whose pages are pictures, over the streams of a host.
#include "formats/pdf/page/document.h"
#include "modules/entry.h"

namespace {

using tq::Status;
using tq::StatusCode;
using tq::modules::EntryScope;
using tq::pdf::page::Document;
using tq::pdf::page::Page;

constinit tq::modules::Host host;  // set once, before any entry is called
constinit img_decode_coded_fn picture_decoder = nullptr;

// Thousandths of a dot, beside the dots that a header has room for.
struct ExactSink {
  const tq::formats::RowSink& host_sink;
  const tq::formats::DecodeNotes& notes;

  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    const auto& self = *static_cast<const ExactSink*>(context);
    auto& header = static_cast<tq::HeaderBlock*>(block)->header;
    const auto rest = [](std::int32_t exact, std::int32_t dots) {
      return static_cast<std::uint32_t>(exact - 1000 * dots + 1000);
    };
    const auto [x, y] = self.notes.resolution;
    if (x > 0 && y > 0) {
      header.biClrImportant = rest(x, header.biXPelsPerMeter) | rest(y, header.biYPelsPerMeter)
                                                                    << 16;
    }
    return self.host_sink.on_header(block, self.host_sink.context);
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    const auto& sink = static_cast<const ExactSink*>(context)->host_sink;
    return sink.on_row(row, sink.context, y, bytes);
  }
};

}  // namespace

extern "C" {

IMG_PLUGIN_API void IMG_CALL set_callbacks(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                           img_tiff_helper_fn /*helper*/) {
  host = {.read = read, .write = write, .seek = seek, .tiff = nullptr};
}

IMG_PLUGIN_API void IMG_CALL set_picture_decoder(img_decode_coded_fn decode) {
  picture_decoder = decode;
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_pdf(std::uint32_t offset_or_page, img_row_fn row,
                                                void* sink_context, img_header_fn header,
                                                std::int32_t stream) {
  const EntryScope scope(host);
  if (!scope.entered()) return IMG_OUT_OF_MEMORY;
  if (!host.can_read()) return IMG_READ_FAILED;
  tq::formats::DecodeNotes notes;
  const tq::formats::RowSink host_sink{header, row, sink_context};
  ExactSink exact{host_sink, notes};
  bool left_out = false;
  const Status decoded = tq::pdf::page::decode_document(
      tq::modules::decode_request(tq::StreamHandle{stream}, offset_or_page,
                                  {ExactSink::on_header, ExactSink::on_row, &exact, &notes}),
      left_out, picture_decoder);
  if (decoded.failed()) return decoded.raw();
  if (notes.damage == StatusCode::read_failed) return IMG_PLUGIN_DAMAGED;
  if (notes.damage == StatusCode::bad_image) return IMG_PLUGIN_CONTRADICTS;
  return left_out || notes.damage != StatusCode::ok ? IMG_PLUGIN_LEFT_OUT : 0;
}

IMG_PLUGIN_API std::int32_t IMG_CALL count_pages(std::int32_t stream) {
  const EntryScope scope(host);
  if (!scope.entered()) return IMG_OUT_OF_MEMORY;
  if (!host.can_read()) return IMG_READ_FAILED;
  const tq::StreamHandle handle{stream};
  Document document;
  std::int32_t count = 0;
  Status counted = document.open(handle, tq::position(handle));
  if (counted.ok()) counted = tq::pdf::page::count_pages(document.file(), count);
  return counted.ok() ? count : counted.raw();
}

IMG_PLUGIN_API std::int32_t IMG_CALL find_stored_picture(std::int32_t stream, std::int32_t offset,
                                                         std::int32_t page_number,
                                                         img_stored_picture* picture) {
  const EntryScope scope(host);
  if (!scope.entered()) return IMG_OUT_OF_MEMORY;
  if (!host.can_read()) return IMG_READ_FAILED;
  if (picture == nullptr || picture->size != sizeof *picture) return IMG_UNSUPPORTED;
  Document document;
  Page page;
  Status found = document.open(tq::StreamHandle{stream}, offset);
  if (found.ok()) found = find_page(document.file(), page_number, page);
  tq::pdf::page::StoredPicture stored;
  if (found.ok()) found = tq::pdf::page::find_stored_picture(document.file(), page, stored);
  if (found.failed()) return found.raw();
  picture->coding = stored.is_fax ? IMG_STORED_T6 : IMG_STORED_JPEG;
  picture->offset = static_cast<std::int32_t>(stored.offset);
  picture->bytes = static_cast<std::int32_t>(stored.bytes);
  picture->width = stored.width;
  picture->height = stored.height;
  picture->components = stored.components;
  picture->inverted = stored.inverted ? 1 : 0;
  picture->orientation = stored.orientation;
  picture->x_resolution = stored.resolution.x;
  picture->y_resolution = stored.resolution.y;
  return 0;
}

}  // extern "C"
