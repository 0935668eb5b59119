// Exports that say what a file is.
#include "dispatch/detect.h"
#include "include/tarnquill.h"
#include "io/open_file.h"

namespace {

std::int32_t type_in_memory() {
  return tq::dispatch::file_type_code(tq::kMemoryStream).raw();
}

}  // namespace

std::int32_t IMG_CALL IMGLOW_get_filetype(const char* name) {
  const tq::StreamWork work;
  return tq::with_file(name, tq::dispatch::file_type_code).raw();
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
