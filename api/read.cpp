// Exports that decode: into images, or into a caller's callbacks.
#include "api/abi.h"
#include "dispatch/dispatch.h"
#include "include/tarnquill.h"

using tq::StreamHandle;
using tq::api::made;
using tq::api::with_file;
using tq::api::with_memory;
using tq::api::with_stream;

namespace {

// What takes an open stream, as an image from there or into callbacks.
auto image_at(std::int32_t offset, std::int32_t page) {
  return [=](StreamHandle stream) { return tq::dispatch::decode_image(stream, offset, page); };
}
auto rows_at(std::int32_t offset, std::int32_t page, const tq::formats::RowSink& sink) {
  return [=](StreamHandle stream) {
    return tq::dispatch::dispatch_decode(stream, offset, page, sink);
  };
}

}  // namespace

std::int32_t IMG_CALL IMG_create_handle(void* packed_dib) {
  return made(with_memory(packed_dib, image_at(0, 0)));
}

std::int32_t IMG_CALL IMG_create_handle_block(const void* dib_or_file, std::size_t size) {
  return made(with_memory(dib_or_file, size, image_at(0, 0)));
}

std::int32_t IMG_CALL IMG_decompress_bitmap(const char* name) {
  return made(with_file(name, image_at(0, 0)));
}

std::int32_t IMG_CALL IMG_decompress_bitmap_fd(std::int32_t stream, std::int32_t offset,
                                               std::int32_t page) {
  return made(with_stream(stream, image_at(offset, page)));
}

std::int32_t IMG_CALL IMG_decompress_bitmap_mem(void* block, std::int32_t page) {
  return made(with_memory(block, image_at(0, page)));
}

std::int32_t IMG_CALL IMG_decompress_bitmap_block(const void* block, std::size_t size,
                                                  std::int32_t page) {
  return made(with_memory(block, size, image_at(0, page)));
}

std::int32_t IMG_CALL IMGLOW_decompress_bitmap(std::int32_t stream, std::int32_t offset,
                                               std::int32_t page, img_row_fn row,
                                               void* sink_context, img_header_fn header) {
  return with_stream(stream, rows_at(offset, page, {header, row, sink_context}));
}

std::int32_t IMG_CALL IMGLOW_decompress_bitmap_mem(void* block, std::int32_t page, img_row_fn row,
                                                   void* sink_context, img_header_fn header) {
  return with_memory(block, rows_at(0, page, {header, row, sink_context}));
}

std::int32_t IMG_CALL IMGLOW_decompress_bitmap_block(const void* block, std::size_t size,
                                                     std::int32_t page, img_row_fn row,
                                                     void* sink_context, img_header_fn header) {
  return with_memory(block, size, rows_at(0, page, {header, row, sink_context}));
}
