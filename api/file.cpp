// Exports that describe the formats, and say what a file is, how many pages it has and what its
// header tells.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "api/abi.h"
#include "dispatch/dispatch.h"
#include "formats/tiff/tiff.h"
#include "include/tarnquill.h"

using tq::Status;
using tq::StreamHandle;
using tq::api::with_file;
using tq::api::with_memory;
using tq::api::with_stream;
using tq::dispatch::file_type_code;
using tq::formats::FileType;
using tq::formats::kMultiPage;
using tq::formats::kUnreported;
using tq::formats::PageQuery;

namespace {

auto pages(PageQuery query) {
  return [=](StreamHandle stream) { return tq::dispatch::count_pages(stream, query); };
}

// The caller's ten words may lie anywhere, and are filled also after a failure.
auto info(void* header_out, std::int32_t page = 0) {
  return [=](StreamHandle stream) {
    tq::BitmapInfoHeader header;
    const Status asked = tq::dispatch::file_info(stream, page, header);
    if (header_out != nullptr) std::memcpy(header_out, &header, sizeof header);
    return asked;
  };
}

struct Tag {
  std::int32_t page, tag;
  std::int32_t *type, *count;
  void* buffer;
  std::int32_t bytes;

  Status operator()(StreamHandle stream) const {
    tq::tiff::TagValue value;
    if (buffer != nullptr && bytes > 0)
      value.room = std::span(static_cast<std::uint8_t*>(buffer), bytes);
    const Status found = tq::tiff::find_tiff_tag(stream, page, tag, value);
    tq::api::store(type, value.type);
    tq::api::store(count, value.count);
    return found;
  }
};

template <std::size_t kSize>
void copy_text(std::string_view text, char (&field)[kSize]) {
  std::fill(std::copy(text.begin(), text.end(), field), field + kSize, '\0');
}

// `read_by` is the format that `type` is a variant of, or itself.
std::int32_t flags_of(const FileType& type, const FileType& read_by) {
  std::int32_t flags = 0;
  const auto set = [&](bool condition, std::int32_t flag) { flags |= condition ? flag : 0; };
  set(read_by.read_depths != 0, IMG_FORMAT_READS);
  set(type.write_depths != 0, IMG_FORMAT_WRITES);
  set(read_by.count_pages != nullptr || (type.traits & kMultiPage) != 0, IMG_FORMAT_PAGES);
  set(type.write_depths != 0 && (type.traits & kMultiPage) != 0, IMG_FORMAT_APPENDS);
  set(read_by.test != nullptr && (type.traits & kUnreported) == 0, IMG_FORMAT_DETECTED);
  set(type.available != nullptr && type.available().failed(), IMG_FORMAT_MODULE);
  return flags;
}

}  // namespace

std::int32_t IMG_CALL IMG_get_format(std::int32_t index, img_format* format) {
  const std::span<const FileType> types = tq::dispatch::file_types();
  if (index < 0 || index >= std::ssize(types) || format == nullptr) return IMG_UNSUPPORTED;
  if (format->size < static_cast<std::int32_t>(sizeof *format)) return IMG_UNSUPPORTED;
  const FileType& type = types[index];
  // A variant that is refused is not read either.
  const bool is_read_as_other = type.variant_of >= 0 && type.write_depths != 0;
  const FileType* read_by = is_read_as_other ? tq::dispatch::find_code(type.variant_of) : &type;
  format->code = type.code;
  format->flags = flags_of(type, *read_by);
  format->read_depths = read_by->read_depths;
  format->write_depths = type.write_depths;
  copy_text(type.name, format->name);
  copy_text(type.title, format->title);
  copy_text(type.ending, format->extension);
  return IMG_OK;
}

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
  return with_file(name, pages(tq::formats::kByFileName));
}
std::int32_t IMG_CALL IMGLOW_get_pages_fd(std::int32_t stream) {
  return with_stream(stream, pages(tq::formats::kByHandle));
}
std::int32_t IMG_CALL IMGLOW_get_pages_mem(void* block) {
  return with_memory(block, pages(tq::formats::kInMemory));
}
std::int32_t IMG_CALL IMGLOW_get_pages_block(const void* block, std::size_t size) {
  return with_memory(block, size, pages(tq::formats::kInMemory));
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

std::int32_t IMG_CALL IMGLOW_get_image_orientation_fd(std::int32_t stream) {
  return with_stream(stream, tq::dispatch::image_orientation);
}
std::int32_t IMG_CALL IMGLOW_get_image_orientation_block(const void* block, std::size_t size) {
  return with_memory(block, size, tq::dispatch::image_orientation);
}

std::int32_t IMG_CALL IMGLOW_get_fileinfo_page(const char* name, std::int32_t page, void* header) {
  return with_file(name, info(header, page));
}
std::int32_t IMG_CALL IMGLOW_get_fileinfo_page_fd(std::int32_t stream, std::int32_t page,
                                                  void* header) {
  return with_stream(stream, info(header, page));
}
std::int32_t IMG_CALL IMGLOW_get_fileinfo_page_block(const void* block, std::size_t size,
                                                     std::int32_t page, void* header) {
  return with_memory(block, size, info(header, page));
}

std::int32_t IMG_CALL IMGLOW_get_tiff_tag(const char* name, std::int32_t page, std::int32_t tag,
                                          std::int32_t* type, std::int32_t* count, void* buffer,
                                          std::int32_t bytes) {
  return with_file(name, Tag{page, tag, type, count, buffer, bytes});
}
std::int32_t IMG_CALL IMGLOW_get_tiff_tag_fd(std::int32_t stream, std::int32_t page,
                                             std::int32_t tag, std::int32_t* type,
                                             std::int32_t* count, void* buffer,
                                             std::int32_t bytes) {
  return with_stream(stream, Tag{page, tag, type, count, buffer, bytes});
}
std::int32_t IMG_CALL IMGLOW_get_tiff_tag_mem(void* block, std::int32_t page, std::int32_t tag,
                                              std::int32_t* type, std::int32_t* count, void* buffer,
                                              std::int32_t bytes) {
  return with_memory(block, Tag{page, tag, type, count, buffer, bytes});
}
std::int32_t IMG_CALL IMGLOW_get_tiff_tag_block(const void* block, std::size_t size,
                                                std::int32_t page, std::int32_t tag,
                                                std::int32_t* type, std::int32_t* count,
                                                void* buffer, std::int32_t bytes) {
  return with_memory(block, size, Tag{page, tag, type, count, buffer, bytes});
}
