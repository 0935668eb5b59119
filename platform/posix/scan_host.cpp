// Shared objects of drivers. There is no TWAIN.
#include "platform/scan_host.h"

#include <dlfcn.h>

namespace tq::platform {

void* driver_open(const char* name) {
  return dlopen(name, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
}

void* driver_symbol(void* driver, const char* name) {
  return dlsym(driver, name);
}

void driver_close(void* driver) {
  dlclose(driver);
}

bool has_twain() {
  return false;
}

HostResult open_twain_host(TwainHost& /*host*/, void* /*window*/) {
  return HostResult::no_library;
}

void close_twain_host(TwainHost& /*host*/) {}

}  // namespace tq::platform
