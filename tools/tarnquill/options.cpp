// Reading command lines.
#include "options.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

#include "errors.h"

namespace tool {
namespace {

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

const Option& find_option(std::span<const Option> options, const std::string& word,
                          std::string_view name) {
  const bool one_letter = name.size() == 1 && word[1] != '-';
  const auto found = std::find_if(options.begin(), options.end(), [&](const Option& option) {
    return one_letter ? option.letter == name[0] : name == option.name;
  });
  if (found == options.end()) throw UsageError("unknown option " + printable(word));
  return *found;
}

// Takes a number off the front of `text`.
std::optional<std::int32_t> take_number(std::string_view& text) {
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return value;
}

// Numbers with these separators between them, and nothing else; fewer when the text differs.
std::vector<std::int32_t> numbers(std::string_view text, std::string_view separators) {
  std::vector<std::int32_t> found;
  for (std::size_t i = 0; i <= separators.size(); ++i) {
    if (i > 0) {
      if (text.empty() || text[0] != separators[i - 1]) return {};
      text.remove_prefix(1);
    }
    const std::optional<std::int32_t> number = take_number(text);
    if (!number) return {};
    found.push_back(*number);
  }
  return text.empty() ? found : std::vector<std::int32_t>();
}

[[noreturn]] void refuse(const std::string& option, const std::string& text,
                         const std::string& wanted) {
  throw UsageError("--" + option + " takes " + wanted + ", not '" + printable(text) + "'");
}

}  // namespace

Arguments::Arguments(std::span<const std::string> words, std::span<const Option> options) {
  bool only_operands = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (only_operands || word.size() < 2 || word[0] != '-') {
      operands_.push_back(word);
      continue;
    }
    if (word == "--") {
      only_operands = true;
      continue;
    }
    const std::size_t equals = word.find('=');
    const std::string spelled = word.substr(0, equals);
    const Option& option =
        find_option(options, spelled, std::string_view(spelled).substr(word[1] == '-' ? 2 : 1));
    std::string value;
    if (equals != std::string::npos) {
      if (option.argument == nullptr) throw UsageError(spelled + " takes no value");
      value = word.substr(equals + 1);
    } else if (option.argument != nullptr) {
      if (++i == words.size()) throw UsageError(spelled + " needs a value: " + option.argument);
      value = words[i];
    }
    values_[option.name] = value;
  }
}

std::optional<std::string> Arguments::value(const std::string& name) const {
  const auto found = values_.find(name);
  return found != values_.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<std::int32_t> Arguments::number(const std::string& name, std::int32_t least,
                                              std::int32_t most) const {
  const std::optional<std::string> text = value(name);
  if (!text) return std::nullopt;
  const std::vector<std::int32_t> found = numbers(*text, "");
  if (found.empty() || found[0] < least || found[0] > most) {
    refuse(name, *text,
           "a number from " + std::to_string(least) +
               (most == kMost ? std::string(" on") : " to " + std::to_string(most)));
  }
  return found[0];
}

Size parse_size(const std::string& option, const std::string& text) {
  const std::vector<std::int32_t> found = numbers(text, "x");
  if (found.size() != 2 || found[0] < 1 || found[1] < 1) {
    refuse(option, text, "WxH with sides of 1 and above");
  }
  return {found[0], found[1]};
}

Rect parse_rect(const std::string& option, const std::string& text) {
  if (const std::vector<std::int32_t> found = numbers(text, ",,,"); found.size() == 4) {
    if (found[2] >= 1 && found[3] >= 1) return {found[0], found[1], found[2], found[3]};
  } else if (const std::vector<std::int32_t> size_first = numbers(text, "x++");
             size_first.size() == 4) {
    if (size_first[0] >= 1 && size_first[1] >= 1) {
      return {size_first[2], size_first[3], size_first[0], size_first[1]};
    }
  }
  refuse(option, text, "X,Y,W,H or WxH+X+Y with sides of 1 and above");
}

Rect clipped(const Rect& rect, std::int32_t width, std::int32_t height) {
  const std::int64_t left = std::max(rect.x, 0);
  const std::int64_t top = std::max(rect.y, 0);
  const std::int64_t right = std::min(std::int64_t{rect.x} + rect.width, std::int64_t{width});
  const std::int64_t bottom = std::min(std::int64_t{rect.y} + rect.height, std::int64_t{height});
  return {static_cast<std::int32_t>(left), static_cast<std::int32_t>(top),
          static_cast<std::int32_t>(std::max<std::int64_t>(right - left, 0)),
          static_cast<std::int32_t>(std::max<std::int64_t>(bottom - top, 0))};
}

std::string options_help(const std::string& title, std::span<const Option> options) {
  constexpr std::size_t kColumn = 26;
  std::string text = title + ":\n";
  for (const Option& option : options) {
    std::string line =
        option.letter != 0 ? std::string("  -") + option.letter + ", --" : "      --";
    line += option.name;
    if (option.argument != nullptr) line += std::string(" ") + option.argument;
    if (line.size() + 2 > kColumn) {
      text += line + "\n";
      line.clear();
    }
    line.resize(kColumn, ' ');
    for (const char* help = option.help; *help != 0; ++help) {
      line += *help;
      if (*help == '\n') line.append(kColumn, ' ');
    }
    text += line + "\n";
  }
  return text;
}

}  // namespace tool
