// Exports that save: images, or rows of a caller's own.
#include "core/abi.h"
#include "dispatch/save.h"
#include "include/tarnquill.h"

using tq::ImageHandle;
using tq::ImageRecord;
using tq::kMemoryStream;
using tq::StreamHandle;

namespace {

std::int32_t save_to(std::int32_t image, StreamHandle stream, std::int32_t code) {
  return tq::with_image(image, [&](ImageRecord&) {
    return tq::dispatch::save_image(ImageHandle{image}, stream, code);
  });
}

// To the memory stream; the number of bytes written.
std::int32_t save_to_memory(std::int32_t image, std::int32_t code) {
  const std::int32_t saved = save_to(image, kMemoryStream, code);
  return saved < 0 ? saved : tq::memory_position();
}

// The header block is the caller's and may lie anywhere.
std::int32_t save_rows(StreamHandle stream, const void* header, std::int32_t code,
                       const tq::formats::RowSupplier& rows) {
  if (header == nullptr) return IMG_BAD_IMAGE;
  tq::HeaderBlock block;
  std::memcpy(&block, header, sizeof block);
  return tq::dispatch::dispatch_save(stream, block, code, rows).raw();
}

}  // namespace

std::int32_t IMG_CALL IMG_save_bitmap(std::int32_t image, const char* name, std::int32_t code) {
  const tq::StreamWork work;
  return tq::with_image(image, [&](ImageRecord&) {
    return tq::dispatch::save_image_file(ImageHandle{image}, name, code);
  });
}

std::int32_t IMG_CALL IMG_save_bitmap_fd(std::int32_t image, std::int32_t stream,
                                         std::int32_t code) {
  const tq::StreamWork work;
  return save_to(image, StreamHandle{stream}, code);
}

std::int32_t IMG_CALL IMG_save_bitmap_mem(std::int32_t image, void* block, std::int32_t code) {
  const tq::StreamWork work;
  if (tq::validate_image_handle(ImageHandle{image}).failed()) return IMG_BAD_HANDLE;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block);
  return save_to_memory(image, code);
}

std::int32_t IMG_CALL IMG_save_bitmap_block(std::int32_t image, void* block, std::size_t size,
                                            std::int32_t code) {
  const tq::StreamWork work;
  if (tq::validate_image_handle(ImageHandle{image}).failed()) return IMG_BAD_HANDLE;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block, size);
  return save_to_memory(image, code);
}

std::int32_t IMG_CALL IMGLOW_save_bitmap(std::int32_t stream, void* header, std::int32_t code,
                                         img_supply_fn supply, void* save_context) {
  const tq::StreamWork work;
  return save_rows(StreamHandle{stream}, header, code, {supply, save_context});
}

std::int32_t IMG_CALL IMGLOW_save_bitmap_mem(void* block, void* header, std::int32_t code,
                                             img_supply_fn supply, void* save_context) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block);
  const std::int32_t saved = save_rows(kMemoryStream, header, code, {supply, save_context});
  return saved < 0 ? saved : tq::memory_position();
}
