// Tokens, and what values say.
#include "formats/pdf/objects/syntax.h"

#include <algorithm>
#include <array>

#include "core/numbers.h"

namespace tq::pdf::objects {
namespace {

constexpr std::int64_t kLargest = std::int64_t{1} << 53;

constexpr bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
constexpr bool is_numeric(char c) {
  return is_digit(c) || c == '+' || c == '-' || c == '.';
}
constexpr bool is_regular(char c) {
  return !is_white(c) && !is_delimiter(c);
}

constexpr int hex_digit(char c) {
  if (is_digit(c)) return c - '0';
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

constexpr char at(std::string_view text, std::size_t i) {
  return i < text.size() ? text[i] : '\0';
}

// Behind white space and comments.
std::size_t skip_white(std::string_view text, std::size_t i) {
  while (i < text.size()) {
    if (text[i] == '%') {
      while (i < text.size() && text[i] != '\r' && text[i] != '\n') ++i;
    } else if (!is_white(text[i])) {
      break;
    } else {
      ++i;
    }
  }
  return i;
}

// Behind the string that begins here.
std::size_t string_end(std::string_view text, std::size_t i) {
  if (text[i] == '<') {
    const std::size_t end = text.find('>', i);
    return end == std::string_view::npos ? text.size() : end + 1;
  }
  int open = 0;
  for (; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '(') {
      ++open;
    } else if (text[i] == ')' && --open == 0) {
      return i + 1;
    }
  }
  return text.size();
}

// A token: brackets of arrays and dictionaries are keywords.
Value next_token(std::string_view text, std::size_t& i) {
  i = skip_white(text, i);
  const std::size_t start = i;
  if (start >= text.size()) return {Kind::end, {}};
  const char c = text[start];
  Kind kind = Kind::keyword;
  if (c == '/') {
    ++i;
    while (i < text.size() && is_regular(text[i])) ++i;
    kind = Kind::name;
  } else if (c == '(' || (c == '<' && at(text, start + 1) != '<')) {
    i = string_end(text, start);
    kind = Kind::string;
  } else if (is_delimiter(c)) {
    const bool is_double = (c == '<' || c == '>') && at(text, start + 1) == c;
    i += is_double ? 2 : 1;
  } else if (is_numeric(c)) {
    while (i < text.size() && is_numeric(text[i])) ++i;
    const bool has_point = part(text, start, i - start).find('.') != std::string_view::npos;
    kind = has_point ? Kind::real : Kind::integer;
  } else {
    while (i < text.size() && is_regular(text[i])) ++i;
    const std::string_view word = part(text, start, i - start);
    if (word == "true" || word == "false") kind = Kind::boolean;
    if (word == "null") kind = Kind::null;
  }
  return {kind, part(text, start, i - start)};
}

// The decimal number that a text begins with, as digits and how many of them are decimals.
struct Digits {
  std::int64_t value = 0;
  int decimals = 0;
  bool negative = false;

  explicit Digits(std::string_view text) {
    constexpr int kMostDigits = 15;
    constexpr std::int64_t kMost = 1'000'000'000'000'000;
    std::size_t i = 0;
    for (; at(text, i) == '-' || at(text, i) == '+'; ++i) negative = negative || text[i] == '-';
    for (; is_digit(at(text, i)); ++i) {
      value = value >= kMost ? kLargest : 10 * value + (text[i] - '0');
    }
    if (at(text, i) != '.') return;
    for (++i; is_digit(at(text, i)) && value < kMost / 10 && decimals < kMostDigits;
         ++i, ++decimals) {
      value = 10 * value + (text[i] - '0');
    }
  }
  std::int64_t power() const {
    std::int64_t power = 1;
    for (int i = 0; i < decimals; ++i) power *= 10;
    return power;
  }
};

// The characters of a name, #xx being one of them.
class NameCharacters {
 public:
  explicit NameCharacters(std::string_view name) : text_(part(name, 1)) {}
  int next() {  // -1 at the end
    if (i_ >= text_.size()) return -1;
    const char c = text_[i_++];
    if (c != '#') return byte(c);
    const int high = hex_digit(at(text_, i_)), low = hex_digit(at(text_, i_ + 1));
    if (high < 0 || low < 0) return byte(c);
    i_ += 2;
    return 16 * high + low;
  }

