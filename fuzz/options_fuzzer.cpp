// Command lines as the program reads them: words between zero bytes. What is refused is told
// without harm to a terminal.
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

void check_rect(const std::string& text) {
  tool::Rect rect{};
  if (!understood([&] { rect = tool::parse_rect("crop", text); })) return;
  TQ_CLAIM(rect.width >= 1 && rect.height >= 1);
  const tool::Rect part = tool::clipped(rect, 37, 20);
  TQ_CLAIM(part.x == std::max(rect.x, 0) && part.width <= 37 - part.x);
  TQ_CLAIM(part.y == std::max(rect.y, 0) && part.height <= 20 - part.y);
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
  understood([&] { tool::Arguments(words, kOptions).number("code", -3, 400); });
  for (const std::string& word : words) {
    check_rect(word);
    tool::Size size{1, 1};
    understood([&] { size = tool::parse_size("size", word); });
    TQ_CLAIM(size.width >= 1 && size.height >= 1);
    check_shown(tool::printable(word));
  }
}

}  // namespace tq::fuzz
