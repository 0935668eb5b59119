// No window system whose contexts could be drawn on.
#include "platform/surface.h"

namespace tq::platform {

bool query_surface(void* /*context*/, Surface& /*found*/) {
  return false;
}

Drawing::Drawing(void* context) : context_(context) {}
Drawing::~Drawing() = default;
bool Drawing::to_device(Box& /*box*/) const {
  return context_ != nullptr && saved_ != 0;
}
bool Drawing::begin() {
  return false;
}
Box Drawing::clip() const {
  return {};
}
bool Drawing::put(const Box& /*to*/, const void* /*header*/, const void* /*rows*/,
                  std::int32_t /*from_x*/, std::uint32_t /*operation*/) const {
  return false;
}
bool Drawing::stretch(const Box& /*to*/, const void* /*header*/, const void* /*rows*/,
                      std::uint32_t /*operation*/) const {
  return false;
}
bool Drawing::read(const Box& /*from*/, void* /*rows*/) const {
  return false;
}

PrintJob::~PrintJob() = default;
bool PrintJob::open(const char* /*printer*/, std::int32_t& /*copies*/, bool& no_printer) {
  no_printer = true;
  return false;
}
bool PrintJob::begin(const char* /*title*/, const char* /*output_file*/) {
  return begun_;
}
void* PrintJob::begin_page(bool /*landscape*/) {
  return context_ != nullptr ? mode_ : nullptr;
}
bool PrintJob::end_page() {
  return false;
}
bool PrintJob::end() {
  return false;
}

void wait_milliseconds(std::int32_t /*time*/) {}

Clipboard put_on_clipboard(void* /*window*/, const ClipboardItem* /*items*/, int /*count*/) {
  return Clipboard::taken;
}
Clipboard take_from_clipboard(void* /*window*/,
                              void (* /*take*/)(void* self, const void* bytes, std::size_t size),
                              void* /*self*/) {
  return Clipboard::nothing;
}

bool has_surfaces() {
  return false;
}

}  // namespace tq::platform
