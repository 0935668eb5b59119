// Exports that save images, or rows of a caller's own, and that set how JPEG files are written.
#include <cstring>

#include "api/abi.h"
#include "dispatch/dispatch.h"
#include "formats/jpeg/jpeg.h"
#include "include/tarnquill.h"

using tq::ImageHandle;
using tq::ImageRecord;
using tq::Status;
using tq::StreamHandle;
using tq::api::with_file;
using tq::api::with_image;
using tq::api::with_memory;
using tq::api::with_stream;

namespace {

auto save_image(std::int32_t image, std::int32_t code) {
  return [=](StreamHandle stream) {
    return Status::from_raw(with_image(image, [=](ImageRecord&) {
      return tq::dispatch::save_image(ImageHandle{image}, stream, code);
    }));
  };
}

// The header block is the caller's and may lie anywhere.
auto save_rows(const void* header, std::int32_t code, const tq::formats::RowSupplier& rows) {
  return [=](StreamHandle stream) -> Status {
    if (header == nullptr) return tq::StatusCode::bad_image;
    tq::HeaderBlock block;
    std::memcpy(&block, header, sizeof block);
    return tq::dispatch::dispatch_save(stream, block, code, rows);
  };
}

// The result of a save to memory is the number of bytes written.
template <class Save>
auto bytes_of(Save save) {
  return [=](StreamHandle memory) {
    const Status saved = save(memory);
    return saved.failed() ? saved : Status::from_raw(tq::memory_position());
  };
}

}  // namespace

std::int32_t IMG_CALL IMG_save_bitmap(std::int32_t image, const char* name, std::int32_t code) {
  const tq::Serialised serialised;
  const tq::StreamWork work;
  return with_image(image, [&](ImageRecord&) {
    return tq::dispatch::save_image_file(ImageHandle{image}, name, code);
  });
}

std::int32_t IMG_CALL IMG_save_bitmap_fd(std::int32_t image, std::int32_t stream,
                                         std::int32_t code) {
  return with_stream(stream, save_image(image, code));
}

std::int32_t IMG_CALL IMG_save_bitmap_mem(std::int32_t image, void* block, std::int32_t code) {
  return with_image(image, [&](ImageRecord&) {
    return Status::from_raw(with_memory(block, bytes_of(save_image(image, code))));
  });
}

std::int32_t IMG_CALL IMG_save_bitmap_block(std::int32_t image, void* block, std::size_t size,
                                            std::int32_t code) {
  return with_image(image, [&](ImageRecord&) {
    return Status::from_raw(with_memory(block, size, bytes_of(save_image(image, code))));
  });
}

std::int32_t IMG_CALL IMGLOW_save_bitmap(std::int32_t stream, void* header, std::int32_t code,
                                         img_supply_fn supply, void* save_context) {
  return with_stream(stream, save_rows(header, code, {supply, save_context}));
}

std::int32_t IMG_CALL IMGLOW_save_bitmap_mem(void* block, void* header, std::int32_t code,
                                             img_supply_fn supply, void* save_context) {
  return with_memory(block, bytes_of(save_rows(header, code, {supply, save_context})));
}

std::int32_t IMG_CALL IMGLOW_save_bitmap_block(void* block, std::size_t size, void* header,
                                               std::int32_t code, img_supply_fn supply,
                                               void* save_context) {
  return with_memory(block, size, bytes_of(save_rows(header, code, {supply, save_context})));
}

std::int32_t IMG_CALL IMG_copy_page(const char* source, std::int32_t page, const char* target,
                                    std::int32_t code) {
  return with_file(source, [=](StreamHandle stream) {
    return tq::dispatch::copy_page_to_file({stream, 0, page, source}, target, code);
  });
}

std::int32_t IMG_CALL IMG_copy_page_fd(std::int32_t source, std::int32_t offset, std::int32_t page,
                                       std::int32_t target, std::int32_t code) {
  return with_stream(source, [=](StreamHandle stream) {
    return tq::dispatch::copy_page_to_stream({stream, offset, page, nullptr}, StreamHandle{target},
                                             code);
  });
}

std::int32_t IMG_CALL IMG_convert_page_fd(std::int32_t source, std::int32_t offset,
                                          std::int32_t page, std::int32_t target,
                                          std::int32_t code) {
  return with_stream(source, [=](StreamHandle stream) {
    return tq::dispatch::convert_page({stream, offset, page, nullptr}, StreamHandle{target}, code);
  });
}

std::int32_t IMG_CALL IMGLOW_set_comp_quality(std::int32_t quality) {
  const tq::Serialised serialised;
  tq::jpeg::set_jpeg_quality(quality);
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_jpg_interleave(std::int32_t h, std::int32_t v) {
  const tq::Serialised serialised;
  tq::jpeg::set_jpeg_sampling(h, v);
  return IMG_OK;
}
