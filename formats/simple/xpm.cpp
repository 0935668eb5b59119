// X pixmaps: C text whose strings hold the size, the colours by name or by number, each with the
// characters that stand for it, and the rows.
#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "formats/rows.h"
#include "formats/simple/c_text.h"
#include "formats/simple/simple.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;

// --- Colours ---

struct NamedColour {
  std::string_view name;
  std::uint32_t rgb;
};

// Those of the window system, where some differ from those of the web; gray0 to gray100 are
// computed. Sorted.
// clang-format off
constexpr NamedColour kNamedColours[] = {
    {"aliceblue", 0xF0F8FF}, {"antiquewhite", 0xFAEBD7}, {"aqua", 0x00FFFF},
    {"aquamarine", 0x7FFFD4}, {"azure", 0xF0FFFF}, {"beige", 0xF5F5DC}, {"bisque", 0xFFE4C4},
    {"black", 0x000000}, {"blanchedalmond", 0xFFEBCD}, {"blue", 0x0000FF}, {"blueviolet", 0x8A2BE2},
    {"brown", 0xA52A2A}, {"burlywood", 0xDEB887}, {"cadetblue", 0x5F9EA0}, {"chartreuse", 0x7FFF00},
    {"chocolate", 0xD2691E}, {"coral", 0xFF7F50}, {"cornflowerblue", 0x6495ED},
    {"cornsilk", 0xFFF8DC}, {"crimson", 0xDC143C}, {"cyan", 0x00FFFF}, {"darkblue", 0x00008B},
    {"darkcyan", 0x008B8B}, {"darkgoldenrod", 0xB8860B}, {"darkgray", 0xA9A9A9},
    {"darkgreen", 0x006400}, {"darkkhaki", 0xBDB76B}, {"darkmagenta", 0x8B008B},
    {"darkolivegreen", 0x556B2F}, {"darkorange", 0xFF8C00}, {"darkorchid", 0x9932CC},
    {"darkred", 0x8B0000}, {"darksalmon", 0xE9967A}, {"darkseagreen", 0x8FBC8F},
    {"darkslateblue", 0x483D8B}, {"darkslategray", 0x2F4F4F}, {"darkturquoise", 0x00CED1},
    {"darkviolet", 0x9400D3}, {"debianred", 0xD70751}, {"deeppink", 0xFF1493},
    {"deepskyblue", 0x00BFFF}, {"dimgray", 0x696969}, {"dodgerblue", 0x1E90FF},
    {"firebrick", 0xB22222}, {"floralwhite", 0xFFFAF0}, {"forestgreen", 0x228B22},
    {"fuchsia", 0xFF00FF}, {"gainsboro", 0xDCDCDC}, {"ghostwhite", 0xF8F8FF}, {"gold", 0xFFD700},
    {"goldenrod", 0xDAA520}, {"gray", 0xBEBEBE}, {"green", 0x00FF00}, {"greenyellow", 0xADFF2F},
    {"honeydew", 0xF0FFF0}, {"hotpink", 0xFF69B4}, {"indianred", 0xCD5C5C}, {"indigo", 0x4B0082},
    {"ivory", 0xFFFFF0}, {"khaki", 0xF0E68C}, {"lavender", 0xE6E6FA}, {"lavenderblush", 0xFFF0F5},
    {"lawngreen", 0x7CFC00}, {"lemonchiffon", 0xFFFACD}, {"lightblue", 0xADD8E6},
    {"lightcoral", 0xF08080}, {"lightcyan", 0xE0FFFF}, {"lightgoldenrod", 0xEEDD82},
    {"lightgoldenrodyellow", 0xFAFAD2}, {"lightgray", 0xD3D3D3}, {"lightgreen", 0x90EE90},
    {"lightpink", 0xFFB6C1}, {"lightsalmon", 0xFFA07A}, {"lightseagreen", 0x20B2AA},
    {"lightskyblue", 0x87CEFA}, {"lightslateblue", 0x8470FF}, {"lightslategray", 0x778899},
    {"lightsteelblue", 0xB0C4DE}, {"lightyellow", 0xFFFFE0}, {"lime", 0x00FF00},
    {"limegreen", 0x32CD32}, {"linen", 0xFAF0E6}, {"magenta", 0xFF00FF}, {"maroon", 0xB03060},
    {"mediumaquamarine", 0x66CDAA}, {"mediumblue", 0x0000CD}, {"mediumorchid", 0xBA55D3},
    {"mediumpurple", 0x9370DB}, {"mediumseagreen", 0x3CB371}, {"mediumslateblue", 0x7B68EE},
    {"mediumspringgreen", 0x00FA9A}, {"mediumturquoise", 0x48D1CC}, {"mediumvioletred", 0xC71585},
    {"midnightblue", 0x191970}, {"mintcream", 0xF5FFFA}, {"mistyrose", 0xFFE4E1},
    {"moccasin", 0xFFE4B5}, {"navajowhite", 0xFFDEAD}, {"navy", 0x000080}, {"navyblue", 0x000080},
    {"oldlace", 0xFDF5E6}, {"olive", 0x808000}, {"olivedrab", 0x6B8E23}, {"orange", 0xFFA500},
    {"orangered", 0xFF4500}, {"orchid", 0xDA70D6}, {"palegoldenrod", 0xEEE8AA},
    {"palegreen", 0x98FB98}, {"paleturquoise", 0xAFEEEE}, {"palevioletred", 0xDB7093},
    {"papayawhip", 0xFFEFD5}, {"peachpuff", 0xFFDAB9}, {"peru", 0xCD853F}, {"pink", 0xFFC0CB},
    {"plum", 0xDDA0DD}, {"powderblue", 0xB0E0E6}, {"purple", 0xA020F0}, {"red", 0xFF0000},
    {"rosybrown", 0xBC8F8F}, {"royalblue", 0x4169E1}, {"saddlebrown", 0x8B4513},
    {"salmon", 0xFA8072}, {"sandybrown", 0xF4A460}, {"seagreen", 0x2E8B57}, {"seashell", 0xFFF5EE},
    {"sienna", 0xA0522D}, {"silver", 0xC0C0C0}, {"skyblue", 0x87CEEB}, {"slateblue", 0x6A5ACD},
    {"slategray", 0x708090}, {"snow", 0xFFFAFA}, {"springgreen", 0x00FF7F}, {"steelblue", 0x4682B4},
    {"tan", 0xD2B48C}, {"teal", 0x008080}, {"thistle", 0xD8BFD8}, {"tomato", 0xFF6347},
    {"turquoise", 0x40E0D0}, {"violet", 0xEE82EE}, {"violetred", 0xD02090}, {"wheat", 0xF5DEB3},
    {"white", 0xFFFFFF}, {"whitesmoke", 0xF5F5F5}, {"yellow", 0xFFFF00}, {"yellowgreen", 0x9ACD32},
};
// clang-format on

