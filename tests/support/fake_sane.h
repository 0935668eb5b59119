// A libsane with one device in place of the system's: it gives the pages that it is told to, checks the
// order of calls, and fails where it is told to.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "scan/sane.h"

namespace tq::test {

class FakeSane {
 public:
  using Bytes = std::vector<std::uint8_t>;

  FakeSane();  // from now on libsane is this
  FakeSane(const FakeSane&) = delete;
  FakeSane& operator=(const FakeSane&) = delete;
  ~FakeSane();  // closes the session; nothing may be open at the device

  struct Frame {
    scan::sane::Parameters parameters;
    Bytes data;
  };
  using Page = std::vector<Frame>;

  // A frame of random bytes; `lines` below 0 are not told.
  static Frame frame(std::int32_t format, std::int32_t depth, std::int32_t width,
                     std::int32_t lines, bool last = true);

  struct Option {
    std::string name;
    std::int32_t type;
    std::int32_t unit;
    std::vector<const char*> strings;     // ends with null
    std::vector<scan::sane::Word> words;  // begins with their number
    scan::sane::Range range;
    scan::sane::Word value = 0;  // of texts the index
    bool reloads = false;
    scan::sane::Option description{};
  };

  std::vector<Page> pages;
  std::vector<Option> options;  // from 1 on
  std::int32_t after_last = scan::sane::kNoDocuments;
  std::size_t most_per_read = 1 << 20;
  int failing_call = -1;  // from 0
  std::int32_t failure = scan::sane::kIoError;
  std::function<void(int)> during_call = {};
  bool has_device = true;

  Option& option(const std::string& name);

  int calls = 0, cancels = 0, exits = 0;
  bool is_initialised = false, is_open = false, is_scanning = false;

 private:
  std::size_t next_page_ = 0, frame_ = 0, position_ = 0;
  bool in_frame_ = false;
  std::vector<bool> described_;  // since the options have changed

  static std::int32_t step();
  friend struct FakeSaneCalls;
};

}  // namespace tq::test
