// Memory blocks from malloc, and a register of the live ones: it tells the start of a block of
// ours from any other address that a caller may hand in.
#include "platform/memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/thread.h"

namespace tq::platform {
namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kLargeClear = std::size_t{64} << 20;  // smaller ones are quick

struct Entry {
  std::uintptr_t address;  // 0: free place
  std::size_t size;        // bytes, as requested
};

// Hash table with linear probing, at most half full. The first places are static, so that small
// programs need no table of their own and an unloaded library that has freed its blocks leaves
// nothing behind.
class Register {
 public:
  Entry* find(const void* block) {
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    if (address == 0) return nullptr;
    Entry& entry = entries_[place_of(address)];
    return entry.address == address ? &entry : nullptr;
  }

  // Makes room for one more block.
  bool reserve() {
    if (2 * (count_ + 1) <= places_) return true;
    if (places_ > SIZE_MAX / (2 * sizeof(Entry))) return false;
    auto* larger = static_cast<Entry*>(std::calloc(2 * places_, sizeof(Entry)));
    if (larger == nullptr) return false;
    Entry* const old = entries_;
    const std::size_t old_places = places_;
    entries_ = larger;
    places_ = 2 * old_places;
    for (std::size_t i = 0; i < old_places; ++i) {
      if (old[i].address != 0) entries_[place_of(old[i].address)] = old[i];
    }
    if (old == first_) {
      std::fill_n(first_, kFirstPlaces, Entry{});  // they come into use again
    } else {
      std::free(old);
    }
    return true;
  }

  void insert(const void* block, std::size_t size) {
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    entries_[place_of(address)] = {address, size};
    ++count_;
  }

  // Entries behind the gap move up where their probing passes it, so that no search stops early.
  void remove(Entry* entry) {
    std::size_t gap = entry - entries_;
    for (std::size_t i = next(gap); entries_[i].address != 0; i = next(i)) {
      const std::size_t way = (i - home_of(entries_[i].address)) & (places_ - 1);
      if (way >= ((i - gap) & (places_ - 1))) {
        entries_[gap] = entries_[i];
        gap = i;
      }
    }
    entries_[gap] = {};
    --count_;
    if (count_ == 0 && entries_ != first_) {
      std::free(entries_);
      entries_ = first_;
      places_ = kFirstPlaces;
    }
  }

 private:
  static constexpr std::size_t kFirstPlaces = 64;

  std::size_t next(std::size_t place) const { return (place + 1) & (places_ - 1); }
  std::size_t home_of(std::uintptr_t address) const {
    // Fibonacci hashing: blocks are 16 bytes apart, the product's high half depends on all bits.
    const std::uint64_t product = std::uint64_t{address} * 0x9E3779B97F4A7C15u;
    return static_cast<std::size_t>(product >> 32) & (places_ - 1);
  }
  // Where this address is, or would be put.
  std::size_t place_of(std::uintptr_t address) const {
    std::size_t place = home_of(address);
    while (entries_[place].address != 0 && entries_[place].address != address) place = next(place);
    return place;
  }

  Entry first_[kFirstPlaces] = {};
  Entry* entries_ = first_;
  std::size_t places_ = kFirstPlaces;  // a power of two
  std::size_t count_ = 0;
};

// One for all threads: blocks pass from one to the other.
constinit Lock register_lock;
constinit Register live_blocks;

#if defined(__linux__) && defined(MADV_HUGEPAGE)

constexpr std::size_t kLargeBlock = 2 * kHugePage;  // from here on an aligned huge page fits in

// Large blocks to come that are not worth a try.
constinit std::atomic<int> blocks_without_huge_pages = 0;

// Where memory is in pieces the system moves others' pages to make a huge one, which takes four times as
// long as the small pages in its place.
bool takes_long(std::uint8_t* page) {
  constexpr std::int64_t kLong = 1'500'000;  // nanoseconds
  const auto now = [] {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
  };
  const std::int64_t start = now();
  volatile std::uint8_t& first = *page;
  first = first;  // a resized block has bytes in it
  return now() - start > kLong;
}

// Fewer and cheaper page faults on first touch; a system that refuses changes nothing. All pages of
// the block, for what is advised of a part makes two mappings, and the system moves a block that grows
// without copying it only if it is one. The first huge page says how it will be with the others.
void prefer_huge_pages(void* block, std::size_t size) {
  constexpr int kSkipped = 16;
  if (size < kLargeBlock) return;
  if (blocks_without_huge_pages > 0) {
    --blocks_without_huge_pages;
    return;
  }
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  auto* const start = static_cast<std::uint8_t*>(block);
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  const std::size_t lead = address % page;
  const std::size_t pages = (lead + size + page - 1) / page * page;
  if (madvise(start - lead, pages, MADV_HUGEPAGE) != 0) return;
  if (!takes_long(start + (kHugePage - address % kHugePage) % kHugePage)) return;
  madvise(start - lead, pages, MADV_NOHUGEPAGE);
  blocks_without_huge_pages = kSkipped;
}

#else
void prefer_huge_pages(void* /*block*/, std::size_t /*size*/) {}
#endif

// Gives pages back, of which the system makes empty ones when they are used again; false when it
// does not.
bool drop_pages(void* start, std::size_t size) {
#ifdef __linux__  // elsewhere the pages may keep their bytes
  return madvise(start, size, MADV_DONTNEED) == 0;
#else
  static_cast<void>(start);
  static_cast<void>(size);
  return false;
#endif
}

constexpr std::size_t at_least_one(std::size_t size) {
  return size == 0 ? 1 : size;
}

}  // namespace

void* block_alloc(std::size_t size) {
  void* const block = std::malloc(at_least_one(size));
  if (block == nullptr) return nullptr;
  {
    const Locked locked(register_lock);
    if (live_blocks.reserve()) {
      live_blocks.insert(block, at_least_one(size));
    } else {
      std::free(block);
      return nullptr;
    }
  }
  prefer_huge_pages(block, size);
  return block;
}

void* block_resize(void* block, std::size_t size) {
  // Nobody may be given the old address before it is out of the register.
  const Locked locked(register_lock);
  Entry* const entry = live_blocks.find(block);
  if (entry == nullptr) return nullptr;
  void* const moved = std::realloc(block, at_least_one(size));
  if (moved == nullptr) return nullptr;
  if (moved == block) {
    entry->size = at_least_one(size);
  } else {
    live_blocks.remove(entry);
    live_blocks.insert(moved, at_least_one(size));
  }
  prefer_huge_pages(moved, size);
  return moved;
}

void block_clear(void* at, std::size_t size) {
  auto* const bytes = static_cast<std::uint8_t*>(at);
  if (size >= kLargeClear) {
    const std::size_t lead = kHugePage - reinterpret_cast<std::uintptr_t>(at) % kHugePage;
    const std::size_t whole = (size - lead) / kHugePage * kHugePage;
    if (drop_pages(bytes + lead, whole)) {
      std::memset(bytes, 0, lead);
      std::memset(bytes + lead + whole, 0, size - lead - whole);
      return;
    }
  }
  std::memset(bytes, 0, size);
}

void block_free(void* block) {
  {
    const Locked locked(register_lock);
    Entry* const entry = live_blocks.find(block);
    if (entry == nullptr) return;
    live_blocks.remove(entry);
  }
  std::free(block);
}

std::size_t block_size(const void* address) {
  const Locked locked(register_lock);
  const Entry* const entry = live_blocks.find(address);
  return entry == nullptr ? 0 : entry->size;
}

}  // namespace tq::platform
