// A TWAIN manager with one source in place of the system's: it gives the pages that it is told to,
// checks the state before every call, counts handles, and fails where it is told to.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "scan/twain.h"

namespace tq::test {

class FakeTwain {
 public:
  using Bytes = std::vector<std::uint8_t>;

  explicit FakeTwain(bool modern = false);  // from now on TWAIN's manager is this
  FakeTwain(const FakeTwain&) = delete;
  FakeTwain& operator=(const FakeTwain&) = delete;
  ~FakeTwain();  // closes the session: no state may be left, and no handle

  struct Page {
    std::int16_t type = scan::twain::kGrey, bits = 8;
    std::int32_t width = 0, height = 0;
    bool height_is_told = true;
    std::int32_t dpi = 300;
    Bytes rows = {};                // not padded
    std::vector<int> strips = {7};  // rows of each, the last one for all that follow
    int tile_columns = 0;           // 0: none
    Bytes dib = {};                 // of the other two ways
    std::uint16_t planar = 0;
  };
  static Page page(std::int16_t type, std::int16_t bits, std::int32_t width, std::int32_t height);

  struct Capability {
    scan::twain::ItemType type;
    std::vector<std::int64_t> values;  // as 65536ths; empty: any
    bool is_range = false;
    std::int64_t current = 0;
  };

  std::vector<Page> pages;
  std::map<std::uint16_t, Capability> capabilities;
  std::set<std::uint16_t> refused;  // capabilities
  scan::twain::ImageLayout layout{};
  std::vector<std::uint16_t> events = {scan::twain::kTransferReady};  // after enabling
  std::uint16_t condition = scan::twain::kNoCondition;                // of what fails by itself
  int failing_page = -1, cancelled_page = -1;  // by the condition; by the user
  bool counts_pages = true;                    // else there are "many more", until there are none
  bool is_silent = false;                      // no message comes
  std::uint16_t enabling = scan::twain::kSuccess;
  int failing_call = -1;  // from 0
  std::function<void()> during_wait = {};

  int calls = 0, handles = 0, state = 2;
  std::uint16_t shown = 9;  // whether its window was, when it was enabled last
  int stopped = 0;          // feeders
  std::size_t next_page = 0;

 private:
  friend struct FakeTwainCalls;
  std::uint16_t fail(std::uint16_t why) {
    condition_ = why;
    return scan::twain::kFailure;
  }
  void expect_state(int least, int most) const;

  bool modern_;
  std::string file_;
  std::uint16_t condition_ = 0;
  bool disturbed_ = false;  // by a call that was made to fail
  std::size_t next_event_ = 0;
  std::size_t strip_ = 0;
  int row_ = 0, column_ = 0;
};

// A DIB of 1, 8 (grey) or 24 bits; of 1 bit `white_first` says that 0 is white.
FakeTwain::Bytes make_dib(std::int32_t width, std::int32_t height, int bits,
                          bool white_first = false);

}  // namespace tq::test
