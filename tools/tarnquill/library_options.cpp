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
       {IMG_OPTION_READING, IMG_OPTION_DETECTION, IMG_OPTION_EXTENDED_FORMATS,
        IMG_OPTION_JPEG_WRITING, IMG_OPTION_PDF_WRITING, IMG_OPTION_UTF8_NAMES}) {
    IMG_set_option(option, 1);
  }
  const bool rotates = arguments.value("rotate") == "auto" || arguments.value("angle") == "auto";
  if (rotates || !arguments.has("no-orient")) IMG_set_option(IMG_OPTION_ORIENTATION, 1);
}

bool report_damage(std::int32_t image, const std::string& label) {
  std::int32_t reason = 0, first = 0, last = 0, height = 0;
  if (is_contract || IMG_get_damage(image, nullptr, &reason) != 1) return false;
  was_damaged = true;
  IMG_get_damaged_rows(image, &first, &last, &height);
  const bool ends_early = reason == IMG_READ_FAILED;
  const bool all = first == 0 && last == height - 1;
  std::string what = ends_early ? "the end of the file is missing" : "the file is damaged";
  if (reason == IMG_UNSUPPORTED) {
    what = "the page has more on it than its pictures, which are all that is read";
  } else if (first >= 0) {
    what = "rows " + std::to_string(first) + " to " + std::to_string(last) + " of " +
           std::to_string(height) +
           (!ends_early ? " are damaged"
            : all       ? " are missing in part"
                        : " are missing");
  }
  complain(printable(label) + ": " + what);
  return true;
}

bool damage_was_reported() {
  return was_damaged;
}

}  // namespace tool