// A word or a name of several, without blanks, in lower case. Nothing that is known is longer.
class ColourText {
 public:
  void clear() { length_ = 0; }
  void add(int c) {
    if (length_ < std::size(text_)) text_[length_++] = static_cast<char>(lower(c));
  }
  void add(const ColourText& word) {
    for (const char c : word.view()) add(c);
  }
  std::string_view view() const { return {text_, length_}; }

 private:
  char text_[32] = {};
  std::size_t length_ = 0;
};

constexpr Rgb rgb(std::uint32_t value) {
  return {byte(value), byte(value >> 8), byte(value >> 16), 0};
}

// The text from a place on that it has.
constexpr std::string_view from(std::string_view text, std::size_t first) {
  text.remove_prefix(first);
  return text;
}

// Of each colour 1 to 4 digits, the first two of which count.
Rgb parse_digits(std::string_view digits) {
  const std::size_t each = digits.size() / 3;
  std::uint32_t value = 0;
  if (each < 1 || each > 4 || digits.size() % 3 != 0) return {};
  for (std::size_t i = 0; i < 3; ++i) {
    const int high = digit_value(digits[i * each]),
              low = digit_value(digits[i * each + (each > 1)]);
    if (high < 0 || low < 0) return {};
    value = value << 8 | static_cast<std::uint32_t>(high << 4 | low);
  }
  return rgb(value);
}

