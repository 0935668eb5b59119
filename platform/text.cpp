#include "platform/text.h"

namespace tq::platform {

int print_text(std::span<char> to, const char* format, ...) {
  std::va_list values;
  va_start(values, format);
  const int count = format_text(to, format, values);
  va_end(values);
  return count;
}

}  // namespace tq::platform
