// Page sizes and texts, from words to numbers of the library.
#include "pdf_options.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "errors.h"
#include "tarnquill.h"

namespace tool {
namespace {

struct Paper {
  std::string_view name;
  std::int32_t width, height;  // tenths of a point
};
constexpr Paper kPapers[] = {{"a3", 8419, 11906},
                             {"a4", 5953, 8419},
                             {"a5", 4195, 5953},
                             {"letter", 6120, 7920},
                             {"legal", 6120, 10080}};

// "210x297mm" as its numbers, and the tenths of a point that one is; points without a unit.
std::pair<std::string, double> without_unit(const std::string& text) {
  constexpr std::pair<std::string_view, double> kUnits[] = {
      {"mm", 720 / 25.4}, {"cm", 7200 / 25.4}, {"in", 720}, {"pt", 10}};
  for (const auto& [name, size] : kUnits) {
    if (text.ends_with(name)) return {text.substr(0, text.size() - name.size()), size};
  }
  return {text, 10};
}

// A length of at least 0 in tenths of a point.
std::optional<std::int32_t> length(std::string_view text, double unit, double most) {
  const auto number = parse_decimal(text);
  if (!number || !(*number >= 0 && *number * unit <= most)) return {};
  return static_cast<std::int32_t>(*number * unit + 0.5);
}

Paper parse_paper(const std::string& text) {
  for (const Paper& paper : kPapers) {
    if (paper.name == text) return paper;
  }
  const auto [sides, unit] = without_unit(text);
  const std::size_t x = std::min(sides.find('x'), sides.size());
  const auto width = length(std::string_view(sides).substr(0, x), unit, 144000);
  const auto height =
      length(std::string_view(sides).substr(std::min(x + 1, sides.size())), unit, 144000);
  if (!width || !height || *width < 1 || *height < 1) {
    refuse("paper", text, "a3, a4, a5, letter, legal, or a size up to 14400 points as 100x150mm");
  }
  return {"", *width, *height};
}

std::int32_t parse_fit(const Arguments& arguments) {
  const std::string how = arguments.value("page-fit").value_or("fill");
  if (how != "fill" && how != "shrink") refuse("page-fit", how, "fill or shrink");
  return (how == "shrink" ? 1 : 0) + (arguments.has("turn-pages") ? 2 : 0);
}

void set_text(const Arguments& arguments, const char* name, std::int32_t number) {
  const auto text = arguments.value(name);
  if (text && IMG_set_option_text(number, text->c_str()) != IMG_OK) {
    throw UsageError(std::string("--") + name + " takes a text in UTF-8");
  }
}

}  // namespace

void apply_pdf_options(const Arguments& arguments) {
  if (const auto text = arguments.value("paper")) {
    const Paper paper = parse_paper(*text);
    IMG_set_option(IMG_OPTION_PDF_PAGE_WIDTH, paper.width);
    IMG_set_option(IMG_OPTION_PDF_PAGE_HEIGHT, paper.height);
  }
  if (const auto text = arguments.value("margin")) {
    const auto [number, unit] = without_unit(*text);
    const auto margin = length(number, unit, 72000);
    if (!margin) refuse("margin", *text, "a length up to 7200 points as 10mm");
    IMG_set_option(IMG_OPTION_PDF_MARGIN, *margin);
  }
  IMG_set_option(IMG_OPTION_PDF_FIT, parse_fit(arguments));
  if (arguments.has("lossless")) IMG_set_option(IMG_OPTION_PDF_LOSSLESS, 1);
  set_text(arguments, "title", IMG_TEXT_TITLE);
  set_text(arguments, "author", IMG_TEXT_AUTHOR);
}

}  // namespace tool
