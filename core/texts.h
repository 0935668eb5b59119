// Texts that a caller gives once for the documents that are written later.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "core/status.h"
#include "include/tarnquill.h"

namespace tq {

// Takes the first character, or byte that begins none, from a text in UTF-8 (RFC 3629) that is not empty.
inline constexpr std::int32_t kNoCharacter = -1;
std::int32_t take_character(std::string_view& text);

// Copies in memory of the context that they belong to; it clears them before it ends.
class Texts {
 public:
  // A text is UTF-8 and a date a number of seconds: unsupported, like an unknown `number`. Null or
  // empty: there is none from now on. On failure the old one stays.
  Status set(std::int32_t number, const char* text);
  std::string_view get(std::int32_t number) const;  // empty: there is none

  // Seconds since 1970; negative: there is none.
  std::int64_t date() const;
  void clear();

 private:
  static constexpr std::int32_t kFirst = IMG_TEXT_TITLE, kLast = IMG_TEXT_DATE;

  std::array<char*, kLast - kFirst + 1> texts_{};
};

}  // namespace tq
