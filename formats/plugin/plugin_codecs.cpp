// Forwards codec calls to the modules, and the library's stream functions to them.
#include "core/plugin_modules.h"
#include "formats/plugin/plugin.h"

namespace tq::formats {
namespace {

std::span<std::uint8_t> bytes_of(void* buffer, std::int32_t count) {
  if (buffer == nullptr || count < 0) return {};
  return {static_cast<std::uint8_t*>(buffer), static_cast<std::size_t>(count)};
}

std::int32_t IMG_CB_C read_stream(std::int32_t stream, void* buffer, std::int32_t count) {
  return read_fully(StreamHandle{stream}, bytes_of(buffer, count));
}
std::int32_t IMG_CB_C write_stream(std::int32_t stream, void* buffer, std::int32_t count) {
  return write(StreamHandle{stream}, bytes_of(buffer, count));
}
std::int32_t IMG_CB_C seek_stream(std::int32_t stream, std::int32_t offset, std::int32_t origin) {
  return seek(StreamHandle{stream}, offset, static_cast<Origin>(origin));
}
std::int32_t IMG_CB_C no_tiff_helper() {
  return IMG_UNSUPPORTED;
}

constexpr int kDeepestGif = 8, kLargestGifSide = 65535;

constexpr ModuleCallbacks kCallbacks = {read_stream, write_stream, seek_stream, no_tiff_helper};

// Modules are promised callbacks that can be called.
std::int32_t IMG_CB_C any_header(void* /*header*/, void* /*context*/) {
  return 1;
}
std::int32_t IMG_CB_C any_row(void* /*row*/, void* /*context*/, std::int32_t /*y*/,
                              std::int32_t /*bytes*/) {
  return 0;
}
std::int32_t IMG_CB_C no_row(void* /*context*/, void* /*dest*/, std::int32_t /*y*/,
                             std::int32_t /*bytes*/) {
  return IMG_UNSUPPORTED;
}

Status decode(const PluginCall& call, const DecodeRequest& request) {
  const RowSink& sink = request.sink;
  // The top bit set: a page number in the other 31.
  const std::uint32_t offset_or_page =
      request.has_page() ? 0x80000000 | request.page : request.offset;
  return Status::from_raw(call.function<img_plugin_decode_fn>()(
      offset_or_page, sink.on_row == nullptr ? any_row : sink.on_row, sink.context,
      sink.on_header == nullptr ? any_header : sink.on_header,
      static_cast<std::int32_t>(request.stream)));
}

Status encode(const PluginCall& call, const EncodeRequest& request) {
  const RowSupplier& rows = request.rows;
  return Status::from_raw(call.function<img_plugin_encode_fn>()(
      static_cast<std::int32_t>(request.stream), request.image,
      rows.on_row == nullptr ? no_row : rows.on_row, rows.context));
}

Status lzw_available(PluginEntry entry) {
  PluginCall call;
  return call.begin(entry, kCallbacks);
}

Status decode_lzw(PluginEntry entry, const DecodeRequest& request) {
  PluginCall call;
  TQ_TRY(call.begin(entry, kCallbacks));
  return decode(call, request);
}

Status encode_lzw(PluginEntry entry, const EncodeRequest& request) {
  PluginCall call;
  TQ_TRY(call.begin(entry, kCallbacks));
  return encode(call, request);
}

}  // namespace

Status decode_gif(const DecodeRequest& request) {
  return decode_lzw(PluginEntry::decode_gif, request);
}
Status encode_gif(const EncodeRequest& request) {
  const bool interlaced = request.variant() == kGifInterlaced;
  return encode_lzw(interlaced ? PluginEntry::encode_gif_interlaced : PluginEntry::encode_gif,
                    request);
}
Status decode_tiff_lzw(const DecodeRequest& request) {
  return decode_lzw(PluginEntry::decode_tiff_lzw, request);
}
Status encode_tiff_lzw(const EncodeRequest& request) {
  return encode_lzw(PluginEntry::encode_tiff_lzw, request);
}

Status can_encode_gif(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  if (header.biBitCount > kDeepestGif) return StatusCode::wrong_depth;
  const bool fits = header.biWidth <= kLargestGifSide && header.biHeight <= kLargestGifSide;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

Status gif_encoder_available() {
  return lzw_available(PluginEntry::encode_gif);
}
Status gif_interlaced_encoder_available() {
  return lzw_available(PluginEntry::encode_gif_interlaced);
}
Status tiff_lzw_encoder_available() {
  return lzw_available(PluginEntry::encode_tiff_lzw);
}

Status decode_pdf_by_module(const DecodeRequest& request, bool& available) {
  PluginCall call;
  const Status loaded = call.begin(PluginEntry::decode_pdf, kCallbacks);
  available = loaded.ok();
  TQ_TRY(loaded);
  return decode(call, request);
}

Status decode_abic(const DecodeRequest& request) {
  PluginCall call;
  TQ_TRY(call.begin(PluginEntry::decode_abic, kCallbacks));
  return decode(call, request);
}

Status count_gif_pages(StreamHandle /*stream*/) {
  return StatusCode::no_lzw_module;
}

}  // namespace tq::formats
