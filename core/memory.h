// All memory of the library: blocks, and the two objects that own temporary ones.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

#include "core/status.h"
#include "platform/memory.h"

namespace tq {

// No block is larger: its size and every offset in it fit 31 bits with room to spare.
inline constexpr std::uint64_t kLargestBlock = 0x7FFFFFFF - 64 * 1024;

// Uninitialised bytes, or null: no memory, or a size above kLargestBlock. Sizes are 64 bits wide so
// that width times height never wraps on its way here. Large freed blocks are kept for the next
// request of their size, because fresh pages cost more than filling them.
std::uint8_t* alloc_block(std::uint64_t size);

// The block's new address; null on failure, the old block then stays as it was.
std::uint8_t* resize_block(std::uint8_t* block, std::uint64_t size);

// An address that is no block is ignored.
void free_block(void* block);

// From now on a block of the platform's that came from elsewhere counts as one from alloc_block.
std::uint8_t* count_block(void* block);

// Gives blocks that are kept for reuse back to the system: those of the calling thread's context, or
// of another one.
struct MemoryState;
void release_kept_blocks();
void release_kept_blocks(MemoryState& state);

// Owns one block; moves, does not copy.
class GlobalBlock {
 public:
  GlobalBlock() = default;
  GlobalBlock(GlobalBlock&& other) noexcept;
  GlobalBlock& operator=(GlobalBlock&& other) noexcept;
  GlobalBlock(const GlobalBlock&) = delete;
  GlobalBlock& operator=(const GlobalBlock&) = delete;
  ~GlobalBlock();

  // Takes `size` uninitialised bytes; what was held before is freed.
  Status allocate(std::uint64_t size);
  Status resize(std::uint64_t size);  // keeps the bytes; on failure keeps the old block
  std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }
  std::span<std::uint8_t> bytes() const { return {data_, size_}; }
  std::uint8_t* release();  // hands the block over

 private:
  void reset();
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

// A row of pixels with kMargin spare ones at both ends, all zero: a kernel may reach past the
// row by that much without a test.
template <class Pixel, int kMargin = 0>
class RowBuffer {
  static_assert(std::is_trivially_copyable_v<Pixel>);

 public:
  Status allocate(std::int64_t width) {
    if (width < 0) return StatusCode::out_of_memory;
    const std::uint64_t pixels = width;
    TQ_TRY(block_.allocate((pixels + 2 * kMargin) * sizeof(Pixel)));
    platform::block_clear(block_.data(), block_.size());
    width_ = static_cast<std::size_t>(width);
    return kOk;
  }
  Pixel* data() const { return reinterpret_cast<Pixel*>(block_.data()) + kMargin; }
  std::size_t size() const { return width_; }
  std::span<Pixel> pixels() const { return {data(), width_}; }
  Pixel& operator[](std::ptrdiff_t x) const { return with_margins()[x + kMargin]; }

 private:
  std::span<Pixel> with_margins() const {
    return {reinterpret_cast<Pixel*>(block_.data()), width_ + 2 * kMargin};
  }
  GlobalBlock block_;
  std::size_t width_ = 0;
};

// What the tests of failure paths need: every allocation can be refused, every block is counted,
// and fresh blocks can hold what would give stale bytes away.
namespace memory_probe {

// Refuses the allocation after `count` more have succeeded, once; a negative count: none.
void refuse_after(std::int64_t count);
bool refused();  // whether that has happened
// Refuses larger blocks, as a small machine does; kLargestBlock at first.
void refuse_above(std::uint64_t bytes);

// Fills fresh memory with this byte; a negative value leaves it as the system hands it out.
void fill_fresh(int byte);

std::int64_t live_blocks();     // blocks handed out and not freed
std::int64_t tracked_blocks();  // of them, those that a GlobalBlock owns: 0 between calls

}  // namespace memory_probe

}  // namespace tq
