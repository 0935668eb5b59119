// X bitmaps: C text that defines width and height and lists the bytes, or 16-bit words, of rows.
#include <string_view>

#include "coding/bits.h"
#include "formats/rows.h"
#include "formats/simple/c_text.h"
#include "formats/simple/simple.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;

constexpr int kLargestSide = 32767;
constexpr int kValuesPerLine = 12;

// Words, numbers and the characters between them. Of a word, which may be of any length, what
// counts is what follows its last underscore.
class Tokens {
 public:
  enum Kind : std::uint8_t { kEnd, kWord, kNumber, kCharacter };

  Status open(StreamHandle stream) { return text_.open(stream); }

  Kind next() {
    int c = text_.next();
    while (is_blank(c)) c = text_.next();
    if (c < 0) return kEnd;
    if (is_digit(c)) return read_number(c);
    if (is_word(c)) {
      read_word(c, is_word);
      return kWord;
    }
    character_ = c;
    return kCharacter;
  }

  // Up to a blank. Programs make names of those of files: they may hold anything.
  void next_name() {
    int c = text_.next();
    while (is_blank(c)) c = text_.next();
    read_word(c, [](int next) { return next >= 0 && !is_blank(next); });
  }

  bool ends_in(std::string_view name) const { return tail_ == name.size() && is_start_of(name); }
  bool is(std::string_view name) const { return ends_in(name) && !has_underscore_; }
  std::int64_t value() const { return number_.value; }
  // The last number was cut off, maybe: more stands behind those of a picture.
  bool is_at_end() const { return at_end_; }
  bool is_character(char c) const { return character_ == c; }

 private:
  template <class InWord>
  void read_word(int c, InWord&& in_word) {
    tail_ = 0;
    has_underscore_ = false;
    for (; in_word(c); c = text_.next()) {
      if (c == '_') {
        has_underscore_ = true;
        tail_ = 0;
      } else if (tail_ <= std::size(letters_)) {
        if (tail_ < std::size(letters_)) letters_[tail_] = static_cast<char>(c);
        ++tail_;
      }
    }
    text_.put_back(c);
  }

  Kind read_number(int c) {
    number_ = {};
    const int first = c;
    int base = 10;
    for (; is_word(c); c = text_.next()) {
      if (first == '0' && lower(c) == 'x') base = 16;
      const int digit = digit_value(c);
      if (digit >= 0 && digit < base) number_.add(digit, base);
    }
    at_end_ = c < 0;
    text_.put_back(c);
    return kNumber;
  }

  bool is_start_of(std::string_view name) const {
    return name.size() <= std::size(letters_) && std::equal(name.begin(), name.end(), letters_);
  }

  CText text_;
  Number number_;
  char letters_[8] = {};
  std::size_t tail_ = 0;  // letters behind the last underscore; one more than there is room for
  bool has_underscore_ = false;
  int character_ = 0;
  bool at_end_ = false;
};

struct XBitmap {
  std::int64_t width = 0, height = 0;
  int unit = 1;  // bytes of a number
};

// Up to the numbers.
Status read_header(Tokens& tokens, XBitmap& file) {
  for (;;) {
    const Tokens::Kind kind = tokens.next();
    if (kind == Tokens::kEnd) return StatusCode::bad_image;
    if (kind == Tokens::kCharacter && tokens.is_character('{')) break;
    if (kind != Tokens::kWord) continue;
    if (tokens.is("char")) file.unit = 1;
    if (tokens.is("short")) file.unit = 2;
    if (!tokens.is("define")) continue;
    tokens.next_name();
    const bool is_width = tokens.ends_in("width"), is_height = tokens.ends_in("height");
    if (!is_width && !is_height) continue;
    const bool is_number = tokens.next() == Tokens::kNumber;
    (is_width ? file.width : file.height) = is_number ? tokens.value() : 0;
  }
  const auto is_side = [](std::int64_t side) { return side > 0 && side <= kLargestSide; };
  return is_side(file.width) && is_side(file.height) ? StatusCode::ok : StatusCode::bad_image;
}

// Bytes of a row, as far as there are numbers. The lowest bit is the first pixel.
std::ptrdiff_t read_line(Tokens& tokens, int unit, Row line) {
  std::ptrdiff_t filled = 0;
  while (filled < std::ssize(line)) {
    const Tokens::Kind kind = tokens.next();
    if (kind == Tokens::kCharacter && tokens.is_character(',')) continue;
    if (kind != Tokens::kNumber) break;
    for (int i = 0; i < unit; ++i) line[filled++] = byte(tokens.value() >> 8 * i);
  }
  coding::reverse_bits(line.first(static_cast<std::size_t>(filled)));
  return filled;
}

}  // namespace

Status decode_xbm(const formats::DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  Tokens tokens;
  TQ_TRY(tokens.open(request.stream));
  XBitmap file;
  TQ_TRY(read_header(tokens, file));
  HeaderBlock image =
      dib_header(static_cast<std::int32_t>(file.width), static_cast<std::int32_t>(file.height), 1);
  image.palette = grey_levels(1);
  TQ_TRY(request.sink.header(image));
  const int unit_bits = 8 * file.unit;
  const formats::StoredRows rows{find_layout(Layout::bits_1_black, 1),
                                 (file.width + unit_bits - 1) / unit_bits * file.unit};
  bool ended = false;
  return formats::deliver_rows(rows, image.header, request.sink, [&](Row line) {
    const std::ptrdiff_t there = ended ? 0 : read_line(tokens, file.unit, line);
    ended = there < std::ssize(line);
    if (tokens.is_at_end()) request.sink.damaged(StatusCode::read_failed);
    return there;
  });
}

Status can_encode_xbm(const formats::EncodeRequest& request) {
  if (request.image->header.biBitCount != 1) return StatusCode::wrong_depth;
  return formats::check_plain(request, kLargestSide);
}

Status encode_xbm(const formats::EncodeRequest& request) {
  TQ_TRY(can_encode_xbm(request));
  const HeaderBlock& image = *request.image;
  const RowLayout* const layout = find_black_layout(image.palette);
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  out.print("#define image_width %d\n#define image_height %d\n", image.header.biWidth,
            image.header.biHeight);
  out.put("static unsigned char image_bits[] = {");
  std::int64_t values = 0;
  const auto write = [&](Row line) {
    coding::reverse_bits(line);
    for (const int value : line) {
      constexpr std::string_view kDigits = "0123456789abcdef";
      if (values != 0) out.put8(',');
      out.put(values++ % kValuesPerLine == 0 ? "\n  0x" : " 0x");
      out.put8(kDigits[value >> 4]);
      out.put8(kDigits[value & 15]);
    }
    return out.status();
  };
  TQ_TRY(
      formats::supply_rows({layout, stored_bytes(*layout, image.header.biWidth)}, request, write));
  out.put("\n};\n");
  return out.flush();
}

}  // namespace tq::simple
