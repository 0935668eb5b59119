// tarnquill dither, gray, reduce, threshold, promote: one operation on the pixels of one image.
#include "operate.h"

#include <cstdio>

#include "codes.h"
#include "command.h"
#include "errors.h"
#include "input.h"
#include "library_options.h"
#include "output.h"
#include "progress.h"
#include "system.h"

namespace tool {
namespace {

std::int32_t choose_code(const Arguments& arguments, const std::string& out) {
  if (const auto text = arguments.value("code")) {
    const auto code = parse_code(*text);
    if (!code) throw UsageError("unknown file type code '" + printable(*text) + "'");
    return *code;
  }
  if (out == "-") throw UsageError("standard output needs --code");
  const auto code = code_of_file_name(out);
  if (!code) {
    throw UsageError("no format is known by the end of '" + printable(out) + "': use --code");
  }
  return *code;
}

void operate_on(const std::string& from, int page, const std::string& to, std::int32_t code,
                const Operation& operation, Progress& progress) {
  progress.begin_file(input_label(from));
  progress.begin_stage("reading");
  std::int32_t image = -1;
  {
    const Input input(from);  // the output may be the same file
    image = input.decode(page);
    report_damage(image, input.label());
  }
  progress.begin_stage("processing");
  check(input_label(from), operation(image));
  progress.begin_stage("writing");
  const auto type = find_code(code);
  const bool appends = type && (type->flags & IMG_FORMAT_APPENDS) != 0;
  const SavePage save = [&](std::int32_t stream) {
    return IMG_save_bitmap_fd(image, stream, code);
  };
  for (bool done = false; !done;) {
    std::optional<Output> output;
    appends ? output.emplace(to, save) : output.emplace(to);
    output->save(save);
    done = output->commit();
  }
  progress.clear();
  IMG_delete_bitmap(image);
}

}  // namespace

int operate(const Arguments& arguments, const Operation& operation) {
  const std::vector<std::string>& names = arguments.operands();
  if (names.size() != 2) throw UsageError("an input and an output are needed");
  const std::int32_t code = choose_code(arguments, names[1]);
  const int page = arguments.number("page", 1, 0xFFFF).value_or(1) - 1;
  if (names[1] == "-" && is_terminal(stdout)) {
    throw UsageError("an image is not written to a terminal: use a file or a pipe");
  }

  Progress progress(!arguments.has("quiet") && is_terminal(stderr));
  within_memory(input_label(names[0]),
                [&] { operate_on(names[0], page, names[1], code, operation, progress); });
  return kExitOk;
}

namespace {

struct Method {
  const char* name;
  std::int32_t(IMG_CALL* run)(std::int32_t image);
};

// The method that --method names, the first of them without it.
template <std::size_t kCount>
Operation choose_method(const Arguments& arguments, const Method (&methods)[kCount]) {
  const std::string wanted = arguments.value("method").value_or(methods[0].name);
  std::string known;
  for (const Method& method : methods) {
    if (wanted == method.name) return method.run;
    known += std::string(known.empty() ? "" : ", ") + method.name;
  }
  throw UsageError("--method takes one of " + known + ", not '" + printable(wanted) + "'");
}

constexpr Option kDitherOptions[] = {
    {"method", 0, "NAME",
     "black and white: diffusion (default), bayer, halftone;\n16 colours: diffusion-color, "
     "bayer-color"},
    kCodeOption,
    kPageOption,
    kQuietOption,
    kHelpOption};

int run_dither(const Arguments& arguments) {
  constexpr Method kMethods[] = {{"diffusion", IMG_diffusion_mono},
                                 {"bayer", IMG_bayer_mono},
                                 {"halftone", IMG_halftone_mono},
                                 {"diffusion-color", IMG_diffusion_color},
                                 {"bayer-color", IMG_bayer_color}};
  return operate(arguments, choose_method(arguments, kMethods));
}

constexpr Option kGrayOptions[] = {kCodeOption, kPageOption, kQuietOption, kHelpOption};

int run_gray(const Arguments& arguments) {
  return operate(arguments, IMG_color_gray);
}

constexpr Option kReduceOptions[] = {{"method", 0, "NAME", "octree (default), popularity, fixed"},
                                     {"colors", 0, "N", "octree: how many, 8 to 256"},
                                     {"bits", 0, "4|8", "octree: bits per pixel of the result"},
                                     {"dither-mode", 0, "N", "fixed: 2 for the system's colours"},
                                     kCodeOption,
                                     kPageOption,
                                     kQuietOption,
                                     kHelpOption};

int run_reduce(const Arguments& arguments) {
  const std::int32_t bits = arguments.number("bits", 4, 8).value_or(8);
  if (bits != 4 && bits != 8) throw UsageError("--bits takes 4 or 8");
  const std::int32_t colors = arguments.number("colors", 8, 256).value_or(256);
  IMGLOW_set_dithermode(arguments.number("dither-mode", 0, 0x7FFFFFFF).value_or(1));
  constexpr Method kMethods[] = {
      {"octree", nullptr}, {"popularity", IMG_popularity_color}, {"fixed", IMG_mediancut_color}};
  const Operation method = choose_method(arguments, kMethods);
  return operate(
      arguments, method ? method : [=](std::int32_t image) {
        return IMG_octree_color(image, bits, nullptr, colors);
      });
}

constexpr Option kThresholdOptions[] = {
    {"level", 0, "N",
     "white is what is brighter than N, 0 to 255; without it the\nlevel is chosen "
     "from the histogram"},
    kCodeOption,
    kPageOption,
    kQuietOption,
    kHelpOption};

int run_threshold(const Arguments& arguments) {
  const std::int32_t level = arguments.number("level", 0, 255).value_or(-1);
  return operate(arguments, [=](std::int32_t image) { return IMG_thresh_mono(image, level); });
}

constexpr Option kPromoteOptions[] = {
    {"bits", 0, "8|24|32", "bits per pixel of the result (default 24)"},
    kCodeOption,
    kPageOption,
    kQuietOption,
    kHelpOption};

int run_promote(const Arguments& arguments) {
  switch (arguments.number("bits", 8, 32).value_or(24)) {
    case 8:
      return operate(arguments, IMG_promote_8);
    case 24:
      return operate(arguments, IMG_promote_24);
    case 32:
      return operate(arguments, IMG_promote_32);
    default:
      throw UsageError("--bits takes 8, 24 or 32");
  }
}

}  // namespace

const Command kDither = {
    "dither",       "IN OUT",       "Dithers an image to black and white or 16 colours.",
    kOperationHelp, kDitherOptions, run_dither};
const Command kGray = {"gray",         "IN OUT",     "Makes an 8-bit grey image.",
                       kOperationHelp, kGrayOptions, run_gray};
const Command kReduce = {
    "reduce",       "IN OUT",       "Reduces an image to a palette of its own or a fixed one.",
    kOperationHelp, kReduceOptions, run_reduce};
const Command kThreshold = {
    "threshold",    "IN OUT",          "Makes an image black and white at one level.",
    kOperationHelp, kThresholdOptions, run_threshold};
const Command kPromote = {"promote",      "IN OUT",        "Gives an image more bits per pixel.",
                          kOperationHelp, kPromoteOptions, run_promote};

}  // namespace tool
