// From the integers and addresses of the interface to records and streams: every export that takes
// an image or a block of memory goes through here.
#pragma once

#include "core/context.h"
#include "core/image_table.h"
#include "io/byte_stream.h"

namespace tq::api {

// Calls `operation(record)` for a valid handle.
template <class Operation>
std::int32_t with_image(std::int32_t handle, Operation&& operation) {
  const Serialised serialised;
  const ImageHandle image{handle};
  if (const Status valid = validate_image_handle(image); valid.failed()) return valid.raw();
  return Status(operation(image_record(image))).raw();
}

// The same for operations that need a header or pixels.
template <class Operation>
std::int32_t with_pixels(std::int32_t handle, Operation&& operation) {
  return with_image(handle, [&](ImageRecord& image) -> Status {
    if (image.dib == nullptr) return StatusCode::out_of_memory;
    return operation(image);
  });
}

// The same for what changes pixels or colours.
template <class Operation>
std::int32_t change_pixels(std::int32_t handle, Operation&& operation) {
  const std::int32_t result = with_pixels(handle, [&](ImageRecord& image) {
    release_display_cache(image);
    return Status(operation(image));
  });
  if (result >= 0) report_image(handle, ImageEvent::changed);
  return result;
}

// For results that are a new image's handle, or a status.
inline std::int32_t made(std::int32_t result) {
  if (result >= 0) report_image(result, ImageEvent::made);
  return result;
}

// Calls `operation(stream)` for an open stream of the caller's.
template <class Operation>
std::int32_t with_stream(std::int32_t stream, Operation&& operation) {
  const Serialised serialised;
  const StreamWork work;
  return Status(operation(StreamHandle{stream})).raw();
}

// The same for a file that is opened for reading; cannot_open.
template <class Operation>
std::int32_t with_file(const char* name, Operation&& operation) {
  const Serialised serialised;
  const StreamWork work;
  OpenFile file;
  if (const Status opened = file.open(name, OpenMode::read); opened.failed()) return opened.raw();
  const ReadAhead ahead(file.handle());
  return Status(operation(file.handle())).raw();
}

// The same for the memory stream over a block; unsupported for a null one. Without a size the block
// tells its own, or is trusted.
template <class Operation>
std::int32_t with_memory(const void* block, Operation&& operation) {
  const Serialised serialised;
  const StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  open_memory_stream(const_cast<void*>(block));
  return Status(operation(kMemoryStream)).raw();
}
template <class Operation>
std::int32_t with_memory(const void* block, std::size_t size, Operation&& operation) {
  const Serialised serialised;
  const StreamWork work;
  if (block == nullptr) return IMG_UNSUPPORTED;
  open_memory_stream(const_cast<void*>(block), size);
  return Status(operation(kMemoryStream)).raw();
}

// Out pointers of the interface may be null.
template <class Value>
void store(Value* out, Value value) {
  if (out != nullptr) *out = value;
}

}  // namespace tq::api
