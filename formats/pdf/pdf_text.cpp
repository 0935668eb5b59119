#include "formats/pdf/pdf_text.h"

#include <limits>

namespace tq::formats {
namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
bool ends_line(char c) {
  return c == '\r' || c == '\n';
}

}  // namespace

bool PdfText::find(std::string_view what) {
  const std::size_t found = text_.find(what, at_);
  at_ = std::min(found, text_.size());
  return found != std::string_view::npos;
}

bool PdfText::find_key(std::string_view name) {
  while (find("/")) {
    ++at_;
    if (rest().starts_with(name)) {
      at_ += name.size();
      return true;
    }
  }
  return false;
}

void PdfText::skip_line_ends() {
  while (ends_line(current())) ++at_;
}

void PdfText::skip_line() {
  while (!at_end() && !ends_line(current())) ++at_;
  skip_line_ends();
}

bool PdfText::to_digit() {
  while (!at_end() && !is_digit(current())) ++at_;
  return !at_end();
}

std::int32_t PdfText::number() {
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  while (current() == ' ' || current() == '\t') ++at_;
  std::int64_t value = 0;
  for (; is_digit(current()); ++at_) value = std::min(10 * value + (current() - '0'), kMost);
  return static_cast<std::int32_t>(value);
}

}  // namespace tq::formats
