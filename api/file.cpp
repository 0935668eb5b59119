// Exports that say what a file is, how many pages it has and what its header tells.
#include <cstring>

#include "api/abi.h"
#include "dispatch/detect.h"
#include "dispatch/file_info.h"
#include "dispatch/pages.h"
#include "include/tarnquill.h"

using tq::Status;
using tq::StreamHandle;
using tq::api::with_file;
using tq::api::with_memory;
using tq::api::with_stream;
using tq::dispatch::file_type_code;
using tq::dispatch::PageQuery;

namespace {

auto pages(PageQuery query) {
  return [=](StreamHandle stream) { return tq::dispatch::count_pages(stream, query); };
}

// The caller's ten words may lie anywhere, and are filled also after a failure.
auto info(void* header_out) {
  return [=](StreamHandle stream) {
    tq::BitmapInfoHeader header;
    const Status asked = tq::dispatch::file_info(stream, header);
    if (header_out != nullptr) std::memcpy(header_out, &header, sizeof header);
    return asked;
  };
}

}  // namespace

std::int32_t IMG_CALL IMGLOW_get_filetype(const char* name) {
  return with_file(name, file_type_code);
}
std::int32_t IMG_CALL IMGLOW_get_filetype_fd(std::int32_t stream) {
  return with_stream(stream, file_type_code);
}
std::int32_t IMG_CALL IMGLOW_get_filetype_mem(void* block) {
  return with_memory(block, file_type_code);
}
std::int32_t IMG_CALL IMGLOW_get_filetype_block(const void* block, std::size_t size) {
  return with_memory(block, size, file_type_code);
}

std::int32_t IMG_CALL IMGLOW_get_pages(const char* name) {
  return with_file(name, pages(PageQuery::by_name));
}
std::int32_t IMG_CALL IMGLOW_get_pages_fd(std::int32_t stream) {
  return with_stream(stream, pages(PageQuery::by_handle));
}
std::int32_t IMG_CALL IMGLOW_get_pages_mem(void* block) {
  return with_memory(block, pages(PageQuery::in_memory));
}
std::int32_t IMG_CALL IMGLOW_get_pages_block(const void* block, std::size_t size) {
  return with_memory(block, size, pages(PageQuery::in_memory));
}

std::int32_t IMG_CALL IMGLOW_get_fileinfo(const char* name, void* header) {
  return with_file(name, info(header));
}
std::int32_t IMG_CALL IMGLOW_get_fileinfo_fd(std::int32_t stream, void* header) {
  return with_stream(stream, info(header));
}
std::int32_t IMG_CALL IMGLOW_get_fileinfo_mem(void* block, void* header) {
  return with_memory(block, info(header));
}
std::int32_t IMG_CALL IMGLOW_get_fileinfo_block(const void* block, std::size_t size, void* header) {
  return with_memory(block, size, info(header));
}

std::int32_t IMG_CALL IMGLOW_get_image_orientation(const char* name) {
  return with_file(name, tq::dispatch::image_orientation);
}
