// Blocks of the platform, large freed ones kept for reuse, and the owner of temporary ones.
#include "core/memory.h"

#include <cstring>
#include <iterator>
#include <utility>

#include "core/context.h"

namespace tq {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kReuse = false;  // a reused block would hide accesses to freed memory
#elif defined(__has_feature)
constexpr bool kReuse = !__has_feature(address_sanitizer);
#else
constexpr bool kReuse = true;
#endif

constexpr std::size_t kSmallestKept = std::size_t{256} << 10;
constexpr std::size_t kMostKept = std::size_t{256} << 20;  // bytes, all together

using KeptBlock = MemoryState::KeptBlock;

MemoryState& state() {
  return context().memory;
}

bool refuse_this_one() {
  if (state().refuse_after < 0 || state().refuse_after-- > 0) return false;
  state().refused = true;
  return true;
}

// Blocks that came from another context may have made it negative.
bool above_limit(std::uint64_t more) {
  const std::int64_t most = context().options.limit(IMG_OPTION_MAX_KBYTES, 0);
  const std::int64_t live = std::max<std::int64_t>(state().live_bytes, 0);
  return most > 0 && static_cast<std::int64_t>(more) > 1024 * most - live;
}

// Bytes `from` to `size` are fresh.
void fill_fresh_bytes(void* block, std::size_t from, std::size_t size) {
  if (state().fill < 0 || from >= size) return;
  std::memset(static_cast<std::uint8_t*>(block) + from, state().fill, size - from);
}

// Freed already: a caller's stale address must not be handed out twice.
bool is_kept(const void* block) {
  return std::any_of(std::begin(state().kept), std::end(state().kept),
                     [&](const KeptBlock& kept) { return kept.block == block; });
}

bool keep_block(void* block, std::size_t size) {
  if (!kReuse || size < kSmallestKept || size > kMostKept) return false;
  std::size_t kept_bytes = size;
  KeptBlock* place = nullptr;
  for (KeptBlock& kept : state().kept) {
    kept_bytes += kept.size;
    if (kept.block == nullptr) place = &kept;
  }
  if (place == nullptr || kept_bytes > kMostKept) {
    // The newest size is the one that will be asked for.
    release_kept_blocks();
    place = &state().kept[0];
  }
  *place = {block, size};
  return true;
}

// A kept block of this size, or somewhat larger and cut to it.
void* take_kept_block(std::size_t size) {
  for (KeptBlock& kept : state().kept) {
    if (kept.block == nullptr || kept.size < size || kept.size - size > kept.size / 8) continue;
    const KeptBlock found = std::exchange(kept, {});
    if (found.size == size) return found.block;
    if (void* cut = platform::block_resize(found.block, size)) return cut;
    platform::block_free(found.block);
  }
  return nullptr;
}

}  // namespace

std::uint8_t* alloc_block(std::uint64_t size) {
  if (size > state().largest || refuse_this_one() || above_limit(size)) return nullptr;
  const auto bytes = static_cast<std::size_t>(size);
  void* block = bytes >= kSmallestKept ? take_kept_block(bytes) : nullptr;
  if (block == nullptr) block = platform::block_alloc(bytes);
  if (block == nullptr) {
    release_kept_blocks();
    block = platform::block_alloc(bytes);
  }
  if (block == nullptr) return nullptr;
  ++state().live;
  state().live_bytes += static_cast<std::int64_t>(platform::block_size(block));
  fill_fresh_bytes(block, 0, bytes);
  return static_cast<std::uint8_t*>(block);
}

std::uint8_t* resize_block(std::uint8_t* block, std::uint64_t size) {
  if (size > state().largest || refuse_this_one()) return nullptr;
  const auto bytes = static_cast<std::size_t>(size);
  const std::size_t before = platform::block_size(block);
  if (bytes > before && above_limit(bytes - before)) return nullptr;
  void* moved = platform::block_resize(block, bytes);
  if (moved == nullptr) {
    release_kept_blocks();
    moved = platform::block_resize(block, bytes);
  }
  if (moved == nullptr) return nullptr;
  state().live_bytes +=
      static_cast<std::int64_t>(platform::block_size(moved)) - static_cast<std::int64_t>(before);
  fill_fresh_bytes(moved, before, bytes);
  return static_cast<std::uint8_t*>(moved);
}

void free_block(void* block) {
  const std::size_t size = platform::block_size(block);
  if (size == 0 || is_kept(block)) return;
  --state().live;
  state().live_bytes -= static_cast<std::int64_t>(size);
  if (!keep_block(block, size)) platform::block_free(block);
}

std::uint8_t* count_block(void* block) {
  ++state().live;
  state().live_bytes += static_cast<std::int64_t>(platform::block_size(block));
  return static_cast<std::uint8_t*>(block);
}

void release_kept_blocks() {
  release_kept_blocks(state());
}
void release_kept_blocks(MemoryState& state) {
  for (KeptBlock& kept : state.kept) platform::block_free(std::exchange(kept, {}).block);
}

GlobalBlock::GlobalBlock(GlobalBlock&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

GlobalBlock& GlobalBlock::operator=(GlobalBlock&& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

GlobalBlock::~GlobalBlock() {
  reset();
}

void GlobalBlock::reset() {
  if (data_ == nullptr) return;
  free_block(data_);
  --state().tracked;
  data_ = nullptr;
  size_ = 0;
}

Status GlobalBlock::allocate(std::uint64_t size) {
  reset();
  data_ = alloc_block(size);
  if (data_ == nullptr) return StatusCode::out_of_memory;
  size_ = static_cast<std::size_t>(size);
  ++state().tracked;
  return kOk;
}

Status GlobalBlock::resize(std::uint64_t size) {
  if (data_ == nullptr) return allocate(size);
  std::uint8_t* moved = resize_block(data_, size);
  if (moved == nullptr) return StatusCode::out_of_memory;
  data_ = moved;
  size_ = static_cast<std::size_t>(size);
  return kOk;
}

std::uint8_t* GlobalBlock::release() {
  if (data_ != nullptr) --state().tracked;
  size_ = 0;
  return std::exchange(data_, nullptr);
}

namespace memory_probe {

void refuse_after(std::int64_t count) {
  state().refuse_after = count;
  state().refused = false;
}
bool refused() {
  return state().refused;
}
void refuse_above(std::uint64_t bytes) {
  state().largest = std::min(bytes, kLargestBlock);
}
void fill_fresh(int byte) {
  state().fill = byte;
}
std::int64_t live_blocks() {
  return state().live;
}
std::int64_t tracked_blocks() {
  return state().tracked;
}

}  // namespace memory_probe

}  // namespace tq
