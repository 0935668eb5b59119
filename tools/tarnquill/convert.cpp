// tarnquill convert: decodes, cuts, reduces and scales, and saves under another code.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <thread>

#include "codes.h"
#include "command.h"
#include "cropped_rows.h"
#include "dib_header.h"
#include "errors.h"
#include "input.h"
#include "library_options.h"
#include "output.h"
#include "pdf_options.h"
#include "progress.h"
#include "system.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    {"code", 0, "N", "file type code of the result, a number or a name: see\n'tarnquill formats'"},
    {"crop", 0, "X,Y,W,H", "write this rectangle only; applies after --size"},
    {"rect", 0, "X,Y,W,H", "decode this rectangle only: less memory than --crop;\nnot with --size"},
    {"size", 0, "WxH", "scale down to this size while decoding"},
    {"reduce", 0, "8|4|1", "reduce to this many bits per pixel while decoding"},
    {"dither-mode", 0, "N",
     "how --reduce maps colours: 2 to the nearest one,\nany other number by an ordered dither "
     "(default)"},
    {"quality", 0, "N", "of jpeg and pdf: 1 (smallest file) to 100 (best)"},
    {"sampling", 0, "HxV",
     "of jpeg and pdf: pixels per colour sample across and\ndown, 1x1, 2x1 (default), 2x2; grey "
     "has none"},
    {"page", 0, "N", "the page to take, from 1 on"},
    {"dpi", 0, "N", "the resolution of the result, whatever the input says"},
    {"progressive", 0, nullptr, "jpeg in several scans, each finer than the one before"},
    {"optimise", 0, nullptr, "jpeg with codes made for the picture: smaller, slower"},
    {"keep-inks", 0, nullptr,
     "cyan, magenta, yellow and black stay what they are, or are\nrefused"},
    kPageSizeOption,
    kMarginOption,
    kFitOption,
    kTurnPagesOption,
    kLosslessOption,
    kTitleOption,
    kAuthorOption,
    {"jobs", 'j', "N", "work on so many inputs at a time (default 1)"},
    {"output", 'o', "OUT", "the result; all operands are inputs then"},
    {"quiet", 'q', nullptr, "no notes and no progress bar"},
    {"verbose", 'v', nullptr, "a line for each result"},
    {"help", 'h', nullptr, "this text"},
};

struct Plan {
  std::vector<std::string> inputs;
  std::string out;
  bool out_is_folder = false;
  bool appends = false;  // to what OUT holds already
  std::int32_t code = 0;
  int page = 0;
  std::optional<Rect> crop;
  std::optional<Rect> rect;
  std::optional<Size> size;
  Size sampling = {2, 1};
  std::optional<std::int32_t> dpi;
  int jobs = 1;
  bool keep_inks = false;
  bool copies = false;  // pages as they are coded, if they can be
  bool quiet = false;
  bool verbose = false;
};

