// Separately loaded libraries.
#pragma once

#include <span>

namespace tq::platform {

// Loads the library whose file name is `stem` and the system's ending; null when there is none, or
// when the process has no descriptor left to look for it, which `unknown` then tells.
void* module_open(const char* stem, bool& unknown);
void* module_symbol(void* module, const char* name);  // null when there is none
void module_close(void* module);

// What is done when this library is unloaded; the last one given counts.
void at_detach(void (*action)());

// Where nothing can be loaded: the entries of the modules that are linked in (modules/linked.cpp).
struct LinkedEntry {
  const char* stem;  // the module's
  const char* name;
  void* address;
};
std::span<const LinkedEntry> linked_entries();

}  // namespace tq::platform
