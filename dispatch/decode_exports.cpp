// Exports that decode: into images, or into a caller's callbacks.
#include "dispatch/decode.h"
#include "include/tarnquill.h"
#include "io/open_file.h"

using tq::kMemoryStream;
using tq::Status;
using tq::StreamHandle;
using tq::dispatch::decode_image;
using tq::dispatch::dispatch_decode;

namespace {

std::int32_t decode_in_memory(std::int32_t page) {
  return decode_image(kMemoryStream, 0, page).raw();
}

}  // namespace

std::int32_t IMG_CALL IMG_create_handle(void* packed_dib) {
  const tq::StreamWork work;
  if (packed_dib == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(packed_dib);
  return decode_in_memory(0);
}

std::int32_t IMG_CALL IMG_decompress_bitmap(const char* name) {
  const tq::StreamWork work;
  tq::OpenFile file;
  const Status opened = file.open(name, tq::OpenMode::read);
  return opened.failed() ? opened.raw() : decode_image(file.handle(), 0, 0).raw();
}

std::int32_t IMG_CALL IMG_decompress_bitmap_fd(std::int32_t stream, std::int32_t offset,
                                               std::int32_t page) {
  const tq::StreamWork work;
  return decode_image(StreamHandle{stream}, offset, page).raw();
}

std::int32_t IMG_CALL IMG_decompress_bitmap_mem(void* block, std::int32_t page) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block);
  return decode_in_memory(page);
}

std::int32_t IMG_CALL IMG_decompress_bitmap_block(const void* block, std::size_t size,
                                                  std::int32_t page) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(const_cast<void*>(block), size);
  return decode_in_memory(page);
}

std::int32_t IMG_CALL IMGLOW_decompress_bitmap(std::int32_t stream, std::int32_t offset,
                                               std::int32_t page, img_row_fn row,
                                               void* sink_context, img_header_fn header) {
  const tq::StreamWork work;
  return dispatch_decode(StreamHandle{stream}, offset, page, {header, row, sink_context}).raw();
}

std::int32_t IMG_CALL IMGLOW_decompress_bitmap_mem(void* block, std::int32_t page, img_row_fn row,
                                                   void* sink_context, img_header_fn header) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block);
  return dispatch_decode(kMemoryStream, 0, page, {header, row, sink_context}).raw();
}

std::int32_t IMG_CALL IMGLOW_decompress_bitmap_block(const void* block, std::size_t size,
                                                     std::int32_t page, img_row_fn row,
                                                     void* sink_context, img_header_fn header) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(const_cast<void*>(block), size);
  return dispatch_decode(kMemoryStream, 0, page, {header, row, sink_context}).raw();
}
