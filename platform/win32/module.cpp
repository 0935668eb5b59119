// DLLs.
#include "platform/module.h"

#include <atomic>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include "platform/text.h"

namespace {

std::atomic<void (*)()> detach_action = nullptr;

}  // namespace

namespace tq::platform {

void* module_open(const char* stem, bool& unknown) {
  unknown = false;
  char name[64];
  print_text(name, "%s.dll", stem);
  return LoadLibraryA(name);
}

void* module_symbol(void* module, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void module_close(void* module) {
  FreeLibrary(static_cast<HMODULE>(module));
}

void at_detach(void (*action)()) {
  detach_action = action;
}

}  // namespace tq::platform

// When the process ends, `reserved` is not null and other DLLs may be gone already.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID reserved) {
  void (*const action)() = detach_action;
  if (reason == DLL_PROCESS_DETACH && reserved == nullptr && action != nullptr) action();
  return TRUE;
}