 private:
  std::string_view text_;
  std::size_t i_ = 0;
};

// The characters between parentheses.
class StringCharacters {
 public:
  explicit StringCharacters(std::string_view string) : text_(part(string, 1)) {
    if (text_.ends_with(')')) text_.remove_suffix(1);
  }
  int next() {
    while (i_ < text_.size()) {
      const char c = text_[i_++];
      if (c == '\r') {  // every end of a line is a line feed
        i_ += at(text_, i_) == '\n' ? 1 : 0;
        return '\n';
      }
      if (c != '\\') return byte(c);
      if (const int escaped = escape(); escaped >= 0) return escaped;
    }
    return -1;
  }

 private:
  // -1: a line that goes on, which is nothing.
  int escape() {
    const char c = at(text_, i_);
    if (c >= '0' && c <= '7') {
      int value = 0;
      for (int digits = 0; digits < 3 && at(text_, i_) >= '0' && at(text_, i_) <= '7'; ++digits) {
        value = 8 * value + (text_[i_++] - '0');
      }
      return value & 0xFF;
    }
    if (i_ >= text_.size()) return -1;
    ++i_;
    switch (c) {
      case 'n':
        return '\n';
      case 'r':
        return '\r';
      case 't':
        return '\t';
      case 'b':
        return '\b';
      case 'f':
        return '\f';
      case '\r':
        i_ += at(text_, i_) == '\n' ? 1 : 0;
        return -1;
      case '\n':
        return -1;
      default:
        return byte(c);
    }
  }

  std::string_view text_;
  std::size_t i_ = 0;
};

class HexCharacters {
 public:
  explicit HexCharacters(std::string_view string) : text_(part(string, 1)) {}
  int next() {
    const int high = digit();
    if (high < 0) return -1;
    return 16 * high + std::max(digit(), 0);  // an odd last digit has a 0 behind it
  }

 private:
  int digit() {
    while (i_ < text_.size()) {
      const int value = hex_digit(text_[i_++]);
      if (value >= 0) return value;
    }
    return -1;
  }

  std::string_view text_;
  std::size_t i_ = 0;
};

template <class Characters>
std::ptrdiff_t store(Characters characters, std::span<std::uint8_t> room) {
  std::ptrdiff_t count = 0;
  for (int c = characters.next(); c >= 0; c = characters.next(), ++count) {
    if (count < std::ssize(room)) room[count] = byte(c);
  }
  return count;
}

// Arrays and dictionaries that are open.
class Nesting {
 public:
  void open(bool dictionary) {
    if (depth_ < kDeepest) {
      dictionaries_ = (dictionaries_ << 1) | (dictionary ? 1 : 0);
    } else {
      too_deep_ = true;
    }
    ++depth_;
  }
  // A bracket that closes nothing does not count; the end of a dictionary ends the arrays in it.
  void close(bool dictionary) {
    if (depth_ > kDeepest) {
      --depth_;
      return;
    }
    int depth = depth_;
    std::uint64_t open = dictionaries_;
    while (dictionary && depth > 0 && (open & 1) == 0) {
      open >>= 1;
      --depth;
    }
    if (depth == 0 || ((open & 1) != 0) != dictionary) return;
    dictionaries_ = open >> 1;
    depth_ = depth - 1;
  }
  int depth() const { return depth_; }
  bool too_deep() const { return too_deep_; }

