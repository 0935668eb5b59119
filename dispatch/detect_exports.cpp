// Exports that say what a file is and how many pages it has.
#include "dispatch/detect.h"
#include "dispatch/pages.h"
#include "include/tarnquill.h"
#include "io/open_file.h"

namespace {

using tq::Status;
using tq::dispatch::PageQuery;

template <class Query>
std::int32_t with_file(const char* name, Query&& query) {
  tq::OpenFile file;
  const Status opened = file.open(name, tq::OpenMode::read);
  return opened.failed() ? opened.raw() : query(file.handle()).raw();
}

std::int32_t type_in_memory() {
  return tq::dispatch::file_type_code(tq::kMemoryStream).raw();
}

std::int32_t pages_in_memory() {
  return tq::dispatch::count_pages(tq::kMemoryStream, PageQuery::in_memory).raw();
}

}  // namespace

std::int32_t IMG_CALL IMGLOW_get_filetype(const char* name) {
  const tq::StreamWork work;
  return with_file(name, tq::dispatch::file_type_code);
}

std::int32_t IMG_CALL IMGLOW_get_filetype_fd(std::int32_t stream) {
  const tq::StreamWork work;
  return tq::dispatch::file_type_code(tq::StreamHandle{stream}).raw();
}

std::int32_t IMG_CALL IMGLOW_get_filetype_mem(void* block) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block);
  return type_in_memory();
}

std::int32_t IMG_CALL IMGLOW_get_filetype_block(const void* block, std::size_t size) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(const_cast<void*>(block), size);
  return type_in_memory();
}

std::int32_t IMG_CALL IMGLOW_get_pages(const char* name) {
  const tq::StreamWork work;
  return with_file(name, [](tq::StreamHandle stream) {
    return tq::dispatch::count_pages(stream, PageQuery::by_name);
  });
}

std::int32_t IMG_CALL IMGLOW_get_pages_fd(std::int32_t stream) {
  const tq::StreamWork work;
  return tq::dispatch::count_pages(tq::StreamHandle{stream}, PageQuery::by_handle).raw();
}

std::int32_t IMG_CALL IMGLOW_get_pages_mem(void* block) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(block);
  return pages_in_memory();
}

std::int32_t IMG_CALL IMGLOW_get_pages_block(const void* block, std::size_t size) {
  const tq::StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  tq::open_memory_stream(const_cast<void*>(block), size);
  return pages_in_memory();
}
