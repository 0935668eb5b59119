// Text made of numbers and words, in the manner of printf.
#pragma once

#include <cstdarg>
#include <span>

namespace tq::platform {

// Writes the text and a terminator. Returns the characters without it, -1 when they do not fit. Knows %c, %d,
// %s and %x with width and precision: no floating point, and no words for 64 bits, which not every system's
// C run-time has.
int format_text(std::span<char> to, const char* format, std::va_list values);
[[gnu::format(printf, 2, 3)]] int print_text(std::span<char> to, const char* format, ...);

}  // namespace tq::platform
