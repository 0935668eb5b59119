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

}  // namespace tq::test
