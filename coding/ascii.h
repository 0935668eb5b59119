// Bytes as printable characters (ISO 32000-1, 7.4.2 and 7.4.3): two hexadecimal digits each, or five
// digits of base 85 for four. White space between them is nothing.
#pragma once

#include <cstdint>
#include <span>

#include "coding/bits.h"

namespace tq::coding {

constexpr bool is_white(int c) {
  return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == 0;
}

constexpr int hex_digit(int c) {  // -1: none
  if (c >= '0' && c <= '9') return c - '0';
  const int letter = c | 0x20;
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// What the two have in common: characters one by one.
class AsciiText {
 public:
  void start(PieceSource data) { *this = AsciiText(data); }

 protected:
  AsciiText() = default;
  explicit AsciiText(PieceSource data) : data_(data) {}

  // The next that is not white; -1 behind the last.
  int next() {
    while (true) {
      if (piece_.empty()) piece_ = data_.next();
      if (piece_.empty()) return -1;
      const int c = piece_.front();
      piece_ = piece_.subspan(1);
      if (!is_white(c)) return c;
    }
  }
  void stop() { start({}); }

 private:
  PieceSource data_;
  std::span<const std::uint8_t> piece_{};
};

// Both read as many bytes as there is room for; fewer at the end.
class AsciiHexDecoder : public AsciiText {
 public:
  std::ptrdiff_t read(std::span<std::uint8_t> bytes) {
    std::ptrdiff_t filled = 0;
    while (filled < std::ssize(bytes)) {
      const int high = hex_digit(next()), low = high < 0 ? high : hex_digit(next());
      if (high >= 0) bytes[filled++] = byte(high << 4 | (low < 0 ? 0 : low));
      if (low >= 0) continue;
      stop();
      break;
    }
    return filled;
  }
};

class Ascii85Decoder : public AsciiText {
 public:
  void start(PieceSource data) {
    AsciiText::start(data);
    group_ = 0;
    left_ = 0;
    begins_ = true;
    ended_ = false;
  }
  std::ptrdiff_t read(std::span<std::uint8_t> bytes) {
    std::ptrdiff_t filled = 0;
    while (filled < std::ssize(bytes) && (left_ > 0 || next_group())) {
      bytes[filled++] = byte(group_ >> 24);
      group_ <<= 8;
      --left_;
    }
    return filled;
  }

 private:
  static constexpr int kDigits = 5, kBase = 85;

  // Digits that are missing count as the highest. "<~" may stand in front.
  bool next_group() {
    if (ended_) return false;
    int digits = 0, c = 0;
    for (group_ = 0; digits < kDigits; ++digits) {
      c = next();
      if (c == 'z' && digits == 0) break;
      if (c < '!' || c > 'u') {
        if (c == '~' && begins_ && digits == 1 && group_ == '<' - '!') {
          digits = -1;
          group_ = 0;
          begins_ = false;
          continue;
        }
        ended_ = true;
        break;
      }
      group_ = group_ * kBase + (c - '!');
    }
    begins_ = false;
    left_ = ended_ ? digits - 1 : kDigits - 1;
    for (; ended_ && digits < kDigits; ++digits) group_ = group_ * kBase + (kBase - 1);
    return left_ > 0;
  }

  std::uint32_t group_ = 0;  // the next byte on top
  int left_ = 0;             // bytes of it
  bool begins_ = true, ended_ = false;
};

}  // namespace tq::coding
