// Command lines: options from a table, numbers, sizes and rectangles.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct Option {
  const char* name;      // without dashes
  char letter;           // 0: none
  const char* argument;  // null: a switch
  const char* help;
};

class Arguments {
 public:
  // Takes "--name value", "--name=value", "-name value", "-l value", "-lvalue", letters of several
  // options together, and so much of "--name" as is no other's; "--" ends the options, "-" is an
  // operand. Throws UsageError.
  Arguments(std::span<const std::string> words, std::span<const Option> options);

  bool has(const std::string& name) const { return values_.count(name) != 0; }
  std::optional<std::string> value(const std::string& name) const;
  std::optional<std::int32_t> number(const std::string& name, std::int32_t least,
                                     std::int32_t most) const;
  const std::vector<std::string>& operands() const { return operands_; }

  struct Given {
    std::string name, value;
  };
  const std::vector<Given>& in_order() const { return in_order_; }

 private:
  class Reader;
  void set(const Option& option, const std::string& value);

  std::map<std::string, std::string> values_;  // the last of each
  std::vector<Given> in_order_;
  std::vector<std::string> operands_;
};

struct Size {
  std::int32_t width, height;
};

struct Rect {
  std::int32_t x, y, width, height;
};

// Nothing but a number, which may have a sign.
std::optional<std::int32_t> whole_number(std::string_view text);

// The same with a fraction.
std::optional<double> parse_decimal(std::string_view text);

// Numbers with these separators between them, and nothing else; none when the text differs.
std::vector<std::int32_t> numbers(std::string_view text, std::string_view separators);

// Throws UsageError: "--size takes WxH, not 'x'".
[[noreturn]] void refuse(const std::string& option, const std::string& text,
                         const std::string& wanted);

// "640x480". Throws UsageError.
Size parse_size(const std::string& option, const std::string& text);

// "X,Y,W,H" or "WxH+X+Y". Throws UsageError.
Rect parse_rect(const std::string& option, const std::string& text);

// The part of `rect` inside an image; its sides may come out below 1.
Rect clipped(const Rect& rect, std::int32_t width, std::int32_t height);

// The same; UsageError when nothing of it lies inside.
Rect inside(const char* option, const Rect& rect, const std::string& label, std::int32_t width,
            std::int32_t height);

std::string size_text(std::int32_t width, std::int32_t height);  // "640x480"

// The options' part of a help text.
std::string options_help(const std::string& title, std::span<const Option> options);

}  // namespace tool
