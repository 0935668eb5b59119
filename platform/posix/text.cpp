#include "platform/text.h"

#include <cstdio>

namespace tq::platform {

int format_text(std::span<char> to, const char* format, std::va_list values) {
  const int count = std::vsnprintf(to.data(), to.size(), format, values);
  return count >= 0 && count < std::ssize(to) ? count : -1;
}

}  // namespace tq::platform
