// tarnquill scan: pages from a scanner to files.
#include <cstdio>

#include "codes.h"
#include "command.h"
#include "errors.h"
#include "progress.h"
#include "system.h"
#include "tarnquill.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    {"list", 0, nullptr, "print the names of the scanners, and scan nothing"},
    {"source", 0, "NAME", "the scanner (default: the system's, or the first)"},
    {"dpi", 0, "N", "dots per inch"},
    {"mode", 0, "bw|grey|colour", "what to scan: black and white, grey, colours"},
    {"feeder", 0, nullptr, "take the pages from the feeder, until it is empty"},
    {"duplex", 0, nullptr, "both sides of each page"},
    {"pages", 0, "N", "no more than so many"},
    {"output", 'o', "NAME", "the files, default 'page-####.tif'"},
    {"first", 0, "N", "number of the first page (default 1)"},
    {"code", 0, "N", "file type code of the files, a number or a name"},
    {"quiet", 'q', nullptr, "no notes and no progress bar"},
    {"help", 'h', nullptr, "this text"},
};

// The library's meaning of a status, and the source's own.
[[noreturn]] void fail(std::int32_t status) {
  char reason[200];
  const std::int32_t code = IMG_scan_reason(reason, sizeof reason);
  if (code == 0 && reason[0] == '\0') throw Failure("scanner", status);
  throw Failure("scanner: " + printable(reason), status);
}

int list_sources() {
  char name[1024];
  for (std::int32_t i = 0;; ++i) {
    const std::int32_t found = IMG_scan_source(i, name, sizeof name);
    if (found < 0) fail(found);
    if (found == 0) return flushed(kExitOk);
    std::puts(printable(name).c_str());
  }
}

std::int32_t parse_mode(const std::string& name) {
  if (name == "bw") return 1;
  if (name == "grey" || name == "gray") return 8;
  if (name == "colour" || name == "color") return 24;
  throw UsageError("--mode takes bw, grey or colour, not '" + printable(name) + "'");
}

std::int32_t code_of(const Arguments& arguments) {
  const auto text = arguments.value("code");
  if (!text) return IMG_TYPE_BY_NAME;
  const auto code = parse_code(*text);
  if (!code) throw UsageError("unknown file type code " + printable(*text));
  return *code;
}

// Scanners take what is nearest, and the user is told.
void set(std::int32_t option, std::int32_t value, const char* what, bool quiet) {
  const std::int32_t status = IMG_scan_set(option, value);
  if (quiet || status == IMG_OK) return;
  if (status < 0) {
    complain(std::string("the scanner does not take --") + what);
    return;
  }
  std::int32_t now = 0;
  if (option != IMG_SCAN_RESOLUTION || IMG_scan_get(option, &now) != IMG_OK) {
    complain(std::string("the scanner has another value for --") + what);
    return;
  }
  complain("the scanner takes " + std::to_string((now + 500) / 1000) + " dots per inch");
}

// Ends with the scope, so that a failure leaves no session.
struct Session {
  explicit Session(const char* source) {
    const std::int32_t opened = IMG_scan_open(nullptr, source);
    if (opened < 0) fail(opened);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() { IMG_scan_close(); }
};

int run_scan(const Arguments& arguments) {
  if (!arguments.operands().empty()) throw UsageError("scan takes no names but that of --output");
  if (arguments.has("list")) {
    const int code = list_sources();
    IMG_scan_close();
    return code;
  }
  const bool quiet = arguments.has("quiet");
  const auto dpi = arguments.number("dpi", 1, 65535);
  const auto mode = arguments.value("mode");
  const std::int32_t bits = mode ? parse_mode(*mode) : 0;
  const std::int32_t pages = arguments.number("pages", 1, 0x7FFFFFFF).value_or(0);
  const std::int32_t first = arguments.number("first", 0, 0x7FFFFFFF).value_or(1);
  const std::int32_t code = code_of(arguments);
  const auto source = arguments.value("source");
  const std::string name = arguments.value("output").value_or("page-####.tif");

  Progress progress(!quiet && is_terminal(stderr));
  const Session session(source ? source->c_str() : nullptr);
  const bool feeds = arguments.has("feeder") || arguments.has("duplex");
  set(IMG_SCAN_FEEDER, feeds ? 1 : 0, "feeder", quiet);
  set(IMG_SCAN_DUPLEX, arguments.has("duplex") ? 1 : 0, "duplex", quiet);
  if (mode) set(IMG_SCAN_MODE, bits, "mode", quiet);
  if (dpi) set(IMG_SCAN_RESOLUTION, 1000 * *dpi, "dpi", quiet);
  set(IMG_SCAN_MAX_PAGES, pages, "pages", quiet);
  progress.begin_file(name);
  progress.begin_stage("scanning");
  const std::int32_t scanned = IMG_scan_to_files(name.c_str(), first, code);
  progress.clear();
  if (scanned == IMG_UNSUPPORTED && name.find('#') == std::string::npos) {
    throw Failure(name + ": without #### in its name it must be of a kind that has pages", scanned);
  }
  if (scanned < 0) fail(scanned);
  if (!quiet) std::fprintf(stderr, "%d page%s\n", scanned, scanned == 1 ? "" : "s");
  return kExitOk;
}

}  // namespace

Command scan_command() {
  return {
      "scan",
      "",
      "Scans pages to files.",
      "The last run of # in NAME becomes the number of the page, with zeros in front; a file\n"
      "that is there is replaced. Without it all pages go into one file, of a kind that has "
      "pages;\n"
      "those of a file that exists stay. What the scanner cannot do is said, and it scans as it\n"
      "can. On Windows scanners are TWAIN's: the program of 32 bits reaches its sources of 32 "
      "bits,\n"
      "which most are. Elsewhere they are SANE's.\n",
      "--feeder --dpi 300 --mode bw -o 'page-####.tif'",
      {std::begin(kOptions), std::end(kOptions)},
      run_scan,
  };
}

}  // namespace tool
