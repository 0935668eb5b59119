// The entries of the LZW module: codecs of the library's own making, over the streams of a host.
#include <cstring>

#include "formats/gif/gif.h"
#include "tarnquill_plugin.h"

namespace {

// Without a function that it needs a codec reads and writes nothing.
struct Host {
  bool reads = false, writes = false;
};
constinit Host host;

constexpr std::uint32_t kPage = 0x80000000;  // a page number, not an offset

std::int32_t encode(tq::formats::Encoder encoder, std::int32_t stream, const void* header_block,
                    img_supply_fn supply, void* save_context) {
  if (!host.writes) return IMG_WRITE_FAILED;
  tq::HeaderBlock image;
  std::memcpy(&image, header_block, sizeof image);  // at any address
  return encoder({tq::StreamHandle{stream}, &image, {supply, save_context}}).raw();
}

}  // namespace

extern "C" {

IMG_PLUGIN_API void IMG_CALL set_callbacks(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                           img_tiff_helper_fn /*helper*/) {
  tq::set_caller_io(read, write, seek);
  host = {.reads = read != nullptr && seek != nullptr, .writes = write != nullptr};
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_gif(std::uint32_t offset_or_page, img_row_fn row,
                                                void* sink_context, img_header_fn header,
                                                std::int32_t stream) {
  if (!host.reads) return IMG_READ_FAILED;
  tq::formats::DecodeRequest request{.stream = tq::StreamHandle{stream},
                                     .sink = {header, row, sink_context}};
  if (offset_or_page >= kPage) {
    request.page = offset_or_page - kPage;
  } else {
    request.offset = offset_or_page;
  }
  return tq::gif::decode(request).raw();
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_gif(std::int32_t stream, void* header_block,
                                                img_supply_fn supply, void* save_context) {
  return encode(tq::gif::encode, stream, header_block, supply, save_context);
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_gifi(std::int32_t stream, void* header_block,
                                                 img_supply_fn supply, void* save_context) {
  return encode(tq::gif::encode_interlaced, stream, header_block, supply, save_context);
}

// LZW rows of TIFF files need the TIFF codec around them.
IMG_PLUGIN_API std::int32_t IMG_CALL decode_tif(std::uint32_t /*offset_or_page*/,
                                                img_row_fn /*row*/, void* /*sink_context*/,
                                                img_header_fn /*header*/, std::int32_t /*stream*/) {
  return IMG_UNSUPPORTED;
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_tif(std::int32_t /*stream*/, void* /*header_block*/,
                                                img_supply_fn /*supply*/, void* /*save_context*/) {
  return IMG_UNSUPPORTED;
}

}  // extern "C"
