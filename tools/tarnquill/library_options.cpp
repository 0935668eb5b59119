// Names of options for numbers of the library's.
#include "library_options.h"

#include <atomic>

#include "command.h"
#include "errors.h"
#include "tarnquill.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    {"contract", 0, nullptr, "the library's defaults, whatever other programs do"},
    {"strict", 0, nullptr, "a damaged file is an error, not what is left of it"},
    {"no-orient", 0, nullptr, "images as they are stored, not as their file says to\nturn them"},
    {"limit-pixels", 0, "N", "refuse pictures of more pixels (default 2^30; 0: any)"},
    {"limit-kbytes", 0, "N", "use at most so much memory (default 2097152; 0: any)"},
    {"limit-scans", 0, "N", "of a JPEG picture (default 500; 0: any)"},
};

struct Limit {
  const char* name;
  std::int32_t option, value;
};
constexpr Limit kLimits[] = {
    {"limit-pixels", IMG_OPTION_MAX_PIXELS, 1 << 30},
    {"limit-kbytes", IMG_OPTION_MAX_KBYTES, 2 << 20},
    {"limit-scans", IMG_OPTION_MAX_SCANS, 500},
};

std::atomic<bool> is_contract = false, was_damaged = false;  // of all jobs

}  // namespace

std::span<const Option> library_options() {
  return kOptions;
}

void apply_library_options(const Arguments& arguments) {
  is_contract = arguments.has("contract");
  for (const Limit& limit : kLimits) {
    const auto value = arguments.number(limit.name, 0, 0x7FFFFFFF);
    IMG_set_option(limit.option, value.value_or(is_contract ? 0 : limit.value));
  }
  if (arguments.has("strict")) IMG_set_option(IMG_OPTION_STRICT, 1);
  if (is_contract) return;
  for (const std::int32_t option :
       {IMG_OPTION_READING, IMG_OPTION_DETECTION, IMG_OPTION_JPEG_WRITING, IMG_OPTION_PDF_WRITING,
        IMG_OPTION_UTF8_NAMES}) {
    IMG_set_option(option, 1);
  }
  if (!arguments.has("no-orient")) IMG_set_option(IMG_OPTION_ORIENTATION, 1);
}

void report_damage(std::int32_t image, const std::string& label) {
  std::int32_t rows = 0, reason = 0;
  if (is_contract || IMG_get_damage(image, &rows, &reason) != 1) return;
  was_damaged = true;
  complain(printable(label) + ": damaged after " + std::to_string(rows) +
           " rows: " + status_meaning(reason) + " (" + std::to_string(reason) + ")");
}

bool damage_was_reported() {
  return was_damaged;
}

}  // namespace tool
