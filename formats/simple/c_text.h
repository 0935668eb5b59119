// Text of the programming language C, as the two formats of the X window system hold pictures.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "formats/codec.h"
#include "io/chunk_reader.h"

namespace tq::simple {

class CText {
 public:
  // From where the stream stands.
  Status open(StreamHandle stream) { return input_.open(stream, read_chunk_bytes(1)); }

  // The next character, or -1 at the end. A comment is a blank.
  int next() {
    if (held_ != kNone) return std::exchange(held_, kNone);
    const int c = input_.next();
    return c == '/' ? slash_or_comment() : c;
  }
  void put_back(int c) { held_ = c; }

  // The same inside a string, where there are no comments.
  int next_in_string() { return input_.next(); }

 private:
  static constexpr int kNone = -2;

  int slash_or_comment() {
    const auto ahead = input_.peek(1);
    if (ahead.empty() || ahead[0] != '*') return '/';
    input_.skip(1);
    int c = 0, last = 0;
    while ((c = input_.next()) >= 0 && (last != '*' || c != '/')) last = c;
    return ' ';
  }

  ChunkReader input_;
  int held_ = kNone;
};

constexpr bool is_blank(int c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr int lower(int c) {
  return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c;
}
constexpr bool is_digit(int c) {
  return c >= '0' && c <= '9';
}
constexpr bool is_word(int c) {
  return (lower(c) >= 'a' && lower(c) <= 'z') || is_digit(c) || c == '_';
}
// Of a hexadecimal digit; -1 of what is none.
constexpr int digit_value(int c) {
  if (is_digit(c)) return c - '0';
  return lower(c) >= 'a' && lower(c) <= 'f' ? lower(c) - 'a' + 10 : -1;
}

// Decimal or hexadecimal digits one by one; at least 2^31 when there are too many.
struct Number {
  std::int64_t value = 0;
  void add(int digit, int base) { value = std::min(value * base + digit, std::int64_t{1} << 40); }
};

}  // namespace tq::simple
