// Names of file type codes: for people, for --code, and for the ends of file names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

struct FileCode {
  std::int32_t code;
  const char* name;    // what --code takes
  const char* title;   // what people call it
  const char* ending;  // of a file name, without the dot
  bool appends;        // saving adds a page to an existing file
};

// Null for a code without a name.
const FileCode* find_code(std::int32_t code);

// From a number or a name.
std::optional<std::int32_t> parse_code(std::string_view text);

// From the end of a file name.
std::optional<std::int32_t> code_of_file_name(const std::string& name);

}  // namespace tool
