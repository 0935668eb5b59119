// Finding one's way in the text of a document: never beyond the bytes at hand.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

namespace tq::formats {

class PdfText {
 public:
  PdfText() = default;
  explicit PdfText(std::span<const std::uint8_t> bytes)
      : text_(reinterpret_cast<const char*>(bytes.data()), bytes.size()) {}

  std::size_t position() const { return at_; }
  bool at_end() const { return at_ >= text_.size(); }
  char operator[](std::size_t at) const { return at < text_.size() ? text_[at] : '\0'; }
  char current() const { return (*this)[at_]; }
  std::string_view text() const { return text_; }
  // Cut to what there is; std::string_view::substr would throw.
  std::string_view part(std::size_t start, std::size_t end) const {
    end = std::min(end, text_.size());
    start = std::min(start, end);
    return {text_.data() + start, end - start};
  }
  std::string_view rest() const { return part(at_, text_.size()); }

  void move_to(std::size_t at) { at_ = at; }
  void skip(std::size_t bytes) { at_ += bytes; }
  bool find(std::string_view what);      // from here on; stands on it afterwards
  bool find_key(std::string_view name);  // a '/' and the name; stands behind it
  void skip_line_ends();                 // all of CR and LF
  void skip_line();                      // and all of CR and LF behind it
  bool to_digit();                       // the next one, anywhere

  // The decimal number here, behind blanks and tabs; 0 when there is none. Stops at 2^31 - 1.
  std::int32_t number();

 private:
  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace tq::formats
