// tarnquill info: what files are, as a table or as JSON.
#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string_view>

#include "codes.h"
#include "command.h"
#include "errors.h"
#include "input.h"
#include "library_options.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    {"json", 0, nullptr, "an array of objects instead of a table"},
    {"page", 0, "N", "the page to look at, from 1 on"},
    {"check", 0, nullptr, "decode what is shown, and tell of damage"},
    {"pages", 0, nullptr, "a line for each page, with its coding and orientation"},
    {"help", 'h', nullptr, "this text"},
};

// What is known of one file, or of one of its pages.
struct Report {
  std::string file;
  std::optional<std::int32_t> code;
  std::optional<std::int32_t> pages;
  std::optional<ImageFacts> facts;
  std::optional<std::int32_t> page, coding, orientation;  // from 1 on; TIFF's numbers
  std::int32_t status = IMG_OK;                           // why something is not known
};

std::optional<std::int32_t> number_of(const Input& input, int page, int tag) {
  const std::optional<TagFacts> facts = input.tag(page, tag);
  if (!facts || facts->type != IMG_TIFF_SHORT || facts->bytes.size() < 2) return {};
  return facts->bytes[0] | facts->bytes[1] << 8;
}

void look_for_damage(const Input& input, int page) {
  const std::int32_t image = input.decode(page);
  report_damage(image, input.label());
  IMG_delete_bitmap(image);
}

// One of the pages that all are asked for: what is not known of it says nothing of the others.
Report look_at_page(const Input& input, const Report& file, int page, bool checks) {
  Report report = file;
  report.page = page + 1;
  try {
    report.facts = input.facts(page);
    constexpr int kCompression = 259, kOrientation = 274;
    report.coding = number_of(input, page, kCompression);
    if (report.coding) report.orientation = number_of(input, page, kOrientation).value_or(1);
    if (checks) look_for_damage(input, page);
  } catch (const Failure& failure) {
    report.status = failure.status();
  }
  return report;
}

// One page of the file, or, without a number, a page after the other.
void look_at(const std::string& name, std::optional<int> page, bool checks,
             std::vector<Report>& reports) {
  Report report;
  report.file = name;
  try {
    within_memory(input_label(name), [&] {
      const Input input(name);
      report.file = input.label();
      report.code = check(report.file, input.file_type());
      if (const std::int32_t pages = input.pages(); pages >= 0) report.pages = pages;
      const int count = std::max(report.pages.value_or(1), 1);
      for (int i = 0; !page && i < count; ++i) {
        reports.push_back(look_at_page(input, report, i, checks));
      }
      if (!page) return;
      if (report.pages && *page >= count) throw Failure(report.file, IMG_PAGE_PAST_END);
      report.facts = input.facts(*page);
      if (checks) look_for_damage(input, *page);
      reports.push_back(report);
    });
  } catch (const Failure& failure) {
    report.status = failure.status();
    reports.push_back(report);
  }
}

// As TIFF numbers them.
std::string coding_name(std::int32_t coding) {
  constexpr std::pair<std::int32_t, const char*> kNames[] = {
      {1, "none"},        {2, "Huffman"},      {3, "Group 3"},        {4, "Group 4"},
      {5, "LZW"},         {6, "old JPEG"},     {7, "JPEG"},           {8, "deflate"},
      {32946, "deflate"}, {32773, "PackBits"}, {32809, "ThunderScan"}};
  for (const auto& [number, name] : kNames) {
    if (number == coding) return name;
  }
  return std::to_string(coding);
}

// What of it is not supported, as far as that can be told: of a DICOM file how its pixels are coded, by the
// element (0002,0010) of its first bytes (PS3.10).
std::string reason_of(const Report& report) {
  if (report.status != IMG_UNSUPPORTED || report.code != IMG_TYPE_DICOM) return {};
  constexpr std::string_view kElement("\x02\x00\x10\x00UI", 6);
  std::string start(4096, '\0');
  std::ifstream(report.file, std::ios::binary)
      .read(start.data(), static_cast<std::streamsize>(start.size()));
  const std::size_t found = start.find(kElement);
  if (found == std::string::npos || found + 8 > start.size()) return {};
  const std::string value = start.substr(found + 8, 64);
  return "transfer syntax " + value.substr(0, value.find_first_not_of("0123456789."));
}

std::string title_of(std::int32_t code) {
  const auto named = find_code(code);
  return named ? named->title : "code " + std::to_string(code);
}

// ---- Table ----

using Cells = std::array<std::string, 9>;
constexpr bool kAlignedRight[] = {false, false, true, true, true, true, true, false, true};
constexpr std::size_t kCellsOfFile = 7;  // the others are a page's

Cells cells_of(const Report& report) {
  Cells cells = {printable(report.file), "-", "-", "-", "-", "-", "-", "-", "-"};
  if (report.code) {
    cells[1] = title_of(*report.code);
    cells[2] = std::to_string(*report.code);
  }
  if (report.facts) {
    const ImageFacts& facts = *report.facts;
    cells[3] = std::to_string(facts.width) + "x" + std::to_string(facts.height);
    cells[4] = std::to_string(facts.bits);
    if (facts.x_dpi > 0 && facts.y_dpi > 0) {
      cells[5] = std::to_string(facts.x_dpi);
      if (facts.y_dpi != facts.x_dpi) cells[5] += "x" + std::to_string(facts.y_dpi);
    }
  }
  if (report.pages) cells[6] = std::to_string(*report.pages);
  if (report.page) cells[6] = std::to_string(*report.page);
  if (report.coding) cells[7] = coding_name(*report.coding);
  if (report.orientation) cells[8] = std::to_string(*report.orientation);
  return cells;
}

