// tarnquill formats: what the library reads and writes.
#include <algorithm>
#include <cstdio>
#include <vector>

#include "command.h"
#include "errors.h"
#include "tarnquill.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    {"help", 'h', nullptr, "this text"},
};

// "1 4 8" of a set of bits.
std::string depths_text(std::int32_t depths) {
  constexpr int kDepths[] = {1, 4, 8, 16, 24, 32};
  std::string text;
  for (int i = 0; i < 6; ++i) {
    if ((depths >> i & 1) == 0) continue;
    if (!text.empty()) text += ' ';
    text += std::to_string(kDepths[i]);
  }
  return text.empty() ? "-" : text;
}

int run_formats(const Arguments& arguments) {
  if (!arguments.operands().empty()) throw UsageError("formats takes no names");
  std::puts(
      "CODE  NAME            FORMAT                         READ            WRITTEN         NOTES");
  std::vector<img_format> formats;
  img_format next{};
  next.size = sizeof next;
  for (std::int32_t i = 0; IMG_get_format(i, &next) == IMG_OK; ++i) formats.push_back(next);
  std::sort(formats.begin(), formats.end(),
            [](const img_format& a, const img_format& b) { return a.code < b.code; });
  for (const img_format& format : formats) {
    std::string notes;
    if ((format.flags & IMG_FORMAT_PAGES) != 0) notes += "pages";
    if ((format.flags & IMG_FORMAT_APPENDS) != 0) notes += ", appends";
    if ((format.flags & IMG_FORMAT_MODULE) != 0)
      notes += notes.empty() ? "no module" : ", no module";
    char columns[128];
    std::snprintf(columns, sizeof columns, "%4d  %-14s  %-29s  %-14s  %-14s", format.code,
                  format.name, format.title, depths_text(format.read_depths).c_str(),
                  depths_text(format.write_depths).c_str());
    std::string line = columns;
    if (!notes.empty()) line += "  " + notes;
    line.erase(line.find_last_not_of(' ') + 1);
    std::puts(line.c_str());
  }
  return flushed(kExitOk);
}

}  // namespace

Command formats_command() {
  return {
      "formats",
      "",
      "Lists the formats.",
      "Names and numbers are those of --code; READ and WRITTEN are the depths in bits a pixel.\n",
      "",
      {std::begin(kOptions), std::end(kOptions)},
      run_formats,
  };
}

}  // namespace tool
