// What commands of one operation on one image share.
#pragma once

#include <cstdint>
#include <functional>

#include "options.h"

namespace tool {

using Operation = std::function<std::int32_t(std::int32_t image)>;  // the library's status

inline constexpr Option kCodeOption = {"code", 0, "N",
                                       "file type code of the result, a number or a name"};
inline constexpr Option kPageOption = {"page", 0, "N", "the page to take, from 1 on"};
inline constexpr Option kQuietOption = {"quiet", 'q', nullptr, "no progress bar"};
inline constexpr Option kHelpOption = {"help", 'h', nullptr, "this text"};

inline constexpr char kOperationHelp[] =
    "IN and OUT may be - for standard input and output. Without --code the end of OUT's name\n"
    "decides. OUT is replaced only by a complete result.\n";

// Reads the first operand, and saves what the operation makes of it as the second.
int operate(const Arguments& arguments, const Operation& operation);

}  // namespace tool
