// Memory blocks are movable global memory, locked as long as they live: callers pass global blocks
// of their own and may ask for handle and size of ours.
#include "platform/memory.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstring>

namespace tq::platform {
namespace {

// The handle of the block that starts at `address`, or null. GlobalHandle alone also answers for
// some addresses inside a block.
HGLOBAL handle_of(const void* address) {
  if (address == nullptr) return nullptr;
  const HGLOBAL handle = GlobalHandle(address);
  if (handle == nullptr) return nullptr;
  const void* const start = GlobalLock(handle);
  if (start == nullptr) return nullptr;
  GlobalUnlock(handle);
  return start == address ? handle : nullptr;
}

// Global memory of no size would count as discarded.
constexpr std::size_t at_least_one(std::size_t size) {
  return size == 0 ? 1 : size;
}

}  // namespace

void* block_alloc(std::size_t size) {
  const HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE, at_least_one(size));
  if (handle == nullptr) return nullptr;
  void* const block = GlobalLock(handle);
  if (block == nullptr) GlobalFree(handle);
  return block;
}

void* block_resize(void* block, std::size_t size) {
  const HGLOBAL handle = handle_of(block);
  if (handle == nullptr) return nullptr;
  GlobalUnlock(handle);
  const HGLOBAL resized = GlobalReAlloc(handle, at_least_one(size), GMEM_MOVEABLE);
  if (resized == nullptr) {
    GlobalLock(handle);  // the old block stays in use
    return nullptr;
  }
  return GlobalLock(resized);
}

void block_clear(void* at, std::size_t size) {
  std::memset(at, 0, size);
}

void block_free(void* block) {
  const HGLOBAL handle = handle_of(block);
  if (handle == nullptr) return;
  GlobalUnlock(handle);
  GlobalFree(handle);
}

std::size_t block_size(const void* address) {
  const HGLOBAL handle = handle_of(address);
  if (handle == nullptr || (GlobalFlags(handle) & GMEM_DISCARDED) != 0) return 0;
  return GlobalSize(handle);
}

}  // namespace tq::platform
