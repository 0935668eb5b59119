#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include "tests/support/guarded_block.h"

namespace tq::test {

void* map_guarded(std::size_t bytes) {
  void* const pages = VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS);
  if (pages == nullptr || bytes == kGuardPage) return pages;
  return VirtualAlloc(pages, bytes - kGuardPage, MEM_COMMIT, PAGE_READWRITE);
}

void unmap_guarded(void* pages, std::size_t /*bytes*/) {
  VirtualFree(pages, 0, MEM_RELEASE);
}

}  // namespace tq::test
