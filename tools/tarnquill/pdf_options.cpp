// Page sizes and texts, from words to numbers of the library.
#include "pdf_options.h"

#include <string_view>

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

Paper parse_paper(const std::string& text) {
  for (const Paper& paper : kPapers) {
    if (paper.name == text) return paper;
  }
  const Size size = parse_size("page-size", text);
  constexpr std::int32_t kMost = 14400;
  if (size.width > kMost || size.height > kMost) {
    throw UsageError("--page-size takes sides up to 14400 points");
  }
  return {"", 10 * size.width, 10 * size.height};
}

std::int32_t parse_fit(const Arguments& arguments) {
  const std::string how = arguments.value("fit").value_or("fill");
  if (how != "fill" && how != "shrink") throw UsageError("--fit takes fill or shrink");
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
  if (const auto text = arguments.value("page-size")) {
    const Paper paper = parse_paper(*text);
    IMG_set_option(IMG_OPTION_PDF_PAGE_WIDTH, paper.width);
    IMG_set_option(IMG_OPTION_PDF_PAGE_HEIGHT, paper.height);
  }
  if (const auto points = arguments.number("margin", 0, 7200)) {
    IMG_set_option(IMG_OPTION_PDF_MARGIN, 10 * *points);
  }
  IMG_set_option(IMG_OPTION_PDF_FIT, parse_fit(arguments));
  if (arguments.has("lossless")) IMG_set_option(IMG_OPTION_PDF_LOSSLESS, 1);
  set_text(arguments, "title", IMG_TEXT_TITLE);
  set_text(arguments, "author", IMG_TEXT_AUTHOR);
}

}  // namespace tool
