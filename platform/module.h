// Separately loaded libraries.
#pragma once

namespace tq::platform {

// Loads the library whose file name is `stem` and the system's ending; null when there is none, or
// when the process has no descriptor left to look for it, which `unknown` then tells.
void* module_open(const char* stem, bool& unknown);
void* module_symbol(void* module, const char* name);  // null when there is none
void module_close(void* module);

// What is done when this library is unloaded; the last one given counts.
void at_detach(void (*action)());

}  // namespace tq::platform