class Image {
 public:
  explicit Image(std::int32_t handle) : handle_(handle) {
    IMG_bitmap_info(handle_, &width_, &height_, &bits_);
  }
  ~Image() { IMG_delete_bitmap(handle_); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  std::int32_t handle() const { return handle_; }
  int width() const { return width_; }
  int height() const { return height_; }
  int bits() const { return bits_; }

 private:
  std::int32_t handle_, width_ = 0, height_ = 0, bits_ = 0;
};

std::string size_text(std::int32_t width, std::int32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// ---- From the command line to a plan ----

std::string command_name(const Plan& plan) {
  return plan.appends ? "append" : "convert";
}

void choose_output(const Arguments& arguments, Plan& plan) {
  plan.inputs = arguments.operands();
  if (const auto named = arguments.value("output")) {
    plan.out = *named;
  } else {
    if (plan.inputs.size() < 2)
      throw UsageError(command_name(plan) + " needs an input and an output");
    plan.out = plan.inputs.back();
    plan.inputs.pop_back();
  }
  if (plan.inputs.empty()) throw UsageError(command_name(plan) + " needs an input");
  if (plan.out.empty()) throw UsageError("the name of the output is empty");
  const PathKind kind = plan.out == "-" ? PathKind::other : path_kind(plan.out);
  plan.out_is_folder =
      kind == PathKind::folder || (kind == PathKind::absent && is_separator(plan.out.back()));
}

bool holds_pages(std::int32_t code) {
  const auto type = find_code(code);
  return type && (type->flags & IMG_FORMAT_APPENDS) != 0;
}

void check_output(const Plan& plan) {
  if (plan.out_is_folder) {
    if (plan.appends) throw UsageError("a folder cannot be appended to");
    return;
  }
  if (plan.appends && plan.out == "-") throw UsageError("standard output cannot be appended to");
  if ((plan.inputs.size() > 1 || plan.appends) && !holds_pages(plan.code)) {
    throw UsageError(plan.appends ? "this format holds one image only: " + printable(plan.out)
                                  : "many inputs need a folder, or a format of many pages, as the "
                                    "output: " +
                                        printable(plan.out));
  }
}

std::int32_t choose_code(const Arguments& arguments, const Plan& plan) {
  if (const auto text = arguments.value("code")) {
    const auto code = parse_code(*text);
    if (!code) throw UsageError("unknown file type code '" + printable(*text) + "'");
    return *code;
  }
  if (plan.out_is_folder) throw UsageError("a folder as the output needs --code");
  if (plan.out == "-") throw UsageError("standard output needs --code");
  const auto code = code_of_file_name(plan.out);
  if (!code) {
    throw UsageError("no format is known by the end of '" + printable(plan.out) + "': use --code");
  }
  return *code;
}

// Settings are a context's and the same for all inputs, except for the rectangle.
void apply_settings(const Arguments& arguments, const Plan& plan) {
  if (plan.size) IMGLOW_set_decompsize(plan.size->width, plan.size->height);
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

// A JPEG file may have ten blocks in a unit, two of them for colour.
Size parse_sampling(const std::string& text) {
  const Size sampling = parse_size("sampling", text);
  if (sampling.width > 4 || sampling.height > 4 || sampling.width * sampling.height > 8) {
    throw UsageError("--sampling takes factors up to 4 and products up to 8");
  }
  return sampling;
}

// Whether nothing is asked for that pixels would have to be touched, or looked at, for.
bool may_copy(const Arguments& arguments, std::int32_t code) {
  if (code != IMG_TYPE_PDF) return false;
  constexpr const char* kChanges[] = {"crop",     "rect",      "size",   "reduce",
                                      "quality",  "sampling",  "dpi",    "progressive",
                                      "optimise", "no-orient", "strict", "contract"};
  return std::none_of(std::begin(kChanges), std::end(kChanges),
                      [&](const char* name) { return arguments.has(name); });
}

Plan make_plan(const Arguments& arguments, bool appends) {
  Plan plan;
  plan.appends = appends;
  choose_output(arguments, plan);
  plan.code = choose_code(arguments, plan);
  check_output(plan);
  plan.page = arguments.number("page", 1, 0xFFFF).value_or(1) - 1;
  if (const auto text = arguments.value("crop")) plan.crop = parse_rect("crop", *text);
  if (const auto text = arguments.value("rect")) plan.rect = parse_rect("rect", *text);
  if (const auto text = arguments.value("size")) plan.size = parse_size("size", *text);
  if (plan.rect && plan.size) throw UsageError("--rect and --size exclude each other; see --crop");
  if (const auto text = arguments.value("sampling")) plan.sampling = parse_sampling(*text);
  plan.dpi = arguments.number("dpi", 1, 65535);
  plan.jobs = arguments.number("jobs", 1, 256).value_or(1);
  plan.keep_inks = arguments.has("keep-inks");
  plan.copies = may_copy(arguments, plan.code);
  plan.quiet = arguments.has("quiet");
  plan.verbose = arguments.has("verbose");
  if (plan.out == "-" && is_terminal(stdout)) {
    throw UsageError("an image is not written to a terminal: use -o FILE or a pipe");
  }
  return plan;
}

// ---- One input ----

Rect inside(const char* what, const Rect& rect, const std::string& label, int width, int height) {
  const Rect part = clipped(rect, width, height);
  if (part.width < 1 || part.height < 1) {
    throw UsageError(printable(label) + ": --" + what + " lies outside of the image of " +
                     size_text(width, height) + " pixels");
  }
  return part;
}

// Applies the decode rectangle and looks whether scaling will happen.
void prepare_decode(const Plan& plan, const Input& input) {
  if (const std::int32_t pages = input.pages(); plan.page > 0 && pages > 0 && plan.page >= pages) {
    throw Failure(input.label(), IMG_PAGE_PAST_END);
  }
  if (!plan.rect && (!plan.size || plan.quiet)) return;
  const ImageFacts facts = input.facts(plan.page);
  if (plan.rect) {
    const Rect rect = inside("rect", *plan.rect, input.label(), facts.width, facts.height);
    IMGLOW_set_decomp_rect(rect.x, rect.y, rect.width, rect.height);
  }
  if (plan.size && (facts.width <= plan.size->width || facts.height <= plan.size->height)) {
    complain(printable(input.label()) + ": " + size_text(facts.width, facts.height) +
             " pixels are not larger than " + size_text(plan.size->width, plan.size->height) +
             " in both directions and stay as they are");
  }
}

std::int32_t save(const Plan& plan, const Image& image, const std::optional<Rect>& crop,
                  std::int32_t stream, Progress& progress) {
  // A grey image changes the setting for those that follow.
  IMGLOW_set_jpg_interleave(plan.sampling.width, plan.sampling.height);
  if (!crop) return IMG_save_bitmap_fd(image.handle(), stream, plan.code);
  return CroppedRows(image.handle(), *crop, progress).save(stream, plan.code);
}

using InputPointer = std::shared_ptr<const Input>;

// Whether the format takes the image: what it does not hold it refuses before its first byte.
bool takes(std::int32_t code, std::int32_t image) {
  std::uint8_t nothing = 0;
  return IMG_save_bitmap_block(image, &nothing, 0, code) != IMG_WRONG_DEPTH;
}

// Inks stay inks for a format that holds them.
std::int32_t decode(const Plan& plan, const Input& input) {
  const std::int32_t image = input.decode(plan.page, false);
  DibHeader header{};
  std::array<std::uint8_t, IMG_HEADER_BLOCK_BYTES> block{};
  IMGLOW_get_bitmap_header(image, block.data());
  std::memcpy(&header, block.data(), sizeof header);
  constexpr std::uint32_t kColours = 200;  // biCompression of 32 bits that are no inks
  const bool has_inks = header.biBitCount == 32 && header.biCompression != kColours;
  if (!has_inks || plan.keep_inks || takes(plan.code, image)) return image;
  IMG_delete_bitmap(image);
  return input.decode(plan.page);
}

// One input as it is coded, if the output can hold it.
template <class Open>
void copy_input(const Plan& plan, const Input& input, Progress& progress, Open&& open) {
  progress.begin_stage("writing");
  IMGLOW_set_jpg_interleave(plan.sampling.width, plan.sampling.height);
  std::int32_t how = 0;
  const SavePage page = [&](std::int32_t stream) {
    how = input.copy_page(plan.page, stream, plan.code);
    return how;
  };
  Output& output = open(page);
  output.save(page);
  progress.clear();
  if (how == 1) report_damage(-1, input.label());
  if (plan.verbose && !plan.quiet) {
    const auto type = find_code(plan.code);
    std::fprintf(stderr, "%s -> %s: %s, %s\n", printable(input.label()).c_str(),
                 printable(output.label()).c_str(), type ? type->title : "?",
                 how == 0 ? "as it was" : "coded again");
  }
}

// Decodes one input and saves it to the output that `open` gives; that may be the same file.
template <class Open>
void save_input(const Plan& plan, InputPointer input, Progress& progress, Open&& open) {
  prepare_decode(plan, *input);
  if (plan.copies && !input->in_memory()) {
    copy_input(plan, *input, progress, open);
    return;
  }
  progress.begin_stage("reading");
  const Image image(decode(plan, *input));
  const std::string label = input->label();
  report_damage(image.handle(), label);
  if (plan.dpi) IMG_set_resolution(image.handle(), 1000 * *plan.dpi, 1000 * *plan.dpi);
  input.reset();

  Rect written = {0, 0, image.width(), image.height()};
  std::optional<Rect> crop;
  if (plan.crop) {
    const Rect part = inside("crop", *plan.crop, label, image.width(), image.height());
    if (part.width < image.width() || part.height < image.height()) crop = part;
    written = part;
  }
  progress.begin_stage("writing");
  const SavePage page = [&](std::int32_t stream) {
    return save(plan, image, crop, stream, progress);
  };
  Output& output = open(page);
  output.save(page);
  progress.clear();
  if (plan.verbose && !plan.quiet) {
    const auto type = find_code(plan.code);
    std::fprintf(stderr, "%s -> %s: %s, %s, %d-bit\n", printable(label).c_str(),
                 printable(output.label()).c_str(), type ? type->title : "?",
                 size_text(written.width, written.height).c_str(), image.bits());
  }
}

// ---- All inputs ----

std::string output_name(const Plan& plan, const std::string& input) {
  if (!plan.out_is_folder) return plan.out;
  const auto type = find_code(plan.code);
  std::string name = plan.out;
  if (!is_separator(name.back())) name += '/';
  name += input == "-" ? "stdin" : stem_of(input);
  return type ? name + "." + ending_of(*type) : name;
}

// What came through a pipe, by its place among the inputs: it cannot be read again.
using Piped = std::vector<InputPointer>;

InputPointer open_input(const Plan& plan, std::size_t i, Piped& piped, Progress& progress) {
  progress.begin_file(input_label(plan.inputs[i]));
  if (piped[i] != nullptr) return piped[i];
  auto input = std::make_shared<const Input>(plan.inputs[i]);
  if (plan.appends && input->in_memory()) piped[i] = input;
  return input;
}

// One result of all inputs, or none. False: the file that they are added to has changed meanwhile.
bool convert_to_pages(const Plan& plan, Piped& piped, Progress& progress) {
  std::optional<Output> output;
  for (std::size_t i = 0; i < plan.inputs.size(); ++i) {
    const std::string label = input_label(plan.inputs[i]);
    within_memory(label, [&] {
      save_input(plan, open_input(plan, i, piped, progress), progress,
                 [&](const SavePage& page) -> Output& {
                   if (output) return *output;
                   return plan.appends ? output.emplace(plan.out, page) : output.emplace(plan.out);
                 });
    });
    if (interrupted() != 0) throw Failure(label, kInterrupted);
  }
  return output->commit();
}

void convert_one(const Plan& plan, const std::string& from, const std::string& to,
                 Progress& progress) {
  std::optional<Output> output;
  progress.begin_file(input_label(from));
  within_memory(input_label(from), [&] {
    save_input(plan, std::make_shared<const Input>(from), progress,
               [&](const SavePage&) -> Output& { return output.emplace(to); });
    static_cast<void>(output->commit());  // nothing that could have changed
  });
}

// Calls `work`; the exit code of what it throws.
template <class Work>
int reported(Progress& progress, Work&& work) {
  try {
    work();
    return kExitOk;
  } catch (const Failure& failure) {
    progress.clear();
    complain(failure.what());
    return kExitError;
  } catch (const UsageError& error) {
    progress.clear();
    complain(error.what());
    return kExitUsage;
  }
}

struct Result {
  std::string input, name;
};

std::vector<Result> find_results(const Plan& plan, int& code) {
  std::vector<Result> results;
  std::set<std::string> written;
  for (const std::string& input : plan.inputs) {
    const std::string name = output_name(plan, input);
    if (written.insert(name).second) {
      results.push_back({input, name});
      continue;
    }
    complain(printable(input) + ": " + printable(name) + " is already the result of another input");
    code = kExitError;
  }
  return results;
}

// A thread's own state in the library, with the options and settings of the command line.
class JobContext {
 public:
  JobContext(const Arguments& arguments, const Plan& plan)
      : context_(check("a job", IMG_new_context())) {
    IMG_use_context(context_);
    apply_library_options(arguments);
    apply_settings(arguments, plan);
  }
  ~JobContext() {
    IMG_use_context(0);
    IMG_delete_context(context_);
  }
  JobContext(const JobContext&) = delete;
  JobContext& operator=(const JobContext&) = delete;

 private:
  std::int32_t context_;
};

int convert_each(const Arguments& arguments, const Plan& plan, Progress& progress) {
  std::atomic<int> code = kExitOk;
  int wrong_names = kExitOk;
  const std::vector<Result> results = find_results(plan, wrong_names);
  std::atomic<std::size_t> next = 0;
  const auto work = [&](Progress& shown) {
    for (std::size_t i = next++; i < results.size() && interrupted() == 0; i = next++) {
      const Result& result = results[i];
      const int done =
          reported(shown, [&] { convert_one(plan, result.input, result.name, shown); });
      for (int so_far = code; so_far < done && !code.compare_exchange_weak(so_far, done);) {
      }
    }
  };
  if (plan.jobs == 1 || !plan.out_is_folder) {
    work(progress);
    return std::max<int>(code, wrong_names);
  }
  set_library_temporary_folder(folder_of(output_name(plan, "")));
  {
    std::vector<std::jthread> jobs;
    for (int i = 0; i < plan.jobs; ++i) {
      jobs.emplace_back([&] {
        const int begun = reported(progress, [&] {
          const JobContext context(arguments, plan);
          Progress unseen(false);
          work(unseen);
        });
        if (begun != kExitOk) code = kExitError;
      });
    }
  }
  return std::max<int>(code, wrong_names);
}

int run(const Arguments& arguments, bool appends) {
  const Plan plan = make_plan(arguments, appends);
  apply_settings(arguments, plan);
  if (plan.out_is_folder && path_kind(plan.out) == PathKind::absent && !make_folder(plan.out)) {
    throw Failure(plan.out, IMG_CANNOT_CREATE);
  }
  Progress progress(!plan.quiet && is_terminal(stderr));
  if (plan.out_is_folder || !holds_pages(plan.code)) {
    return convert_each(arguments, plan, progress);
  }
  return reported(progress, [&] {
    Piped piped(plan.inputs.size());
    while (!convert_to_pages(plan, piped, progress)) {
    }
  });
}

int run_convert(const Arguments& arguments) {
  return run(arguments, false);
}
int run_append(const Arguments& arguments) {
  return run(arguments, true);
}

}  // namespace

const Command kConvert = {
    "convert",
    "IN... OUT",
    "Cuts, scales and reduces images, and saves them in another format.",
    "IN and OUT may be - for standard input and output. Many inputs need a folder as OUT; results\n"
    "there are named after their inputs. Without --code the end of OUT's name decides. Rectangles\n"
    "are given as X,Y,W,H or WxH+X+Y in pixels from the top left corner, and are cut at the edges\n"
    "of the image. OUT is replaced only by a complete result. A format of many pages (tiff, pdf)\n"
    "takes many inputs into one file; if one of them fails, there is none. Jpeg, png and tiff-g4\n"
    "inputs go into a pdf as they are, if no option changes their pixels.\n",
    kOptions,
    run_convert,
};

const Command kAppend = {
    "append",
    "IN... OUT",
    "Adds images as further pages to a file.",
    "Like convert, but the pages that OUT has stay in front. A file of another kind, or a "
    "document\n"
    "that is damaged or enciphered, is refused and stays as it is. OUT is changed by all inputs or "
    "by\n"
    "none.\n",
    kOptions,
    run_append,
};

}  // namespace tool
