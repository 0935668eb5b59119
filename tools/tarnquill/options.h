// Command lines: options from a table, numbers, sizes and rectangles.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
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
  // Takes "--name value", "--name=value", "-name value", "-l value"; "--" ends the options, "-" is
  // an operand. Throws UsageError.
  Arguments(std::span<const std::string> words, std::span<const Option> options);

  bool has(const std::string& name) const { return values_.count(name) != 0; }
  std::optional<std::string> value(const std::string& name) const;
  std::optional<std::int32_t> number(const std::string& name, std::int32_t least,
                                     std::int32_t most) const;
  const std::vector<std::string>& operands() const { return operands_; }

 private:
  std::map<std::string, std::string> values_;
  std::vector<std::string> operands_;
};

struct Size {
  std::int32_t width, height;
};

struct Rect {
  std::int32_t x, y, width, height;
};

// "640x480". Throws UsageError.
Size parse_size(const std::string& option, const std::string& text);

// "X,Y,W,H" or "WxH+X+Y". Throws UsageError.
Rect parse_rect(const std::string& option, const std::string& text);

// The part of `rect` inside an image; its sides may come out below 1.
Rect clipped(const Rect& rect, std::int32_t width, std::int32_t height);

// The options' part of a help text.
std::string options_help(const std::string& title, std::span<const Option> options);

}  // namespace tool
