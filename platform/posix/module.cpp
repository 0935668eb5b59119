// Shared objects.
#include "platform/module.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace tq::platform {
namespace {

constexpr std::size_t kLongestName = 4096;

std::atomic<void (*)()> detach_action = nullptr;

// The directory of the file that this code was loaded from, with its slash; empty when unknown.
void own_directory(char* directory) {
  directory[0] = '\0';
  Dl_info info;
  if (dladdr(reinterpret_cast<const void*>(&module_open), &info) == 0) return;
  const char* slash = std::strrchr(info.dli_fname, '/');
  const std::size_t length = slash == nullptr ? 0 : slash + 1 - info.dli_fname;
  if (length >= kLongestName) return;
  std::memcpy(directory, info.dli_fname, length);
  directory[length] = '\0';
}

bool out_of_descriptors() {
  const int file = open("/", O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno == EMFILE || errno == ENFILE;
  close(file);
  return false;
}

__attribute__((destructor)) void on_detach() {
  if (void (*const action)() = detach_action; action != nullptr) action();
}

}  // namespace

void* module_open(const char* stem, bool& unknown) {
  unknown = false;
  char directory[kLongestName];
  own_directory(directory);
  char name[kLongestName + 64];
  for (const char* const folder : {"", "tarnquill/"}) {
    std::snprintf(name, sizeof name, "%s%s%s.so", directory, folder, stem);
    if (void* module = dlopen(name, RTLD_NOW | RTLD_LOCAL); module != nullptr) return module;
  }
  std::snprintf(name, sizeof name, "%s.so", stem);
  void* const module = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  unknown = module == nullptr && out_of_descriptors();
  return module;
}

void* module_symbol(void* module, const char* name) {
  return dlsym(module, name);
}

void module_close(void* module) {
  dlclose(module);
}

void at_detach(void (*action)()) {
  detach_action = action;
}

}  // namespace tq::platform
