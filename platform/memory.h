// Memory blocks of the operating system: global memory on Windows, a register of live blocks
// elsewhere. An address that is not the start of a live block is never freed and has no size.
#pragma once

#include <cstddef>

namespace tq::platform {

// A block of `size` uninitialised bytes (a size of 0 gives one byte), or null.
void* block_alloc(std::size_t size);

// The block's new address; null when there is no memory, the old block then stays as it was.
void* block_resize(void* block, std::size_t size);

// Sets `size` bytes inside a block to 0. Where the system can, a large range costs nothing until
// its pages are used.
void block_clear(void* at, std::size_t size);

// An address that is no block is ignored.
void block_free(void* block);

// The size in bytes of the block that starts at `address`; 0 when none does.
std::size_t block_size(const void* address);

}  // namespace tq::platform