// Of 100.
Rgb parse_grey_level(std::string_view digits) {
  int level = 0;
  for (const char c : digits) {
    if (!is_digit(c)) return {};
    level = level * 10 + digit_value(c);
    if (level > 100) return {};
  }
  return grey_ramp()[(level * 255 + 50) / 100];
}

// Black for what nobody knows.
Rgb parse_name(std::string_view name) {
  char american[32];
  std::ranges::copy(name, american);
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (from(name, i).starts_with("grey")) american[i + 2] = 'a';
  }
  name = {american, name.size()};
  if (name.size() > 4 && name.starts_with("gray")) return parse_grey_level(from(name, 4));
  const auto* const found = std::ranges::lower_bound(kNamedColours, name, {}, &NamedColour::name);
  return found != std::end(kNamedColours) && found->name == name ? rgb(found->rgb) : Rgb{};
}

// --- Reading ---

constexpr int kMostColours = 1 << 24;
constexpr int kLongestKey = 8;

// Strings, one behind the other.
class Strings {
 public:
  Status open(StreamHandle stream) { return text_.open(stream); }

  // Whether there is one more.
  bool begin() {
    while (inside_) next();
    int c = text_.next();
    while (c >= 0 && c != '"') c = text_.next();
    inside_ = c >= 0;
    return inside_;
  }
  // A character, or -1 at the end of the string.
  int next() {
    if (!inside_) return -1;
    int c = text_.next_in_string();
    if (c == '\\') {
      c = text_.next_in_string();
    } else if (c == '"') {
      c = -1;
    }
    inside_ = c >= 0;
    return c;
  }

 private:
  CText text_;
  bool inside_ = false;
};

// The characters of a pixel, and what they stand for.
struct Key {
  std::uint64_t characters;
  std::uint32_t index;
  Rgb colour;
};

struct XPixmap {
  std::int64_t width = 0, height = 0, colours = 0, key_length = 0;
  int transparent = -1;  // the only one without a colour
  RowBuffer<Key> keys;
};

// False at the end of the string.
bool read_key(Strings& strings, std::int64_t length, std::uint64_t& characters) {
  characters = 0;
  for (; length > 0; --length) {
    const int c = strings.next();
    if (c < 0) return false;
    characters = characters << 8 | byte(c);
  }
  return true;
}

Status read_size(Strings& strings, std::int64_t file_bytes, XPixmap& file) {
  if (!strings.begin()) return StatusCode::read_failed;
  int c = ' ';
  for (std::int64_t* field : {&file.width, &file.height, &file.colours, &file.key_length}) {
    while (is_blank(c)) c = strings.next();
    if (!is_digit(c)) return StatusCode::bad_image;
    Number number;
    for (; is_digit(c); c = strings.next()) number.add(c - '0', 10);
    *field = number.value;
  }
  const bool possible = file.width <= INT32_MAX && file.height <= INT32_MAX &&
                        file.key_length >= 1 && file.key_length <= kLongestKey &&
                        file.colours >= 1 &&
                        file.colours <= std::min<std::int64_t>(kMostColours, file_bytes);
  return possible ? StatusCode::ok : StatusCode::bad_image;
}

// How good a colour is by the kind of screen it is meant for; -1 of a word that names no kind.
int rank_of(std::string_view word) {
  constexpr std::string_view kKinds[] = {"s", "m", "g4", "g", "c"};
  const auto* const found = std::ranges::find(kKinds, word);
  return found != std::end(kKinds) ? static_cast<int>(found - kKinds) : -1;
}

