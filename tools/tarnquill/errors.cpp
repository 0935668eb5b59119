// Messages for status codes.
#include "errors.h"

#include <cstdio>

namespace tool {

const char* status_meaning(std::int32_t status) {
  return status == kInterrupted ? "interrupted" : IMG_status_text(status);
}

Character first_character(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  const Character lone = {1, first, first >= 0x80};
  if (first < 0xC2 || first > 0xF4) return lone;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (text.size() < length) return lone;
  char32_t code = first & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return lone;
    code = code << 6 | (byte(i) & 0x3F);
  }
  const bool overlong = code < (length == 3 ? 0x800U : length == 4 ? 0x10000U : 0U);
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  return overlong || surrogate || code > 0x10FFFF ? lone : Character{length, code, false};
}

bool controls_terminal(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

std::string printable(std::string_view name) {
  std::string text;
  while (!name.empty()) {
    const Character next = first_character(name);
    text += controls_terminal(next.code) ? "?" : name.substr(0, next.bytes);
    name.remove_prefix(next.bytes);
  }
  return text;
}

std::string quoted(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const Character next = first_character(text);
    if (next.lone) {
      result += "\\ufffd";  // file names may hold any bytes, JSON may not
    } else if (controls_terminal(next.code)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(next.code) & 0xFFFF);
      result += escape;
    } else {
      if (text[0] == '"' || text[0] == '\\') result += '\\';
      result += text.substr(0, next.bytes);
    }
    text.remove_prefix(next.bytes);
  }
  return result + "\"";
}

Failure::Failure(const std::string& file, std::int32_t status, const std::string& words)
    : std::runtime_error(printable(file) + ": " +
                         (words.empty() ? status_meaning(status) : printable(words)) + " (" +
                         std::to_string(status) + ")"),
      status_(status) {}

std::int32_t check(const std::string& file, std::int32_t result) {
  if (result < 0) throw Failure(file, result);
  return result;
}

}  // namespace tool
