// Tokens and values of documents, as views of their text: ISO 32000-1, 7.2 and 7.3. Nothing is
// allocated for a value, and whatever makes no sense is null.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tq::pdf::objects {

inline constexpr int kDeepest = 64;  // arrays and dictionaries one inside the other; beyond: null

enum class Kind : std::uint8_t {
  null,
  boolean,
  integer,
  real,
  name,
  string,
  array,
  dictionary,
  reference,
  keyword,  // of a scanner only: an operator, obj, endobj, stream; a bracket too many
  end,      // of a scanner only
};

struct Reference {
  std::int32_t number = 0, generation = 0;  // number 0: none
  friend bool operator==(const Reference&, const Reference&) = default;
};

class Items;
class Entries;

// What a text says, which somebody else owns. Every accessor answers its default for another kind.
class Value {
 public:
  Value() = default;
  Value(Kind kind, std::string_view text) : text_(text), kind_(kind) {}

  Kind kind() const { return kind_; }
  bool is(Kind kind) const { return kind_ == kind; }
  bool is_number() const { return is(Kind::integer) || is(Kind::real); }
  bool is_keyword(std::string_view word) const { return is(Kind::keyword) && text_ == word; }
  std::string_view text() const { return text_; }  // as it stands, brackets included

  bool boolean(bool otherwise = false) const;
  // Within +-2^53; a real number is cut.
  std::int64_t integer(std::int64_t otherwise = 0) const;
  // The same, held within 32 bits.
  std::int32_t small_integer(std::int32_t otherwise = 0) const;
  // The double next to what 15 digits say: the same on every machine.
  double number(double otherwise = 0) const;
  Reference reference() const;

  // A name without its slash, #xx meaning a character.
  bool is_name(std::string_view name) const;
  bool names_same(const Value& other) const;  // both are names, and equal

  // The bytes of a name or a string. As many as there is room for are stored; answers how many there are.
  std::ptrdiff_t bytes(std::span<std::uint8_t> room) const;

  // Of a dictionary: the value of a key, the first one of that name.
  Value operator[](std::string_view key) const;
  Value operator[](const Value& key) const;  // a name
  Items items() const;                       // of an array
  Entries entries() const;                   // of a dictionary

 private:
  std::string_view text_;
  Kind kind_ = Kind::null;
};

// One value after the other. Arrays and dictionaries come whole, comments not at all.
class Scanner {
 public:
  // `references`: two integers and R are one; contents have none.
  explicit Scanner(std::string_view text, bool references = true)
      : text_(text), references_(references) {}

  Value next();

  // Behind the last value; what follows a keyword begins right here.
  std::size_t position() const { return at_; }
  void move_to(std::size_t position) { at_ = position; }
  std::string_view text() const { return text_; }
  // The last value may not be what it would be in a longer text.
  bool touched_end() const { return looked_at_end_ || at_ >= text_.size(); }

 private:
  Value composite(std::size_t start);
  Value number(std::size_t start);

  std::string_view text_;
  std::size_t at_ = 0;
  bool references_;
  bool looked_at_end_ = false;
};

// for (Items items = array.items(); items.next();) … items.value()
class Items {
 public:
  explicit Items(std::string_view inside) : scanner_(inside) {}
  bool next();
  const Value& value() const { return value_; }

 private:
  Scanner scanner_;
  Value value_;
};

class Entries {
 public:
  explicit Entries(std::string_view inside) : scanner_(inside) {}
  bool next();
  const Value& key() const { return key_; }
  const Value& value() const { return value_; }

 private:
  Scanner scanner_;
  Value key_, value_;
};

// std::string_view::substr would throw.
constexpr std::string_view part(std::string_view text, std::size_t start,
                                std::size_t count = std::string_view::npos) {
  if (start >= text.size()) return {};
  const std::size_t left = text.size() - start;
  return {text.data() + start, count < left ? count : left};
}

constexpr bool is_white(char c) {
  return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == '\0';
}
constexpr bool is_delimiter(char c) {
  return c == '(' || c == ')' || c == '<' || c == '>' || c == '[' || c == ']' || c == '{' ||
         c == '}' || c == '/' || c == '%';
}

}  // namespace tq::pdf::objects
