// A test that begins and ends with the library as a program finds it: no image, no block, default
// settings.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "core/memory.h"

namespace tq::test {

class LibraryTest : public ::testing::Test {
 protected:
  LibraryTest();
  ~LibraryTest() override;

  // Blocks since the test began.
  std::int64_t blocks() const { return memory_probe::live_blocks() - live_before_; }

 private:
  std::int64_t live_before_;
};

// Fresh memory holds this byte, so that whatever nobody wrote is seen.
inline constexpr std::uint8_t kStale = 0xA5;

// Calls `operation` with its first, second, ... allocation refused, until none is: each refusal
// must be answered by -1 and leave no block behind. Returns the answer of the last call.
template <class Operation>
std::int32_t with_every_refusal(Operation&& operation) {
  for (std::int64_t n = 0;; ++n) {
    const std::int64_t live = memory_probe::live_blocks();
    memory_probe::refuse_after(n);
    const std::int32_t answer = operation();
    const bool refused = memory_probe::refused();
    memory_probe::refuse_after(-1);
    EXPECT_EQ(memory_probe::tracked_blocks(), 0) << "allocation " << n;
    if (!refused) return answer;
    EXPECT_EQ(answer, -1) << "allocation " << n;
    EXPECT_EQ(memory_probe::live_blocks(), live) << "allocation " << n;
  }
}

}  // namespace tq::test
