// From the integers of the interface to records: every export that takes an image goes through
// here.
#pragma once

#include "core/image_table.h"

namespace tq {

// Calls `operation(record)` for a valid handle.
template <class Operation>
std::int32_t with_image(std::int32_t handle, Operation&& operation) {
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

// Out pointers of the interface may be null.
template <class Value>
void store(Value* out, Value value) {
  if (out != nullptr) *out = value;
}

}  // namespace tq