// What follows the characters of a colour: pairs of a kind of screen and a colour.
void read_colour(Strings& strings, ColourText& best) {
  ColourText word, colour;
  int best_rank = 0, rank = 0;  // the first is a name for programs
  for (int c = ' '; c >= 0;) {
    word.clear();
    while (is_blank(c)) c = strings.next();
    for (; c >= 0 && !is_blank(c); c = strings.next()) word.add(c);
    const int next_rank = rank_of(word.view());
    if (next_rank < 0) colour.add(word);
    if (next_rank >= 0 || c < 0) {
      if (rank > best_rank) {
        best = colour;
        best_rank = rank;
      }
      rank = next_rank;
      colour.clear();
    }
  }
}

// unsupported for colours that are neither names nor red, green and blue.
Status read_colours(Strings& strings, XPixmap& file) {
  int without = 0;
  TQ_TRY(file.keys.allocate(file.colours));
  for (std::uint32_t i = 0; i < file.keys.size(); ++i) {
    Key& key = file.keys[i];
    if (!strings.begin() || !read_key(strings, file.key_length, key.characters)) {
      return StatusCode::read_failed;
    }
    key.index = i;
    ColourText text;
    read_colour(strings, text);
    const std::string_view colour = text.view();
    if (colour.starts_with('%')) return StatusCode::unsupported;
    if (colour == "none") {
      key.colour = grey_ramp()[255];
      file.transparent = ++without == 1 ? static_cast<int>(i) : -1;
    } else {
      key.colour = colour.starts_with('#') ? parse_digits(from(colour, 1)) : parse_name(colour);
    }
  }
  return kOk;
}

// Indices in bytes, or colours when there are too many for a palette.
formats::StoredRows describe(XPixmap& file, HeaderBlock& image) {
  const std::span<Key> keys = file.keys.pixels();
  const auto width = static_cast<std::int32_t>(file.width);
  const auto height = static_cast<std::int32_t>(file.height);
  if (keys.size() > 256) {
    image = dib_header(width, height, 24);
    return {find_layout(Layout::bgr, 24), 3 * file.width};
  }
  std::array<Rgb, 256> colours{};
  for (const Key& key : keys) colours[key.index] = key.colour;
  int bits = keys.size() <= 16 ? 4 : 8;
  if (keys.size() == 2) {
    const RowLayout& way = *find_bit_layout(colours);
    bits = way.bits;
    if (way.layout == Layout::bits_1_black) {
      std::swap(colours[0], colours[1]);
      for (Key& key : keys) key.index ^= 1;
      if (file.transparent >= 0) file.transparent ^= 1;
    }
  }
  image = dib_header(width, height, bits);
  image.palette = colours;
  if (file.transparent >= 0) image.header.biClrUsed = kTransparent | file.transparent;
  return {find_layout(Layout::bytes, bits), file.width};
}

// Of characters that stand for several colours the last one counts. Others, and what a row lacks,
// are the first colour.
class Rows {
 public:
  Rows(Strings& strings, const XPixmap& file)
      : strings_(strings), file_(file), first_(file.keys[0]) {
    std::ranges::sort(file.keys.pixels(), [](const Key& a, const Key& b) {
      return a.characters != b.characters ? a.characters < b.characters : a.index > b.index;
    });
    last_ = file.keys[0];
  }

  std::ptrdiff_t read(Row line) {
    if (!strings_.begin()) return 0;
    const std::ptrdiff_t bytes = file_.keys.size() <= 256 ? 1 : 3;
    bool there = true;
    for (std::ptrdiff_t at = 0; at < std::ssize(line); at += bytes) {
      std::uint64_t characters = 0;
      there = there && read_key(strings_, file_.key_length, characters);
      const Key& key = there ? find(characters) : first_;
      if (bytes == 1) {
        line[at] = byte(key.index);
      } else {
        std::memcpy(&line[at], &key.colour, 3);
      }
    }
    cut_ = cut_ || !there;
    return std::ssize(line);
  }
  bool was_cut() const { return cut_; }

