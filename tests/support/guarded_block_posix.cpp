#include <sys/mman.h>

#include "tests/support/guarded_block.h"

namespace tq::test {

void* map_guarded(std::size_t bytes) {
  void* const pages =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) return nullptr;
  std::uint8_t* const last = static_cast<std::uint8_t*>(pages) + (bytes - kGuardPage);
  return mprotect(last, kGuardPage, PROT_NONE) == 0 ? pages : nullptr;
}

void unmap_guarded(void* pages, std::size_t bytes) {
  munmap(pages, bytes);
}

}  // namespace tq::test
