// UTF-8, and copies of texts.
#include "core/texts.h"

#include <cstring>
#include <utility>

#include "core/memory.h"

namespace tq {
namespace {

constexpr std::int64_t kLastSecond = 253402300799;  // of the year 9999

// Negative for what is none.
std::int64_t seconds_of(std::string_view text) {
  if (text.empty() || text.size() > 12) return -1;
  std::int64_t seconds = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return -1;
    seconds = 10 * seconds + (c - '0');
  }
  return seconds <= kLastSecond ? seconds : -1;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    if (take_character(text) == kNoCharacter) return false;
  }
  return true;
}

}  // namespace

std::int32_t take_character(std::string_view& text) {
  const auto at = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
  };
  const int first = at(0);
  const std::size_t more = first < 0x80 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
  std::int32_t value = more == 0 ? first : first & (0x3F >> more);
  bool valid = first < 0x80 || (first >= 0xC2 && first <= 0xF4);
  for (std::size_t i = 1; i <= more; ++i) {
    valid = valid && (at(i) & 0xC0) == 0x80;
    value = value << 6 | (at(i) & 0x3F);
  }
  constexpr std::int32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
  valid = valid && value >= kLeast[more] && value <= 0x10FFFF && (value & ~0x7FF) != 0xD800;
  text.remove_prefix(valid ? more + 1 : 1);
  return valid ? value : kNoCharacter;
}

Status Texts::set(std::int32_t number, const char* text) {
  if (number < kFirst || number > kLast) return StatusCode::unsupported;
  char* copy = nullptr;
  if (text != nullptr && *text != '\0') {
    const std::string_view given(text);
    const bool valid = number == IMG_TEXT_DATE ? seconds_of(given) >= 0 : is_utf8(given);
    if (!valid) return StatusCode::unsupported;
    copy = reinterpret_cast<char*>(alloc_block(given.size() + 1));
    if (copy == nullptr) return StatusCode::out_of_memory;
    std::memcpy(copy, text, given.size() + 1);
  }
  free_block(std::exchange(texts_[number - kFirst], copy));
  return kOk;
}

std::string_view Texts::get(std::int32_t number) const {
  const char* const text = texts_[number - kFirst];
  return text == nullptr ? std::string_view() : std::string_view(text);
}

std::int64_t Texts::date() const {
  return seconds_of(get(IMG_TEXT_DATE));
}

void Texts::clear() {
  for (char*& text : texts_) free_block(std::exchange(text, nullptr));
}

}  // namespace tq
