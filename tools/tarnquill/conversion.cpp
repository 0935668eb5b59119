// One page: decoded, taken through the chain, fitted to its format, saved.
#include "conversion.h"

#include "codes.h"
#include "dib_header.h"
#include "errors.h"
#include "fitting.h"
#include "library_options.h"

namespace tool {
namespace {

class Image {
 public:
  explicit Image(std::int32_t handle) : handle_(handle) {}
  ~Image() { IMG_delete_bitmap(handle_); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  std::int32_t handle() const { return handle_; }

 private:
  std::int32_t handle_;
};

constexpr std::uint32_t kColours = 200;  // biCompression of 32 bits that are no inks

// Settings that depend on the page.
void prepare_decode(const Plan& plan, const Input& input, const ImageFacts& facts) {
  if (plan.rect) {
    const Rect rect = inside("rect", *plan.rect, input.label(), facts.width, facts.height);
    IMGLOW_set_decomp_rect(rect.x, rect.y, rect.width, rect.height);
  }
  const auto& size = plan.decode_size;
  if (size && !plan.quiet && (facts.width <= size->width || facts.height <= size->height)) {
    complain(printable(input.label()) + ": " + size_text(facts.width, facts.height) +
             " pixels are not larger than " + size_text(size->width, size->height) +
             " in both directions and stay as they are");
  }
}

bool holds_inks(std::int32_t code) {
  DibHeader header{};
  header.biSize = sizeof header;
  header.biWidth = header.biHeight = 1;
  header.biPlanes = 1;
  header.biBitCount = 32;
  const Image dot(IMG_create_handle_shell(&header));
  return takes(code, dot.handle());
}

// Inks stay inks for a format that holds them.
std::int32_t decode(const Plan& plan, const Input& input, int page) {
  const ImageFacts facts = input.facts(page);
  prepare_decode(plan, input, facts);
  const bool has_inks = facts.bits == 32 && facts.compression != kColours;
  const bool becomes_colours = has_inks && !holds_inks(plan.code);
  if (becomes_colours && plan.keep_inks) {
    const auto type = find_code(plan.code);
    throw Failure(plan.out, IMG_WRONG_DEPTH,
                  std::string(type ? type->title : "this format") +
                      " holds no inks: leave out --keep-inks, or take tiff or jpeg");
  }
  if (becomes_colours && !plan.quiet) {
    complain(printable(input.label()) + ": cyan, magenta, yellow, black become colours");
  }
  return input.decode(page, becomes_colours);
}

void tell(const Plan& plan, const std::string& label, const Output& output,
          const std::string& what) {
  if (!plan.verbose) return;
  const auto type = find_code(plan.code);
  say(printable(label) + " -> " + printable(output.label()) + ": " + (type ? type->title : "?") +
      ", " + what);
}

// As it is coded, if the output can hold it.
bool copy_page(const Plan& plan, const Input& input, int page, Progress& progress,
               const OpenOutput& open) {
  progress.begin_stage("writing");
  IMGLOW_set_jpg_interleave(plan.sampling.width, plan.sampling.height);
  std::int32_t how = 0;
  const SavePage save = [&](std::int32_t stream) {
    return how = input.copy_page(page, stream, plan.code);
  };
  Output& output = open(save);
  output.save(save);
  const bool damaged = how == 1 && report_damage(-1, page_label(input.label(), page));
  tell(plan, input.label(), output, how == 0 ? "as it was" : "coded again");
  return damaged;
}

// Whether the page can go in as it is, or, being coded again, is one that the format takes.
bool copies(const Plan& plan, const Input& input, int page) {
  if (!plan.copies || input.in_memory()) return false;
  return input.facts(page).bits != 16;
}

// From row to row, without an image; else false, and nothing has been written or said. Whatever cannot
// be done so is done, or fails, with one: it is slower to fail, and says the same.
bool pass_page(const Plan& plan, const Input& input, int page, Progress& progress,
               const OpenOutput& open, bool& damaged) {
  if (!plan.passes || input.in_memory()) return false;
  const ImageFacts facts = input.facts(page);
  if (!takes_depth(plan.code, facts.bits)) return false;
  progress.begin_stage("writing");
  std::int32_t passed = IMG_UNSUPPORTED;
  const SavePage save = [&](std::int32_t stream) {
    passed = input.pass_page(page, stream, plan.code);
    return std::int32_t{IMG_OK};
  };
  try {
    Output& output = open(save);
    output.save(save);
    if (passed < 0) return false;
    const std::string label = page_label(input.label(), page);
    damaged = report_damage(-1, label);
    tell(plan, label, output,
         size_text(facts.width, facts.height) + ", " + std::to_string(facts.bits) + "-bit");
    return true;
  } catch (const Failure&) {  // of the output: whether the input can be read is told first
    return false;
  }
}

}  // namespace

std::vector<int> wanted_pages(const Plan& plan, const Input& input) {
  const int count = input.pages();
  std::vector<int> pages = plan.pages.of_file(count);
  for (const int page : pages) {
    if (page >= count) throw Failure(input.label(), IMG_PAGE_PAST_END);
  }
  if (plan.has_pages || !plan.pages.all() || count == 1 || plan.kind == Plan::Out::numbered) {
    return pages;
  }
  // Their pages are one picture in several sizes, the largest first.
  const std::int32_t code = input.file_type();
  if (code == IMG_TYPE_ICON || code == IMG_TYPE_PHOTO_CD) {
    if (!plan.quiet) {
      complain(printable(input.label()) + ": the largest of " + std::to_string(count) +
               " pictures is taken; --pages takes others");
    }
    return {0};
  }
  return pages;
}

bool convert_page(const Plan& plan, InputPointer input, int page, Progress& progress,
                  const OpenOutput& open) {
  if (copies(plan, *input, page)) return copy_page(plan, *input, page, progress, open);
  bool damaged = false;
  if (pass_page(plan, *input, page, progress, open, damaged)) return damaged;
  progress.begin_stage("reading");
  const Image image(decode(plan, *input, page));
  const std::string label = page_label(input->label(), page);
  damaged = report_damage(image.handle(), label);
  input.reset();

  const Subject subject{image.handle(), label, plan.quiet, plan.verbose};
  progress.begin_stage("processing");
  for (const Operation& operation : plan.chain) check(label, operation(subject));
  check(label, fit_to_format(subject, plan.code, plan.out));
  progress.begin_stage("writing");
  const SavePage save = [&](std::int32_t stream) {
    // A grey image changes the setting for those that follow.
    IMGLOW_set_jpg_interleave(plan.sampling.width, plan.sampling.height);
    return IMG_save_bitmap_fd(image.handle(), stream, plan.code);
  };
  Output& output = open(save);
  output.save(save);
  const ImageShape shape = shape_of(image.handle());
  tell(plan, label, output,
       size_text(shape.width, shape.height) + ", " + std::to_string(shape.bits) + "-bit");
  return damaged;
}

}  // namespace tool
