// How the program fails: a wrong command line, or a library status about a file.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tarnquill.h"

namespace tool {

enum ExitCode { kExitOk = 0, kExitError = 1, kExitUsage = 2 };

// What the progress callback answers after an interrupt; no status code of the library.
constexpr std::int32_t kInterrupted = -1000;

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Failure : public std::runtime_error {
 public:
  // "scan.bmp: image data is invalid (-3)"
  Failure(const std::string& file, std::int32_t status);
  std::int32_t status() const { return status_; }

 private:
  std::int32_t status_;
};

// The value, unless it is a failure of what was tried with `file`.
std::int32_t check(const std::string& file, std::int32_t result);

// The meaning of a status code in a few words.
const char* status_meaning(std::int32_t status);

// A name for messages: what would control a terminal becomes "?".
std::string printable(const std::string& name);

}  // namespace tool
