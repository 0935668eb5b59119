// Nothing can be loaded: a module is there when it has been linked in.
#include "platform/module.h"

#include <cstring>

namespace tq::platform {

void* module_open(const char* stem, bool& unknown) {
  unknown = false;
  for (const LinkedEntry& entry : linked_entries()) {
    if (std::strcmp(entry.stem, stem) == 0) return const_cast<char*>(entry.stem);
  }
  return nullptr;
}

void* module_symbol(void* module, const char* name) {
  for (const LinkedEntry& entry : linked_entries()) {
    const bool is_it = std::strcmp(entry.stem, static_cast<const char*>(module)) == 0 &&
                       std::strcmp(entry.name, name) == 0;
    if (is_it) return entry.address;
  }
  return nullptr;
}

void module_close(void* /*module*/) {}

void at_detach(void (* /*action*/)()) {}

}  // namespace tq::platform
