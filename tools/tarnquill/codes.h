// File type codes by number, by name and by the end of a file name, as the library describes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tarnquill.h"

namespace tool {

std::optional<img_format> find_code(std::int32_t code);

// From a number or a name.
std::optional<std::int32_t> parse_code(std::string_view text);

// From the end of a file name.
std::optional<std::int32_t> code_of_file_name(const std::string& name);

// What the names of its files end in, without a dot; variants share that of their format.
std::string ending_of(const img_format& format);

// "Group 4", as TIFF numbers the ways of coding.
std::string tiff_coding_name(std::int32_t coding);

// Whether saving to a file of this code adds a page to it.
bool holds_pages(std::int32_t code);

}  // namespace tool
