// A module that tells in pixels what it was handed. TEST_MODULE_PARTIAL: without most entries.
#include <cstdint>

#include "tarnquill_plugin.h"

namespace {

img_read_fn read_bytes = nullptr;
[[maybe_unused]] img_write_fn write_bytes = nullptr;
img_seek_fn seek_to = nullptr;
std::uint8_t handed_over = 0;  // how often, since the module was loaded
std::uint8_t helper_says = 0;
std::uint8_t decodes = 0;

// One row of 8 pixels: decodes and hand-overs since the module was loaded, what the helper says,
// the page, then four bytes of the file from 6 on.
std::int32_t tell(std::uint32_t offset_or_page, img_row_fn row, void* context, img_header_fn header,
                  std::int32_t stream) {
  std::uint8_t pixels[8] = {
      ++decodes, handed_over, helper_says,
      static_cast<std::uint8_t>(offset_or_page >> 31 != 0 ? offset_or_page : 0)};
  if (read_bytes != nullptr) {
    if (offset_or_page >> 31 == 0) seek_to(stream, static_cast<std::int32_t>(offset_or_page), 0);
    seek_to(stream, 6, 1);
    if (read_bytes(stream, pixels + 4, 4) != 4) return IMG_READ_FAILED;
  }
  std::uint8_t block[IMG_HEADER_BLOCK_BYTES] = {40};
  block[4] = 8;
  block[8] = 1;
  block[12] = 1;
  block[14] = 8;
  if (const std::int32_t answer = header(block, context); answer < 0) return answer;
  const std::int32_t answer = row(pixels, context, 0, 8);
  return answer < 0 ? answer : 5;
}

#ifndef TEST_MODULE_PARTIAL
std::int32_t write_first_row(std::int32_t stream, img_supply_fn supply, void* context, char mark) {
  std::uint8_t bytes[9] = {static_cast<std::uint8_t>(mark)};
  if (const std::int32_t answer = supply(context, bytes + 1, 0, 8); answer < 0) return answer;
  return write_bytes(stream, bytes, 9) == 9 ? 0 : IMG_WRITE_FAILED;
}
#endif

}  // namespace

extern "C" {

IMG_PLUGIN_API std::int32_t IMG_CALL decode_gif(std::uint32_t offset_or_page, img_row_fn row,
                                                void* context, img_header_fn header,
                                                std::int32_t stream) {
  return tell(offset_or_page, row, context, header, stream);
}

#ifndef TEST_MODULE_PARTIAL
IMG_PLUGIN_API void IMG_CALL set_callbacks(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                           img_tiff_helper_fn helper) {
  read_bytes = read;
  write_bytes = write;
  seek_to = seek;
  helper_says = static_cast<std::uint8_t>(helper == nullptr ? 99 : -helper(nullptr));
  ++handed_over;
}
IMG_PLUGIN_API std::int32_t IMG_CALL encode_gif(std::int32_t stream, void* /*header*/,
                                                img_supply_fn supply, void* context) {
  return write_first_row(stream, supply, context, 'g');
}
IMG_PLUGIN_API std::int32_t IMG_CALL encode_gifi(std::int32_t stream, void* /*header*/,
                                                 img_supply_fn supply, void* context) {
  return write_first_row(stream, supply, context, 'i');
}
IMG_PLUGIN_API std::int32_t IMG_CALL encode_tif(std::int32_t stream, void* /*header*/,
                                                img_supply_fn supply, void* context) {
  return write_first_row(stream, supply, context, 't');
}
IMG_PLUGIN_API std::int32_t IMG_CALL decode_tif(std::uint32_t, img_row_fn, void*, img_header_fn,
                                                std::int32_t) {
  return -71;
}
IMG_PLUGIN_API std::int32_t IMG_CALL decode_pdf(std::uint32_t offset_or_page, img_row_fn row,
                                                void* context, img_header_fn header,
                                                std::int32_t stream) {
  return tell(offset_or_page, row, context, header, stream);
}
IMG_PLUGIN_API std::int32_t IMG_CALL IMG_decomp_abic(std::uint32_t, img_row_fn, void*,
                                                     img_header_fn, std::int32_t) {
  return -72;
}
#endif

}  // extern "C"
