// The entries of the LZW module.
#include <cstring>

#include "modules/lzw/gif.h"

namespace gif {

Host& host() {
  static constinit Host functions;
  return functions;
}

namespace {

std::int32_t encode_from(std::int32_t stream, const void* header_block, img_supply_fn supply,
                         void* save_context, bool interlaced) {
  if (host().write == nullptr) return IMG_WRITE_FAILED;
  HeaderBlock image;
  std::memcpy(&image, header_block, sizeof image);
  return encode(stream, image, supply, save_context, interlaced);
}

}  // namespace
}  // namespace gif

extern "C" {

IMG_PLUGIN_API void IMG_CALL set_callbacks(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                           img_tiff_helper_fn /*helper*/) {
  gif::host() = {read, write, seek};
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_gif(std::uint32_t offset_or_page, img_row_fn row,
                                                void* sink_context, img_header_fn header,
                                                std::int32_t stream) {
  if (gif::host().read == nullptr || gif::host().seek == nullptr) return IMG_READ_FAILED;
  return gif::decode(offset_or_page, row, sink_context, header, stream);
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_gif(std::int32_t stream, void* header_block,
                                                img_supply_fn supply, void* save_context) {
  return gif::encode_from(stream, header_block, supply, save_context, false);
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_gifi(std::int32_t stream, void* header_block,
                                                 img_supply_fn supply, void* save_context) {
  return gif::encode_from(stream, header_block, supply, save_context, true);
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