 private:
  const Key& find(std::uint64_t characters) {
    if (characters != last_.characters) {
      const auto keys = file_.keys.pixels();
      const auto found = std::ranges::lower_bound(keys, characters, {}, &Key::characters);
      last_ = found != keys.end() && found->characters == characters ? *found : first_;
      last_.characters = characters;
    }
    return last_;
  }

  Strings& strings_;
  const XPixmap& file_;
  Key first_, last_;
  bool cut_ = false;  // a line had fewer pixels
};

}  // namespace

Status decode_xpm(const formats::DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  const std::int64_t start = request.start();
  std::int64_t bytes = INT32_MAX;
  if (end_is_known(request.stream)) bytes = seek(request.stream, 0, Origin::end) - start;
  TQ_TRY(seek_to(request.stream, start));
  Strings strings;
  TQ_TRY(strings.open(request.stream));
  XPixmap file;
  TQ_TRY(read_size(strings, bytes, file));
  TQ_TRY(read_colours(strings, file));
  HeaderBlock image;
  const formats::StoredRows stored = describe(file, image);
  TQ_TRY(request.sink.header(image));
  Rows rows(strings, file);
  return formats::deliver_rows(stored, image.header, request.sink, [&](Row line) {
    const std::ptrdiff_t there = rows.read(line);
    if (rows.was_cut()) request.sink.damaged(StatusCode::read_failed);
    return there;
  });
}

// --- Writing ---

namespace {

// The printable characters that need no care in strings; without the question mark, which C
// compilers may take for the beginning of a trigraph.
constexpr std::string_view kCharacters =
    " .XoO+@#$%&*=-;:>,<1234567890qwertyuipasdfghjklzxcvbnmMNBVCZASDFGHJKLPIUYTREWQ!~^/()_`'][{}|";
constexpr int kCharacterCount = 92;
static_assert(kCharacters.size() == kCharacterCount);

// Up to the quotation mark before the first row.
void write_header(const HeaderBlock& image, int key_length, StreamWriter& out) {
  const BitmapInfoHeader& header = image.header;
  const int colours = 1 << header.biBitCount;
  const bool transparent = (header.biClrUsed & kTransparent) != 0;
  out.print("/* XPM */\nstatic char *image[] = {\n\"%d %d %d %d\"", header.biWidth, header.biHeight,
            colours, key_length);
  for (int i = 0; i < colours; ++i) {
    const Rgb& colour = image.palette[i];
    out.put(",\n\"");
    out.put8(kCharacters[i % kCharacterCount]);
    if (key_length > 1) out.put8(kCharacters[i / kCharacterCount]);
    if (transparent && i == static_cast<int>(header.biClrUsed & 0xFF)) {
      out.put(" c None\"");
    } else {
      out.print(" c #%02X%02X%02X\"", colour.red, colour.green, colour.blue);
    }
  }
}

}  // namespace

Status can_encode_xpm(const formats::EncodeRequest& request) {
  if (request.image->header.biBitCount > 8) return StatusCode::wrong_depth;
  return formats::check_plain(request, INT32_MAX);
}

Status encode_xpm(const formats::EncodeRequest& request) {
  TQ_TRY(can_encode_xpm(request));
  const HeaderBlock& image = *request.image;
  const int bits = image.header.biBitCount;
  const int key_length = 1 << bits > kCharacterCount ? 2 : 1;
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  write_header(image, key_length, out);
  const auto write = [&](Bytes line) {
    out.put(",\n\"");
    for (const int index : line) {
      out.put8(kCharacters[index % kCharacterCount]);
      if (key_length > 1) out.put8(kCharacters[index / kCharacterCount]);
    }
    out.put8('"');
    return out.status();
  };
  TQ_TRY(formats::supply_rows({find_layout(Layout::bytes, bits), image.header.biWidth}, request,
                              write));
  out.put("\n};\n");
  return out.flush();
}

}  // namespace tq::simple
