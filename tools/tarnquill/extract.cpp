// tarnquill extract: the picture of every page as a file of its own, as it is coded where that is possible.
#include <array>
#include <cstdio>
#include <string>

#include "codes.h"
#include "command.h"
#include "errors.h"
#include "input.h"
#include "output.h"
#include "page_choice.h"
#include "progress.h"
#include "system.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    kPageOption,
    kPagesOption,
    {"quiet", 'q', nullptr, "no notes and no progress bar"},
    {"verbose", 'v', nullptr, "a line for each result"},
    {"help", 'h', nullptr, "this text"},
};

// Whether the page is there under this name and code now. A JPEG file that is not the page's own data would
// lose some.
bool extract_as(const Input& input, int page, const std::string& name, std::int32_t code,
                bool verbose) {
  const auto type = find_code(code);
  Output output(type ? name + "." + ending_of(*type) : name);
  std::int32_t how = 0;
  output.save([&](std::int32_t stream) { return how = input.copy_page(page, stream, code); });
  if (how == 1 && code == IMG_TYPE_JPEG) return false;
  static_cast<void>(output.commit());  // nothing that could have changed
  if (verbose) {
    std::fprintf(stderr, "%s, page %d -> %s: %s\n", printable(input.label()).c_str(), page + 1,
                 printable(output.label()).c_str(), how == 0 ? "as it was" : "coded again");
  }
  return true;
}

void extract_page(const Input& input, int page, const std::string& name, bool verbose) {
  const int bits = input.facts(page).bits;
  if (bits == 1) {
    extract_as(input, page, name, IMG_TYPE_TIFF_G4, verbose);
    return;
  }
  const bool may_be_jpeg = bits == 8 || bits >= 24;
  if (may_be_jpeg && extract_as(input, page, name, IMG_TYPE_JPEG, verbose)) return;
  extract_as(input, page, name, bits == 32 ? IMG_TYPE_TIFF : IMG_TYPE_PNG, verbose);
}

int run_extract(const Arguments& arguments) {
  const auto& names = arguments.operands();
  if (names.size() != 2) throw UsageError("extract needs a file and a name for its pictures");
  const bool quiet = arguments.has("quiet");
  Progress progress(!quiet && is_terminal(stderr));
  progress.begin_file(input_label(names[0]));
  const Input input(names[0]);
  input.file_type();
  const int count = input.pages();
  const std::vector<int> pages = PageChoice::of(arguments).of_file(count);
  if (pages.size() > 1 && !is_numbered(names[1])) {
    throw UsageError("the pictures of " + std::to_string(pages.size()) +
                     " pages need a name with %d in it, for their numbers");
  }
  for (const int page : pages) {
    if (page >= count) throw Failure(input.label(), IMG_PAGE_PAST_END);
    within_memory(input.label(), [&] {
      progress.begin_stage("writing");
      extract_page(input, page, numbered_name(names[1], page + 1),
                   arguments.has("verbose") && !quiet);
    });
    if (interrupted() != 0) throw Failure(input.label(), kInterrupted);
  }
  progress.clear();
  return kExitOk;
}

}  // namespace

Command extract_command() {
  return {
      "extract",
      "FILE NAME",
      "Writes the picture of every page to a file of its own.",
      "NAME gets the ending of what the picture is, and the number of the page where it has %d, "
      "or\n"
      "%03d. Jpeg and facsimile pictures come out as they are in FILE where the format allows "
      "that;\n"
      "others, and what cannot be taken out, as png, tiff-g4 or tiff.\n",
      "book.pdf page-%03d",
      {std::begin(kOptions), std::end(kOptions)},
      run_extract,
  };
}

}  // namespace tool
