#include "platform/memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <random>

// With the address sanitizer, requests that are too large get a null pointer, as they do without.
extern "C" const char* __asan_default_options() {  // NOLINT(*-reserved-identifier,*-naming)
  return "allocator_may_return_null=1";
}

namespace tq::platform {
namespace {

TEST(PlatformMemory, OnlyTheStartOfALiveBlockIsABlock) {
  auto* const block = static_cast<std::uint8_t*>(block_alloc(1000));
  ASSERT_NE(block, nullptr);
  std::memset(block, 0x11, 1000);
  EXPECT_EQ(block_size(block), 1000u);
  alignas(16) std::uint8_t foreign[64] = {};
  for (int i = 1; i < 1000; ++i) {
    ASSERT_EQ(block_size(block + i), 0u) << i;
    block_free(block + i);
  }
  EXPECT_EQ(block_size(foreign), 0u);
  EXPECT_EQ(block_size(nullptr), 0u);
  EXPECT_EQ(block_resize(foreign, 100), nullptr);
  EXPECT_EQ(block_resize(nullptr, 100), nullptr);
  block_free(foreign);
  block_free(nullptr);
  EXPECT_EQ(block_size(block), 1000u);
  block_free(block);
  EXPECT_EQ(block_size(block), 0u);
  block_free(block);
  void* const none = block_resize(block_alloc(0), 0);
  EXPECT_NE(block_size(none), 0u) << "no size is a block, too";
  block_free(none);
}

TEST(PlatformMemory, RefusedResizeKeepsTheBlock) {
  auto* const block = static_cast<std::uint8_t*>(block_alloc(16));
  ASSERT_NE(block, nullptr);
  std::memcpy(block, "fifteen letters", 16);
  EXPECT_EQ(block_resize(block, SIZE_MAX - 4096), nullptr);
  EXPECT_EQ(block_size(block), 16u);
  EXPECT_STREQ(reinterpret_cast<const char*>(block), "fifteen letters");
  auto* const larger = static_cast<std::uint8_t*>(block_resize(block, 20000));
  ASSERT_NE(larger, nullptr) << "the block must still be a block";
  EXPECT_STREQ(reinterpret_cast<const char*>(larger), "fifteen letters");
  block_free(larger);
}

TEST(PlatformMemory, ClearedBytesAreZeroAndTheirNeighboursStay) {
  constexpr std::size_t kLarge = std::size_t{67} << 20;
  auto* const block = static_cast<std::uint8_t*>(block_alloc(kLarge));
  ASSERT_NE(block, nullptr);
  for (const std::size_t from : {0u, 4097u}) {
    for (const std::size_t size : {std::size_t{5}, kLarge - 4099}) {
      std::memset(block, 7, kLarge);
      block_clear(block + from, size);
      const auto zeros = std::count(block + from, block + from + size, 0);
      EXPECT_EQ(static_cast<std::size_t>(zeros), size);
      EXPECT_EQ(std::count(block, block + kLarge, 7), static_cast<std::ptrdiff_t>(kLarge - size));
    }
  }
  block_free(block);
}

TEST(PlatformMemory, BlocksComeAndGoInAnyOrder) {
  std::map<std::uint8_t*, std::size_t> live;  // each begins and ends with the low byte of its size
  std::mt19937 random(7);
  const auto take = [&](void* block, std::size_t size) {
    ASSERT_NE(block, nullptr);
    auto* const bytes = static_cast<std::uint8_t*>(block);
    ASSERT_TRUE(live.emplace(bytes, size).second);
    bytes[0] = bytes[size - 1] = static_cast<std::uint8_t>(size);
  };
  for (int step = 0; step < 20000; ++step) {
    // Grows to some 3000 blocks, shrinks to none, and again.
    const bool growing = step / 5000 % 2 == 0;
    const std::size_t size = 1 + random() % (step % 1000 == 0 ? 8u << 20 : 300u);
    if (live.empty() || random() % 5 < (growing ? 4u : 1u)) {
      take(block_alloc(size), size);
      continue;
    }
    const auto chosen = std::next(live.begin(), random() % std::min<std::size_t>(live.size(), 50));
    const auto [block, before] = *chosen;
    live.erase(chosen);
    ASSERT_EQ(block_size(block), before);
    ASSERT_EQ(block[0], static_cast<std::uint8_t>(before));
    ASSERT_EQ(block[before - 1], static_cast<std::uint8_t>(before));
    if (random() % 4 != 0) {
      block_free(block);
      EXPECT_EQ(block_size(block), 0u);
    } else {
      void* const moved = block_resize(block, size);
      if (moved != block) {
        ASSERT_EQ(block_size(block), 0u);
      }
      ASSERT_EQ(static_cast<std::uint8_t*>(moved)[0], static_cast<std::uint8_t>(before));
      take(moved, size);
    }
  }
  for (const auto& [block, size] : live) {
    EXPECT_EQ(block_size(block), size);
    block_free(block);
  }
}

}  // namespace
}  // namespace tq::platform
