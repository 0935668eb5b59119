// Command lines as the program reads them: words between zero bytes. What is understood can be said
// again and means the same, what is refused is told without harm to a terminal.
#include "fuzz/fuzz_support.h"
#include "tools/tarnquill/errors.h"
#include "tools/tarnquill/options.h"

namespace tq::fuzz {
namespace {

constexpr tool::Option kOptions[] = {{"code", 0, "N", ""},
                                     {"crop", 0, "X,Y,W,H", ""},
                                     {"size", 0, "WxH", ""},
                                     {"output", 'o', "OUT", ""},
                                     {"quiet", 'q', nullptr, ""}};

void check_shown(std::string_view text) {
  while (!text.empty()) {
    const tool::Character next = tool::first_character(text);
    TQ_CLAIM(next.bytes >= 1 && next.bytes <= (next.lone ? 1 : text.size()));
    TQ_CLAIM(!tool::controls_terminal(next.code));
    text.remove_prefix(next.bytes);
  }
}

// False when `parse` refuses the command line.
template <class Parse>
bool understood(Parse&& parse) {
  try {
    parse();
    return true;
  } catch (const tool::UsageError& error) {
    check_shown(error.what());
    return false;
  }
}

void check_words(const std::vector<std::string>& words) {
  std::vector<std::string> again;
  const auto parse = [&] {
    const tool::Arguments arguments(words, kOptions);
    for (const tool::Option& option : kOptions) {
      if (!arguments.has(option.name)) continue;
      const std::string value = *arguments.value(option.name);
      TQ_CLAIM(option.argument != nullptr || value.empty());
      again.push_back("--" + std::string(option.name) +
                      (option.argument != nullptr ? "=" + value : ""));
    }
    again.emplace_back("--");
    for (const std::string& operand : arguments.operands()) {
      TQ_CLAIM(std::find(words.begin(), words.end(), operand) != words.end());
      again.push_back(operand);
    }
    const tool::Arguments repeated(again, kOptions);
    TQ_CLAIM(repeated.operands() == arguments.operands());
    for (const tool::Option& option : kOptions) {
      TQ_CLAIM(repeated.value(option.name) == arguments.value(option.name));
    }
    const auto number = arguments.number("code", -3, 400);
    TQ_CLAIM(!number || (*number >= -3 && *number <= 400));
  };
  understood(parse);
}

// How many of 0 to `end` - 1 lie in `count` numbers from `first` on.
int shared(std::int32_t first, std::int32_t count, int end) {
  int found = 0;
  for (int i = 0; i < end; ++i) found += i >= first && i - std::int64_t{first} < count;
  return found;
}

void check_rect(const std::string& text) {
  tool::Rect rect{};
  if (!understood([&] { rect = tool::parse_rect("crop", text); })) return;
  TQ_CLAIM(rect.width >= 1 && rect.height >= 1);
  const std::string x = std::to_string(rect.x), y = std::to_string(rect.y);
  const std::string width = std::to_string(rect.width), height = std::to_string(rect.height);
  for (const std::string& same :
       {x + "," + y + "," + width + "," + height, width + "x" + height + "+" + x + "+" + y}) {
    const tool::Rect read = tool::parse_rect("crop", same);
    TQ_CLAIM(read.x == rect.x && read.y == rect.y);
    TQ_CLAIM(read.width == rect.width && read.height == rect.height);
  }
  constexpr int kWidth = 37, kHeight = 20;
  const tool::Rect part = tool::clipped(rect, kWidth, kHeight);
  TQ_CLAIM(std::max(part.width, 0) == shared(rect.x, rect.width, kWidth));
  TQ_CLAIM(std::max(part.height, 0) == shared(rect.y, rect.height, kHeight));
  TQ_CLAIM(part.x == std::max(rect.x, 0) && part.y == std::max(rect.y, 0));
}

}  // namespace

void fuzz(Bytes input) {
  std::vector<std::string> words(1);
  for (const std::uint8_t byte : input) {
    if (byte == 0) {
      words.emplace_back();
    } else {
      words.back() += static_cast<char>(byte);
    }
  }
  check_words(words);
  for (const std::string& word : words) {
    check_rect(word);
    tool::Size size{1, 1};
    understood([&] { size = tool::parse_size("size", word); });
    TQ_CLAIM(size.width >= 1 && size.height >= 1);
    check_shown(tool::printable(word));
  }
}

}  // namespace tq::fuzz
