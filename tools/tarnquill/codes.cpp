// Look-ups in the library's description of the formats.
#include "codes.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace tool {
namespace {

std::string lower_case(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

template <class Test>
std::optional<img_format> first(Test&& test) {
  img_format format{};
  format.size = sizeof format;
  for (std::int32_t i = 0; IMG_get_format(i, &format) == IMG_OK; ++i) {
    if (test(format)) return format;
  }
  return std::nullopt;
}

template <class Test>
std::optional<std::int32_t> first_code(Test&& test) {
  const auto found = first(test);
  return found ? std::optional(found->code) : std::nullopt;
}

}  // namespace

std::optional<img_format> find_code(std::int32_t code) {
  return first([code](const img_format& format) { return format.code == code; });
}

std::optional<std::int32_t> parse_code(std::string_view text) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) {
    return number >= 0 ? std::optional(number) : std::nullopt;
  }
  const std::string wanted = lower_case(text);
  return first_code([&](const img_format& format) {
    return wanted == format.name || (!wanted.empty() && wanted == format.extension);
  });
}

std::optional<std::int32_t> code_of_file_name(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot + 1 == name.size()) return std::nullopt;
  std::string ending = lower_case(std::string_view(name).substr(dot + 1));
  if (ending == "pbm" || ending == "pgm" || ending == "ppm") ending = "pnm";
  return first_code([&](const img_format& format) {  // "a.tif" and "a.tiff"
    return ending == format.extension || ending == format.name;
  });
}

std::string ending_of(const img_format& format) {
  const std::string_view name = format.name;
  const std::string_view of_format = name.substr(0, name.find('-'));
  if (format.extension[0] != 0 || of_format == name) return format.extension;
  const auto base = first([&](const img_format& other) { return of_format == other.name; });
  return base ? base->extension : "";
}

std::string tiff_coding_name(std::int32_t coding) {
  constexpr std::pair<std::int32_t, const char*> kNames[] = {{1, "none"},
                                                             {2, "Huffman"},
                                                             {3, "Group 3"},
                                                             {4, "Group 4"},
                                                             {5, "LZW"},
                                                             {6, "old JPEG"},
                                                             {7, "JPEG"},
                                                             {8, "deflate"},
                                                             {9, "JBIG"},
                                                             {10, "JBIG"},
                                                             {32766, "NeXT"},
                                                             {32771, "word-aligned Huffman"},
                                                             {32773, "PackBits"},
                                                             {32809, "ThunderScan"},
                                                             {32946, "deflate"},
                                                             {34661, "JBIG"},
                                                             {34676, "LogLuv"},
                                                             {34677, "LogLuv"},
                                                             {34712, "JPEG 2000"},
                                                             {34887, "LERC"},
                                                             {34892, "lossy JPEG"},
                                                             {34925, "LZMA"},
                                                             {50000, "Zstandard"},
                                                             {50001, "WebP"},
                                                             {50002, "JPEG XL"}};
  for (const auto& [number, name] : kNames) {
    if (number == coding) return name;
  }
  return std::to_string(coding);
}

bool holds_pages(std::int32_t code) {
  const auto type = find_code(code);
  return type && (type->flags & IMG_FORMAT_APPENDS) != 0;
}

}  // namespace tool
