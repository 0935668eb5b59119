// tarnquill info: what files are, as a table or as JSON.
#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string_view>

#include "analyse.h"
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
    {"analyse", 0, nullptr, "decode what is shown, and print as JSON what stands on it"},
    {"pages", 0, nullptr, "a line for each page, with its coding and orientation"},
    {"help", 'h', nullptr, "this text"},
};

// What is known of one file, or of one of its pages.
struct Report {
  std::string file;
  std::uint64_t bytes = 0;
  std::optional<std::int32_t> code;
  std::optional<std::int32_t> pages;
  std::optional<ImageFacts> facts;
  std::optional<std::int32_t> page, orientation;  // from 1 on; as TIFF counts
  std::string coding;
  std::int32_t status = IMG_OK;  // why something is not known
  std::string message;           // the same in words, with the file
  std::string analysis;          // JSON
};

struct Looks {
  bool for_damage, at_contents;
};

void look_inside(const Input& input, int page, Looks looks, Report& report) {
  const std::int32_t image = input.decode(page);
  report_damage(image, page_label(input.label(), page));
  if (looks.at_contents) report.analysis = analysis(input.label(), image);
  IMG_delete_bitmap(image);
}

void note_failure(Report& report, const Failure& failure) {
  report.status = failure.status();
  report.message = failure.what();
}

// What is not known of a page says nothing of the others.
Report look_at_page(const Input& input, const Report& file, int page, Looks looks) {
  Report report = file;
  try {
    if (page >= file.pages.value_or(1)) throw Failure(input.label(), IMG_PAGE_PAST_END);
    report.facts = input.facts(page);
    report.coding = input.coding(page);
    report.orientation = input.orientation(page);
    if (looks.for_damage || looks.at_contents) look_inside(input, page, looks, report);
  } catch (const Failure& failure) {
    note_failure(report, failure);
  }
  return report;
}

// One page of the file, or, without a number, a page after the other.
void look_at(const std::string& name, std::optional<int> page, Looks looks,
             std::vector<Report>& reports) {
  Report report;
  report.file = name;
  try {
    within_memory(input_label(name), [&] {
      const Input input(name);
      report.file = input.label();
      report.bytes = input.bytes();
      report.code = input.file_type();
      report.pages = input.pages();
      if (page) return reports.push_back(look_at_page(input, report, *page, looks));
      for (int i = 0; i < *report.pages; ++i) {
        reports.push_back(look_at_page(input, report, i, looks));
        reports.back().page = i + 1;
      }
    });
  } catch (const Failure& failure) {
    note_failure(report, failure);
    reports.push_back(report);
  }
}

const char* colours_of(const ImageFacts& facts) {
  constexpr std::uint32_t kColours = 200;  // biCompression of 32 bits that are no inks
  if (facts.bits == 1) return "mono";
  if (facts.bits == 32 && facts.compression != kColours) return "CMYK";
  if (facts.bits >= 24) return "RGB";
  return facts.bits == 16 || facts.is_grey ? "grey" : "palette";
}

std::string title_of(std::int32_t code) {
  const auto named = find_code(code);
  return named ? named->title : "code " + std::to_string(code);
}

// ---- Table ----

constexpr const char* kTitles[] = {"FILE", "FORMAT", "CODE",   "SIZE",        "DEPTH", "COLOURS",
                                   "DPI",  "PAGES",  "CODING", "ORIENTATION", "BYTES"};
using Cells = std::array<std::string, std::size(kTitles)>;
constexpr bool kAlignedRight[] = {false, false, true,  true, true, false,
                                  true,  true,  false, true, true};

Cells cells_of(const Report& report) {
  Cells cells;
  cells.fill("-");
  cells[0] = printable(report.file);
  cells[1] = title_of(*report.code);
  cells[2] = std::to_string(*report.code);
  if (report.facts) {
    const ImageFacts& facts = *report.facts;
    cells[3] = size_text(facts.width, facts.height);
    cells[4] = std::to_string(facts.bits);
    cells[5] = colours_of(facts);
    if (facts.x_dpi > 0 && facts.y_dpi > 0) {
      cells[6] = std::to_string(facts.x_dpi);
      if (facts.y_dpi != facts.x_dpi) cells[6] += "x" + std::to_string(facts.y_dpi);
    }
  }
  if (report.pages) cells[7] = std::to_string(*report.pages);
  if (report.page) cells[7] = std::to_string(*report.page);
  if (!report.coding.empty()) cells[8] = report.coding;
  if (report.orientation) cells[9] = std::to_string(*report.orientation);
  cells[10] = std::to_string(report.bytes);
  return cells;
}

