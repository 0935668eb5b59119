// From the command line to a plan.
#include "plan.h"

#include <algorithm>
#include <thread>

#include "codes.h"
#include "errors.h"
#include "library_options.h"
#include "pdf_options.h"
#include "system.h"
#include "tarnquill.h"

namespace tool {
namespace {

constexpr Option kDecodeOptions[] = {
    {"rect", 0, "X,Y,W,H", "decode this rectangle only: less memory than --crop"},
    {"decode-size", 0, "WxH", "decode to this size, nearest pixels: less memory than\n--size"},
    {"reduce", 0, "8|4|1", "decode to this many bits per pixel"},
    {"dither-mode", 0, "N",
     "how --reduce maps colours: 2 to the nearest one,\nany other number by an ordered dither "
     "(default)"},
    {"keep-inks", 0, nullptr,
     "cyan, magenta, yellow and black stay what they are, or are\nrefused"},
};

constexpr Option kOutputOptions[] = {
    {"code", 0, "N", "file type code of the result, a number or a name: see\n'tarnquill formats'"},
    kPagesOption,
    kPageOption,
    {"quality", 0, "N", "of jpeg and pdf: 1 (smallest file) to 100 (best)"},
    {"sampling", 0, "HxV",
     "of jpeg and pdf: pixels per colour sample across and\ndown, 1x1, 2x1 (default), 2x2; grey "
     "has none"},
    {"progressive", 0, nullptr, "jpeg in several scans, each finer than the one before"},
    {"optimise", 0, nullptr, "jpeg with codes made for the picture: smaller, slower"},
    kPaperOption,
    kMarginOption,
    kPageFitOption,
    kTurnPagesOption,
    kLosslessOption,
    kTitleOption,
    kAuthorOption,
    {"jobs", 'j', "N", "work on so many inputs at a time (default: one for each\nprocessor)"},
    {"no-clobber", 'n', nullptr, "pass over results that are there already"},
    {"keep-dates", 0, nullptr, "results get the date of their inputs"},
    {"log", 0, "FILE", "add a line of JSON for each input of a batch"},
    {"resume", 0, "FILE",
     "pass over inputs that are done by this log and have not\nchanged since, and go on with it"},
    {"output", 'o', "OUT", "the result; all operands are inputs then"},
    {"quiet", 'q', nullptr, "no notes, no closing line and no progress bar"},
    {"verbose", 'v', nullptr, "a line for each result"},
    {"help", 'h', nullptr, "this text"},
};

void choose_output(const std::string& command, const Arguments& arguments, Plan& plan) {
  plan.inputs = arguments.operands();
  if (const auto named = arguments.value("output")) {
    plan.out = *named;
  } else {
    if (plan.inputs.size() < 2) throw UsageError(command + " needs an input and an output");
    plan.out = plan.inputs.back();
    plan.inputs.pop_back();
  }
  if (plan.inputs.empty()) throw UsageError(command + " needs an input");
  if (plan.out.empty()) throw UsageError("the name of the output is empty");
  const PathKind kind = plan.out == "-" ? PathKind::other : path_kind(plan.out);
  if (kind == PathKind::folder || (kind == PathKind::absent && is_separator(plan.out.back()))) {
    plan.kind = Plan::Out::folder;
  } else if (is_numbered(plan.out)) {
    plan.kind = Plan::Out::numbered;
  }
}

std::int32_t choose_code(const Arguments& arguments, const Plan& plan) {
  if (const auto text = arguments.value("code")) {
    const auto code = parse_code(*text);
    if (!code) throw UsageError("unknown file type code '" + printable(*text) + "'");
    return *code;
  }
  if (plan.kind == Plan::Out::folder) throw UsageError("a folder as the output needs --code");
  if (plan.out == "-") throw UsageError("standard output needs --code");
  const auto code = code_of_file_name(plan.out);
  if (!code) {
    throw UsageError("no format is known by the end of '" + printable(plan.out) + "': use --code");
  }
  return *code;
}

void check_output(const Plan& plan) {
  if (plan.appends) {
    if (plan.kind == Plan::Out::folder) throw UsageError("a folder cannot be appended to");
    if (plan.kind == Plan::Out::numbered)
      throw UsageError("a name with a number cannot be appended to");
    if (plan.out == "-") throw UsageError("standard output cannot be appended to");
    if (!plan.has_pages) {
      throw UsageError("this format holds one image only: " + printable(plan.out));
    }
  }
  if (plan.kind == Plan::Out::file && plan.inputs.size() > 1 && !plan.has_pages) {
    throw UsageError(
        "many inputs need a folder, a name with %d, or a format of many pages, as the output: " +
        printable(plan.out));
  }
  if (plan.kind != Plan::Out::folder && !(plan.log.empty() && plan.resume.empty())) {
    throw UsageError("--log and --resume need a folder as the output");
  }
  if (plan.out == "-" && is_terminal(stdout)) {
    throw UsageError("an image is not written to a terminal: use -o FILE or a pipe");
  }
}

// A JPEG file may have ten blocks in a unit, two of them for colour.
Size parse_sampling(const std::string& text) {
  const Size sampling = parse_size("sampling", text);
  if (sampling.width > 4 || sampling.height > 4 || sampling.width * sampling.height > 8) {
    throw UsageError("--sampling takes factors up to 4 and products up to 8");
  }
  return sampling;
}

// Whether nothing is asked for that pixels would have to be touched, or looked at, for.
bool may_copy(const Arguments& arguments, const Plan& plan) {
  if (plan.code != IMG_TYPE_PDF || !plan.chain.empty()) return false;
  constexpr const char* kChanges[] = {"rect",     "decode-size", "reduce",   "quality",
                                      "sampling", "progressive", "optimise", "no-orient",
                                      "strict",   "contract"};
  return std::none_of(std::begin(kChanges), std::end(kChanges),
                      [&](const char* name) { return arguments.has(name); });
}

// Whether nothing is to happen between decoding and saving.
bool may_pass(const Arguments& arguments, const Plan& plan) {
  return plan.chain.empty() && !plan.appends && !plan.rect && !plan.decode_size &&
         !arguments.has("reduce");
}

// Whoever works on with other options does not have the same results.
std::string options_text(const std::string& command, const Arguments& arguments) {
  constexpr const char* kWithout[] = {"log", "resume", "jobs", "quiet", "verbose", "output"};
  std::string text = command;
  for (const auto& [name, value] : arguments.in_order()) {
    if (std::find(std::begin(kWithout), std::end(kWithout), name) != std::end(kWithout)) continue;
    text += " --" + name + (value.empty() ? "" : "=" + value);
  }
  return text;
}

}  // namespace

std::span<const Option> decode_options() {
  return kDecodeOptions;
}

std::span<const Option> output_options() {
  return kOutputOptions;
}

Plan make_plan(const std::string& command, const Arguments& arguments) {
  Plan plan;
  plan.appends = command == "append";
  choose_output(command, arguments, plan);
  plan.code = choose_code(arguments, plan);
  plan.has_pages = holds_pages(plan.code);
  plan.pages = PageChoice::of(arguments);
  if (const auto text = arguments.value("rect"); text && find_operation(command) == nullptr) {
    plan.rect = parse_rect("rect", *text);
  }
  if (const auto text = arguments.value("decode-size")) {
    plan.decode_size = parse_size("decode-size", *text);
  }
  if (plan.rect && plan.decode_size) {
    throw UsageError("--rect and --decode-size exclude each other; see --crop");
  }
  if (const auto text = arguments.value("sampling")) plan.sampling = parse_sampling(*text);
  plan.chain = make_chain(command, arguments);
  const auto processors = static_cast<int>(std::thread::hardware_concurrency());
  plan.jobs = arguments.number("jobs", 1, 256).value_or(std::clamp(processors, 1, 256));
  plan.keep_inks = arguments.has("keep-inks");
  plan.copies = may_copy(arguments, plan);
  plan.passes = may_pass(arguments, plan);
  plan.no_clobber = arguments.has("no-clobber");
  plan.keep_dates = arguments.has("keep-dates");
  plan.quiet = arguments.has("quiet");
  plan.verbose = arguments.has("verbose") && !plan.quiet;
  plan.resume = arguments.value("resume").value_or("");
  plan.log = arguments.value("log").value_or(plan.resume);
  plan.options = options_text(command, arguments);
  check_output(plan);
  return plan;
}

void apply_settings(const Arguments& arguments, const Plan& plan) {
  if (plan.decode_size) IMGLOW_set_decompsize(plan.decode_size->width, plan.decode_size->height);
  if (const auto bits = arguments.number("reduce", 1, 8)) {
    if (*bits != 8 && *bits != 4 && *bits != 1) throw UsageError("--reduce takes 8, 4 or 1");
    IMGLOW_set_decomp_reduction(*bits);
  }
  if (const auto mode = arguments.number("dither-mode", 0, 0x7FFFFFFF)) {
    IMGLOW_set_dithermode(*mode);
  }
  apply_pdf_options(arguments);
  if (arguments.has("progressive")) IMG_set_option(IMG_OPTION_JPEG_PROGRESSIVE, 1);
  if (arguments.has("optimise")) IMG_set_option(IMG_OPTION_JPEG_OPTIMISE, 1);
  if (const auto quality = arguments.number("quality", 1, 100)) IMGLOW_set_comp_quality(*quality);
}

}  // namespace tool