 private:
  int depth_ = 0;
  std::uint64_t dictionaries_ = 0;  // the lowest bit is the innermost
  bool too_deep_ = false;
};
static_assert(kDeepest <= 64);

bool ends_objects(const Value& token) {
  return token.is_keyword("endobj") || token.is_keyword("stream") || token.is_keyword("obj");
}

}  // namespace

// --- Scanner ---

Value Scanner::next() {
  looked_at_end_ = false;
  const Value token = next_token(text_, at_);
  const std::size_t start = at_ - token.text().size();
  if (token.is(Kind::integer) && references_) return number(start);
  if (token.is_keyword("[") || token.is_keyword("<<")) return composite(start);
  return token;
}

Value Scanner::composite(std::size_t start) {
  const bool is_array = text_[start] == '[';
  Nesting nesting;
  nesting.open(!is_array);
  while (nesting.depth() > 0) {
    const std::size_t before = at_;
    const Value token = next_token(text_, at_);
    if (token.is(Kind::end)) break;
    if (!token.is(Kind::keyword)) continue;
    if (ends_objects(token)) {  // what should have been closed is
      at_ = before;
      break;
    }
    if (token.is_keyword("[") || token.is_keyword("<<")) nesting.open(token.text()[0] == '<');
    if (token.is_keyword("]") || token.is_keyword(">>")) nesting.close(token.text()[0] == '>');
  }
  const std::string_view text = part(text_, start, at_ - start);
  if (nesting.too_deep()) return {Kind::null, text};
  return {is_array ? Kind::array : Kind::dictionary, text};
}

// A number, or the reference that begins with it.
Value Scanner::number(std::size_t start) {
  const std::size_t end = at_;
  const auto is_unsigned = [](const Value& token) {
    return token.is(Kind::integer) && std::ranges::all_of(token.text(), is_digit);
  };
  const std::string_view text = part(text_, start, end - start);
  if (is_unsigned({Kind::integer, text}) && is_unsigned(next_token(text_, at_)) &&
      next_token(text_, at_).is_keyword("R")) {
    return {Kind::reference, part(text_, start, at_ - start)};
  }
  looked_at_end_ = at_ >= text_.size();
  at_ = end;
  return {Kind::integer, text};
}

// --- Values ---

bool Value::boolean(bool otherwise) const {
  return is(Kind::boolean) ? text_ == "true" : otherwise;
}

std::int64_t Value::integer(std::int64_t otherwise) const {
  if (!is_number()) return otherwise;
  const Digits digits(text_);
  const std::int64_t value = digits.value / digits.power();
  return digits.negative ? -value : value;
}

std::int32_t Value::small_integer(std::int32_t otherwise) const {
  const std::int64_t value = integer(otherwise);
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, INT32_MIN, INT32_MAX));
}

double Value::number(double otherwise) const {
  if (!is_number()) return otherwise;
  const Digits digits(text_);
  // Both are exact, so the quotient is rounded once.
  const double value = static_cast<double>(digits.value) / static_cast<double>(digits.power());
  return digits.negative ? -value : value;
}

Reference Value::reference() const {
  if (!is(Kind::reference)) return {};
  std::size_t i = 0;
  const Value number = next_token(text_, i), generation = next_token(text_, i);
  return {number.small_integer(), generation.small_integer()};
}

bool Value::is_name(std::string_view name) const {
  if (!is(Kind::name)) return false;
  NameCharacters characters(text_);
  for (const char c : name) {
    if (characters.next() != byte(c)) return false;
  }
  return characters.next() < 0;
}

bool Value::names_same(const Value& other) const {
  if (!is(Kind::name) || !other.is(Kind::name)) return false;
  NameCharacters mine(text_), others(other.text_);
  for (;;) {
    const int c = mine.next();
    if (c != others.next()) return false;
    if (c < 0) return true;
  }
}

std::ptrdiff_t Value::bytes(std::span<std::uint8_t> room) const {
  if (is(Kind::name)) return store(NameCharacters(text_), room);
  if (!is(Kind::string)) return 0;
  return text_[0] == '<' ? store(HexCharacters(text_), room) : store(StringCharacters(text_), room);
}

Value Value::operator[](std::string_view key) const {
  for (Entries entries = this->entries(); entries.next();) {
    if (entries.key().is_name(key)) return entries.value();
  }
  return {};
}

Value Value::operator[](const Value& key) const {
  for (Entries entries = this->entries(); entries.next();) {
    if (entries.key().names_same(key)) return entries.value();
  }
  return {};
}

Items Value::items() const {
  std::string_view inside = is(Kind::array) ? part(text_, 1) : std::string_view();
  if (inside.ends_with(']')) inside.remove_suffix(1);
  return Items(inside);
}

Entries Value::entries() const {
  std::string_view inside = is(Kind::dictionary) ? part(text_, 2) : std::string_view();
  if (inside.ends_with(">>")) inside.remove_suffix(2);
  return Entries(inside);
}

bool Items::next() {
  do {
    value_ = scanner_.next();
  } while (value_.is(Kind::keyword));
  return !value_.is(Kind::end);
}

bool Entries::next() {
  do {
    key_ = scanner_.next();
    if (key_.is(Kind::end)) return false;
  } while (!key_.is(Kind::name));
  value_ = scanner_.next();
  if (value_.is(Kind::end)) value_ = {};
  return true;
}

}  // namespace tq::pdf::objects
