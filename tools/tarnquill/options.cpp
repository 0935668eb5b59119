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

const Option* named(std::span<const Option> options, std::string_view name) {
  const auto found = std::find_if(options.begin(), options.end(),
                                  [&](const Option& option) { return name == option.name; });
  return found != options.end() ? &*found : nullptr;
}

// By its whole name, or the beginning of one.
const Option& find_long(std::span<const Option> options, std::string_view name) {
  if (const Option* whole = named(options, name)) return *whole;
  const Option* found = nullptr;
  for (const Option& option : options) {
    if (name.empty() || !std::string_view(option.name).starts_with(name)) continue;
    if (found != nullptr) {
      throw UsageError("--" + printable(name) + " could be --" + found->name + " or --" +
                       option.name);
    }
    found = &option;
  }
  if (found == nullptr) throw UsageError("unknown option --" + printable(name));
  return *found;
}

const Option* find_letter(std::span<const Option> options, char letter) {
  const auto found = std::find_if(options.begin(), options.end(),
                                  [&](const Option& option) { return option.letter == letter; });
  return found != options.end() ? &*found : nullptr;
}

// Takes a number off the front of `text`.
std::optional<std::int32_t> take_number(std::string_view& text) {
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return value;
}

}  // namespace

std::optional<std::int32_t> whole_number(std::string_view text) {
  const std::optional<std::int32_t> number = take_number(text);
  return text.empty() ? number : std::nullopt;
}

std::optional<double> parse_decimal(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole ? std::optional(number) : std::nullopt;
}

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

void refuse(const std::string& option, const std::string& text, const std::string& wanted) {
  throw UsageError("--" + option + " takes " + wanted + ", not '" + printable(text) + "'");
}

// Words from the first to the last, each of which may want the next.
class Arguments::Reader {
 public:
  Reader(Arguments& to, std::span<const std::string> words, std::span<const Option> options)
      : to_(to), words_(words), options_(options) {}

  void read() {
    for (; next_ < words_.size(); ++next_) {
      const std::string& word = words_[next_];
      if (word == "--") break;
      if (word.size() < 2 || word[0] != '-') {
        to_.operands_.push_back(word);
      } else {
        read_option(word);
      }
    }
    if (next_ == words_.size()) return;
    to_.operands_.insert(to_.operands_.end(),
                         words_.begin() + static_cast<std::ptrdiff_t>(next_) + 1, words_.end());
  }

 private:
  void read_option(const std::string& word) {
    const std::size_t equals = word.find('=');
    const std::string spelled = word.substr(0, equals);
    const bool is_long = word[1] == '-';
    const Option* const option = is_long ? &find_long(options_, std::string_view(spelled).substr(2))
                                         : named(options_, std::string_view(spelled).substr(1));
    if (option == nullptr) return read_letters(word);
    if (equals == std::string::npos) return take(*option, spelled);
    if (option->argument == nullptr) throw UsageError(spelled + " takes no value");
    to_.set(*option, word.substr(equals + 1));
  }

  void read_letters(const std::string& word) {
    for (std::size_t i = 1; i < word.size(); ++i) {
      const Option* const option = find_letter(options_, word[i]);
      if (option == nullptr) throw UsageError("unknown option " + printable(word));
      if (option->argument == nullptr || i + 1 == word.size()) {
        take(*option, std::string("-") + word[i]);
        continue;
      }
      to_.set(*option, word.substr(i + (word[i + 1] == '=' ? 2 : 1)));
      return;
    }
  }

  void take(const Option& option, const std::string& spelled) {
    if (option.argument == nullptr) return to_.set(option, "");
    if (++next_ == words_.size()) {
      throw UsageError(printable(spelled) + " needs a value: " + option.argument);
    }
    to_.set(option, words_[next_]);
  }

  Arguments& to_;
  std::span<const std::string> words_;
  std::span<const Option> options_;
  std::size_t next_ = 0;
};

Arguments::Arguments(std::span<const std::string> words, std::span<const Option> options) {
  Reader(*this, words, options).read();
}

void Arguments::set(const Option& option, const std::string& value) {
  values_[option.name] = value;
  in_order_.push_back({option.name, value});
}

std::optional<std::string> Arguments::value(const std::string& name) const {
  const auto found = values_.find(name);
  return found != values_.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<std::int32_t> Arguments::number(const std::string& name, std::int32_t least,
                                              std::int32_t most) const {
  const std::optional<std::string> text = value(name);
  if (!text) return std::nullopt;
  const std::optional<std::int32_t> found = whole_number(*text);
  if (!found || *found < least || *found > most) {
    refuse(name, *text,
           "a number from " + std::to_string(least) +
               (most == kMost ? std::string(" on") : " to " + std::to_string(most)));
  }
  return found;
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

Rect inside(const char* option, const Rect& rect, const std::string& label, std::int32_t width,
            std::int32_t height) {
  const Rect part = clipped(rect, width, height);
  if (part.width < 1 || part.height < 1) {
    throw UsageError(printable(label) + ": --" + option + " lies outside of the image of " +
                     size_text(width, height) + " pixels");
  }
  return part;
}

std::string size_text(std::int32_t width, std::int32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
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
