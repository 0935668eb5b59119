// No drivers.
#include "platform/scan_host.h"

namespace tq::platform {

void* driver_open(const char* /*name*/) {
  return nullptr;
}

void* driver_symbol(void* /*driver*/, const char* /*name*/) {
  return nullptr;
}

void driver_close(void* /*driver*/) {}

bool has_twain() {
  return false;
}

HostResult open_twain_host(TwainHost& /*host*/, void* /*window*/) {
  return HostResult::no_library;
}

void close_twain_host(TwainHost& /*host*/) {}

}  // namespace tq::platform
