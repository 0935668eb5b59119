// Exports that count pages and ask for headers without decoding.
#include <cstring>

#include "dispatch/file_info.h"
#include "dispatch/pages.h"
#include "include/tarnquill.h"
#include "io/open_file.h"

namespace {

using tq::Status;
using tq::StreamHandle;
using tq::dispatch::PageQuery;

Status pages_in_memory() {
  return tq::dispatch::count_pages(tq::kMemoryStream, PageQuery::in_memory);
}

// The caller's ten words may lie anywhere, and are filled also after a failure.
Status info_of(StreamHandle stream, void* header_out) {
  tq::BitmapInfoHeader header;
  const Status asked = tq::dispatch::file_info(stream, header);
  if (header_out != nullptr) std::memcpy(header_out, &header, sizeof header);
  return asked;
}

}  // namespace

std::int32_t IMG_CALL IMGLOW_get_pages(const char* name) {
  const tq::StreamWork work;
  return tq::with_file(name,
                       [](StreamHandle stream) {
                         return tq::dispatch::count_pages(stream, PageQuery::by_name);
                       })
      .raw();
}

std::int32_t IMG_CALL IMGLOW_get_pages_fd(std::int32_t stream) {
  const tq::StreamWork work;
  return tq::dispatch::count_pages(StreamHandle{stream}, PageQuery::by_handle).raw();
}

std::int32_t IMG_CALL IMGLOW_get_pages_mem(void* block) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block);
  return pages_in_memory().raw();
}

std::int32_t IMG_CALL IMGLOW_get_pages_block(const void* block, std::size_t size) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(const_cast<void*>(block), size);
  return pages_in_memory().raw();
}

std::int32_t IMG_CALL IMGLOW_get_fileinfo(const char* name, void* header) {
  const tq::StreamWork work;
  return tq::with_file(name, [=](StreamHandle stream) { return info_of(stream, header); }).raw();
}

std::int32_t IMG_CALL IMGLOW_get_fileinfo_fd(std::int32_t stream, void* header) {
  const tq::StreamWork work;
  return info_of(StreamHandle{stream}, header).raw();
}

std::int32_t IMG_CALL IMGLOW_get_fileinfo_mem(void* block, void* header) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block);
  return info_of(tq::kMemoryStream, header).raw();
}

std::int32_t IMG_CALL IMGLOW_get_fileinfo_block(const void* block, std::size_t size, void* header) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(const_cast<void*>(block), size);
  return info_of(tq::kMemoryStream, header).raw();
}

std::int32_t IMG_CALL IMGLOW_get_image_orientation(const char* name) {
  const tq::StreamWork work;
  return tq::with_file(name, tq::dispatch::image_orientation).raw();
}