// UTF-8 continuation bytes take no room on the screen.
std::size_t columns(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

void print_table(const std::vector<Report>& reports, bool by_page) {
  std::vector<Cells> table = {{"FILE", "FORMAT", "CODE", "SIZE", "DEPTH", "DPI",
                               by_page ? "PAGE" : "PAGES", "CODING", "ORIENTATION"}};
  const std::size_t count = by_page ? table[0].size() : kCellsOfFile;
  for (const Report& report : reports) {
    if (report.code) table.push_back(cells_of(report));
  }
  if (table.size() == 1) return;  // nothing but complaints
  std::array<std::size_t, std::tuple_size_v<Cells>> widths = {};
  for (const Cells& cells : table) {
    for (std::size_t i = 0; i < count; ++i) {
      widths[i] = std::max(widths[i], columns(cells[i]));
    }
  }
  for (const Cells& cells : table) {
    std::string line;
    for (std::size_t i = 0; i < count; ++i) {
      const std::string gap(widths[i] - columns(cells[i]), ' ');
      if (i > 0) line += "  ";
      line += kAlignedRight[i] ? gap + cells[i] : cells[i] + gap;
    }
    std::puts(line.c_str());
  }
}

// ---- JSON ----

std::string quoted(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const Character next = first_character(text);
    if (next.lone) {
      result += "\\ufffd";  // file names may hold any bytes, JSON may not
    } else if (controls_terminal(next.code)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(next.code) & 0xFFFF);
      result += escape;
    } else {
      if (text[0] == '"' || text[0] == '\\') result += '\\';
      result += text.substr(0, next.bytes);
    }
    text.remove_prefix(next.bytes);
  }
  return result + "\"";
}

std::string or_null(std::optional<std::int32_t> number) {
  return number ? std::to_string(*number) : "null";
}

void print_json(const std::vector<Report>& reports) {
  std::string text = "[";
  for (const Report& report : reports) {
    text += text.size() == 1 ? "\n  {" : ",\n  {";
    text += "\"file\": " + quoted(report.file);
    if (report.code) {
      text += ", \"format\": " + quoted(title_of(*report.code));
      text += ", \"code\": " + std::to_string(*report.code);
      text += ", \"pages\": " + or_null(report.pages);
    }
    if (report.page) text += ", \"page\": " + std::to_string(*report.page);
    if (report.coding) text += ", \"coding\": " + quoted(coding_name(*report.coding));
    if (report.orientation) {
      text += ", \"orientation\": " + std::to_string(*report.orientation);
    }
    if (report.facts) {
      const ImageFacts& facts = *report.facts;
      const auto dpi = [](int value) {
        return or_null(value > 0 ? std::optional(value) : std::nullopt);
      };
      text += ", \"width\": " + std::to_string(facts.width);
      text += ", \"height\": " + std::to_string(facts.height);
      text += ", \"depth\": " + std::to_string(facts.bits);
      text += ", \"x_dpi\": " + dpi(facts.x_dpi) + ", \"y_dpi\": " + dpi(facts.y_dpi);
    }
    if (report.status < 0) {
      text += ", \"status\": " + std::to_string(report.status);
      text += ", \"error\": " + quoted(status_meaning(report.status));
      if (!reason_of(report).empty()) text += ", \"reason\": " + quoted(reason_of(report));
    }
    text += "}";
  }
  std::fputs((text + "\n]\n").c_str(), stdout);
}

int run_info(const Arguments& arguments) {
  if (arguments.operands().empty()) throw UsageError("info needs the name of a file");
  const int page = arguments.number("page", 1, 0xFFFF).value_or(1) - 1;
  const bool by_page = arguments.has("pages");
  std::vector<Report> reports;
  for (const std::string& name : arguments.operands()) {
    look_at(name, by_page ? std::nullopt : std::optional(page), arguments.has("check"), reports);
  }
  if (arguments.has("json")) {
    print_json(reports);
  } else {
    print_table(reports, by_page);
  }
  int code = flushed(kExitOk);
  for (const Report& report : reports) {
    if (report.status == IMG_OK) continue;
    const std::string reason = reason_of(report);
    complain(Failure(report.file, report.status).what() + (reason.empty() ? "" : ": " + reason));
    code = kExitError;
  }
  return code;
}

}  // namespace

const Command kInfo = {
    "info",
    "FILE...",
    "Tells what image files are.",
    "Shows format, file type code, size in pixels, bits per pixel, dots per inch and the number "
    "of\n"
    "pages, or of each page all of that and how TIFF codes and orients it (1 to 8, 1 is upright).\n"
    "Size and depth are those of the decoded image. A FILE of - is standard input. What is not\n"
    "known is shown as -, in JSON as null or not at all.\n",
    kOptions,
    run_info,
};

}  // namespace tool
