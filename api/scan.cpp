// Exports that scan.
#include <algorithm>
#include <cstring>

#include "api/abi.h"
#include "include/tarnquill.h"
#include "scan/scanner.h"

using tq::ImageHandle;
using tq::Status;

namespace {

std::span<char> text_room(char* text, std::int32_t room) {
  if (text == nullptr || room < 1) return {};
  return std::span(text, room);
}

struct Callback {
  img_scan_fn call;
  std::intptr_t context;

  static Status take(void* self, ImageHandle image, std::int32_t page) {
    const auto& callback = *static_cast<const Callback*>(self);
    const auto handle = static_cast<std::int32_t>(image);
    return Status::from_raw(callback.call(callback.context, handle, page));
  }
};

}  // namespace

std::int32_t IMG_CALL IMG_scan_source(std::int32_t index, char* name, std::int32_t room) {
  const tq::Serialised serialised;
  return tq::scan::find_source(index, text_room(name, room)).raw();
}

std::int32_t IMG_CALL IMG_scan_select(void* window, char* name, std::int32_t room) {
  const tq::Serialised serialised;
  return tq::scan::select_source(window, text_room(name, room)).raw();
}

std::int32_t IMG_CALL IMG_scan_open(void* window, const char* source) {
  const tq::Serialised serialised;
  return tq::scan::open_source(window, source).raw();
}

std::int32_t IMG_CALL IMG_scan_set(std::int32_t option, std::int32_t value) {
  const tq::Serialised serialised;
  return tq::scan::set_option(option, value).raw();
}

std::int32_t IMG_CALL IMG_scan_get(std::int32_t option, std::int32_t* value) {
  const tq::Serialised serialised;
  std::int32_t found = 0;
  const Status status = tq::scan::get_option(option, found);
  if (status.ok()) tq::api::store(value, found);
  return status.raw();
}

std::int32_t IMG_CALL IMG_scan_values(std::int32_t option, std::int32_t* values,
                                      std::int32_t room) {
  const tq::Serialised serialised;
  tq::scan::ValueList list;
  if (values != nullptr && room > 0) list.room = std::span(values, room);
  return tq::scan::list_values(option, list).raw();
}

std::int32_t IMG_CALL IMG_scan_pages(img_scan_fn callback, std::intptr_t context) {
  const tq::Serialised serialised;
  const tq::StreamWork work;
  if (callback == nullptr) return IMG_UNSUPPORTED;
  Callback taker{callback, context};
  return tq::scan::scan_pages(Callback::take, &taker).raw();
}

std::int32_t IMG_CALL IMG_scan_to_files(const char* name, std::int32_t first, std::int32_t code) {
  const tq::Serialised serialised;
  const tq::StreamWork work;
  return tq::scan::scan_to_files(name, first, code).raw();
}

// From any thread, while another one holds the lock.
std::int32_t IMG_CALL IMG_scan_cancel(void) {
  return tq::scan::cancel_scan().raw();
}

std::int32_t IMG_CALL IMG_scan_reason(char* text, std::int32_t room) {
  const tq::Serialised serialised;
  const tq::scan::Reason reason = tq::scan::last_reason();
  const std::span<char> out = text_room(text, room);
  if (!out.empty()) {
    const std::size_t length = std::min(std::strlen(reason.words), out.size() - 1);
    std::copy_n(reason.words, length, out.data());
    out[length] = '\0';
  }
  return reason.code;
}

std::int32_t IMG_CALL IMG_scan_close(void) {
  const tq::Serialised serialised;
  return tq::scan::close_source().raw();
}
