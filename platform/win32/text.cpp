#include "platform/text.h"

#include <cstdio>

namespace tq::platform {

// The C run-time's own. mingw's std::vsnprintf would bring 24 kB of conversions of floating point numbers.
int format_text(std::span<char> to, const char* format, std::va_list values) {
  if (to.empty()) return -1;
  const int count = _vsnprintf(to.data(), to.size(), format, values);
  to.back() = '\0';  // which is missing where the text does not fit
  return count >= 0 && count < std::ssize(to) ? count : -1;
}

}  // namespace tq::platform
