// How the program fails: a wrong command line, or a library status about a file.
#pragma once

#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tarnquill.h"

namespace tool {

enum ExitCode { kExitOk = 0, kExitError = 1, kExitUsage = 2, kExitDamaged = 3 };

// What the progress callback answers after an interrupt; no status code of the library.
constexpr std::int32_t kInterrupted = -1000;

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Failure : public std::runtime_error {
 public:
  // "scan.bmp: image data is invalid (-3)"; with words of its own in place of the status's.
  Failure(const std::string& file, std::int32_t status, const std::string& words = "");
  std::int32_t status() const { return status_; }

 private:
  std::int32_t status_;
};

// The value, unless it is a failure of what was tried with `file`.
std::int32_t check(const std::string& file, std::int32_t result);

// What `work` gives; memory that it does not get is a failure of `file`, so that others go on.
template <class Work>
auto within_memory(const std::string& file, Work&& work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throw Failure(file, IMG_OUT_OF_MEMORY);
  } catch (const std::length_error&) {  // more than a vector can hold
    throw Failure(file, IMG_OUT_OF_MEMORY);
  }
}

// The meaning of a status code in a few words.
const char* status_meaning(std::int32_t status);

// A character of UTF-8, or a byte that is part of none.
struct Character {
  std::size_t bytes;
  char32_t code;  // of a lone byte its value
  bool lone;
};
Character first_character(std::string_view text);  // which is not empty

// Whether a terminal might obey it: control characters, the same as lone bytes, and what changes
// the direction of the text or ends a line.
bool controls_terminal(char32_t code);

// A name for messages: what would control a terminal becomes "?".
std::string printable(std::string_view name);

// The same for JSON, in quotation marks, where everything but bytes that are no text can be kept.
std::string quoted(std::string_view text);

}  // namespace tool