// UTF-8 continuation bytes take no room on the screen.
std::size_t columns(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

void print_table(const std::vector<Report>& reports, bool by_page) {
  std::vector<Cells> table(1);
  std::copy(std::begin(kTitles), std::end(kTitles), table[0].begin());
  if (by_page) table[0][7] = "PAGE";
  for (const Report& report : reports) {
    if (report.code) table.push_back(cells_of(report));
  }
  if (table.size() == 1) return;  // nothing but complaints
  std::array<std::size_t, std::tuple_size_v<Cells>> widths = {};
  for (const Cells& cells : table) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], columns(cells[i]));
    }
  }
  for (const Cells& cells : table) {
    std::string line;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      const std::string gap(widths[i] - columns(cells[i]), ' ');
      if (i > 0) line += "  ";
      line += kAlignedRight[i] ? gap + cells[i] : cells[i] + gap;
    }
    std::puts(line.c_str());
  }
}

// ---- JSON ----

std::string or_null(std::optional<std::int32_t> number) {
  return number ? std::to_string(*number) : "null";
}

void print_json(const std::vector<Report>& reports) {
  std::string text = "[";
  for (const Report& report : reports) {
    text += text.size() == 1 ? "\n  {" : ",\n  {";
    text += "\"file\": " + quoted(report.file);
    if (report.code) {
      text += ", \"bytes\": " + std::to_string(report.bytes);
      text += ", \"format\": " + quoted(title_of(*report.code));
      text += ", \"code\": " + std::to_string(*report.code);
      text += ", \"pages\": " + or_null(report.pages);
    }
    if (report.page) text += ", \"page\": " + std::to_string(*report.page);
    if (!report.coding.empty()) text += ", \"coding\": " + quoted(report.coding);
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
      text += std::string(", \"colours\": \"") + colours_of(facts) + "\"";
      text += ", \"x_dpi\": " + dpi(facts.x_dpi) + ", \"y_dpi\": " + dpi(facts.y_dpi);
    }
    if (!report.analysis.empty()) text += ", \"analysis\": " + report.analysis;
    if (report.status < 0) {
      text += ", \"status\": " + std::to_string(report.status);
      text += ", \"error\": " + quoted(report.message);
    }
    text += "}";
  }
  std::fputs((text + "\n]\n").c_str(), stdout);
}

int run_info(const Arguments& arguments) {
  if (arguments.operands().empty()) throw UsageError("info needs the name of a file");
  const int page = arguments.number("page", 1, 0xFFFF).value_or(1) - 1;
  const bool by_page = arguments.has("pages"), analyses = arguments.has("analyse");
  std::vector<Report> reports;
  for (const std::string& name : arguments.operands()) {
    look_at(name, by_page ? std::nullopt : std::optional(page), {arguments.has("check"), analyses},
            reports);
  }
  if (arguments.has("json") || analyses) {
    print_json(reports);
  } else {
    print_table(reports, by_page);
  }
  int code = flushed(kExitOk);
  for (const Report& report : reports) {
    if (report.status == IMG_OK) continue;
    complain(report.message);
    code = kExitError;
  }
  return code;
}

}  // namespace

Command info_command() {
  return {
      "info",
      "FILE...",
      "Tells what image files are.",
      "Shows format, file type code, size in pixels, bits per pixel, dots per inch and the number "
      "of\n"
      "pages, or of each page all of that and how TIFF codes and orients it (1 to 8, 1 is "
      "upright).\n"
      "Size and depth are those of the decoded image. A FILE of - is standard input. What is not\n"
      "known is shown as -, in JSON as null or not at all.\n",
      "--pages faxes.tif",
      {std::begin(kOptions), std::end(kOptions)},
      run_info,
  };
}

}  // namespace tool
