// Operations on pages as scanners give them.
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string>

#include "errors.h"
#include "operations.h"
#include "tarnquill.h"

namespace tool {
namespace {

using Value = std::optional<std::string>;

constexpr Option kMonoOptions[] = {
    {"mono-window", 0, "N", "of --mono sauvola: what counts around a pixel, odd, 3 to 255\npixels"},
    {"mono-k", 0, "N", "of --mono sauvola: 1 to 100, more for less black (default 34)"}};
constexpr Option kSpeckOptions[] = {
    {"speck-size", 0, "WxH",
     "of --despeckle: the largest that go, in pixels (default\n1/100 inch)"},
    {"holes", 0, nullptr, "--despeckle fills white specks in black, too"},
    {"all-specks", 0, nullptr,
     "--despeckle does not spare what may be dots of letters and\nlines"}};
constexpr Option kAutocropOptions[] = {
    {"crop-margin", 0, "N", "of --autocrop: pixels to leave around (default 0)"}};

Operation make_mono(const Value& value, const Arguments& arguments) {
  constexpr const char* kMethods[] = {"otsu", "sauvola", "background"};
  const std::string name = value.value_or("background");
  const auto found = std::find(std::begin(kMethods), std::end(kMethods), name);
  if (found == std::end(kMethods)) refuse("mono", name, "background, sauvola or otsu");
  const auto method = static_cast<std::int32_t>(found - std::begin(kMethods));
  const std::int32_t window = arguments.number("mono-window", 3, 255).value_or(0);
  const std::int32_t k = arguments.number("mono-k", 1, 100).value_or(0);
  if (window != 0 && window % 2 == 0) {
    refuse("mono-window", std::to_string(window), "an odd number");
  }
  return [=](const Subject& subject) {
    if (shape_of(subject.image).bits == 16) {
      const std::int32_t ready = IMG_promote_8(subject.image);
      if (ready < 0) return ready;
    }
    return IMG_adaptive_mono(subject.image, method, window, k);
  };
}

Operation make_level(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) {
    const ImageShape shape = shape_of(subject.image);
    std::int32_t ready = IMG_OK;
    if (shape.bits == 1 || shape.bits == 16 || (shape.bits == 4 && !has_colours(subject.image))) {
      ready = IMG_promote_8(subject.image);
    } else if (shape.bits == 32 || has_colours(subject.image)) {
      ready = to_24(subject.image);
    }
    return ready < 0 ? ready : IMG_level_background(subject.image);
  };
}

// 1/100 inch of a page of A4, whatever resolution its file tells.
std::int32_t usual_speck(const ImageShape& shape) {
  constexpr std::int32_t kLongSide = 1170;
  return std::max(2, (std::max(shape.width, shape.height) + kLongSide / 2) / kLongSide);
}

Operation make_despeckle(const Value& /*value*/, const Arguments& arguments) {
  constexpr std::int32_t kBlack = 1, kHoles = 2, kSparesMarks = 4;
  std::optional<Size> size;
  if (const auto text = arguments.value("speck-size")) size = parse_size("speck-size", *text);
  const std::int32_t mode = kBlack | (arguments.has("holes") ? kHoles : 0) |
                            (arguments.has("all-specks") ? 0 : kSparesMarks);
  return [=](const Subject& subject) {
    const ImageShape shape = shape_of(subject.image);
    if (shape.bits != 1) {
      throw Failure(subject.label, IMG_WRONG_DEPTH,
                    "specks are removed from black and white only: make it that before, by --mono");
    }
    const std::int32_t side = usual_speck(shape);
    const Size most = size.value_or(Size{side, side});
    const std::int32_t removed = IMG_despeckle_bitmap(subject.image, most.width, most.height, mode);
    if (removed > 0) tell(subject, std::to_string(removed) + " specks removed");
    return removed;
  };
}

constexpr std::int32_t kPaperColour = -1;

// 16 bits are not searched.
std::int32_t make_searchable(const Subject& subject) {
  return shape_of(subject.image).bits == 16 ? IMG_promote_8(subject.image) : IMG_OK;
}

std::string degrees_text(std::int32_t hundredths) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", hundredths / 100.0);
  return text;
}

constexpr std::int32_t kUsual = -1;

std::int32_t deskew(const Subject& subject, std::string* said) {
  const std::int32_t ready = make_searchable(subject);
  if (ready < 0) return ready;
  std::int32_t angle = 0, confidence = 0;
  const std::int32_t found = IMG_find_skew(subject.image, 0, &angle, &confidence);
  if (found < 0) return found;
  const std::int32_t turned = IMG_deskew_bitmap(subject.image, 0, kUsual, kPaperColour, &angle);
  if (turned == 1) {
    const std::string words =
        "turned by " + degrees_text(angle) + " degrees, confidence " + std::to_string(confidence);
    said != nullptr ? static_cast<void>(*said += words + "; ") : tell(subject, words);
  }
  return turned;
}

Operation make_deskew(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) { return deskew(subject, nullptr); };
}

Operation make_autocrop(const Value& /*value*/, const Arguments& arguments) {
  const std::int32_t margin = arguments.number("crop-margin", 0, 0x7FFFFFFF).value_or(0);
  return [=](const Subject& subject) {
    const std::int32_t ready = make_searchable(subject);
    return ready < 0 ? ready : IMG_autocrop_bitmap(subject.image, margin);
  };
}

Operation make_remove_border(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) {
    const std::int32_t ready = make_searchable(subject);
    return ready < 0 ? ready : IMG_remove_border(subject.image, kPaperColour);
  };
}

Operation make_remove_lines(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) {
    constexpr std::int32_t kBothWays = 3;
    if (shape_of(subject.image).bits != 1) {
      throw Failure(subject.label, IMG_WRONG_DEPTH,
                    "lines are removed from black and white only: make it that before, by --mono");
    }
    return IMG_remove_lines(subject.image, 0, 0, kBothWays);
  };
}

Operation make_auto_orient(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) {
    const std::int32_t ready = make_searchable(subject);
    if (ready < 0) return ready;
    std::int32_t angle = 0;
    const std::int32_t turned = IMG_auto_orient_bitmap(subject.image, kUsual, &angle);
    if (turned == 1) tell(subject, "turned by " + degrees_text(angle) + " degrees to be upright");
    return turned;
  };
}

// To the sheet inside a dark surround; words for what was done.
std::int32_t keep_paper(const Subject& subject, std::string& said) {
  const ImageShape shape = shape_of(subject.image);
  Rect paper{};
  const std::int32_t found =
      IMG_find_paper(subject.image, &paper.x, &paper.y, &paper.width, &paper.height);
  const bool whole = paper.width >= shape.width && paper.height >= shape.height;
  if (found < 0 || whole || paper.width < 1 || paper.height < 1) return std::min(found, 0);
  said += "cut to the paper of " + size_text(paper.width, paper.height) + "; ";
  const std::int32_t cut =
      IMG_crop_bitmap(subject.image, paper.x, paper.y, paper.width, paper.height);
  if (cut < 0) return cut;
  // Beside a sheet that lies askew there are wedges of what was around it.
  const std::int32_t painted = IMG_remove_border(subject.image, kPaperColour);
  if (painted == 1) said += "what was around it painted; ";
  return painted;
}

std::int32_t turn_upright(const Subject& subject, std::string& said) {
  std::int32_t angle = 0;
  const std::int32_t turned = IMG_auto_orient_bitmap(subject.image, kUsual, &angle);
  if (turned == 1) said += "turned by " + degrees_text(angle) + " degrees to be upright; ";
  return turned;
}

std::int32_t remove_specks(const Subject& subject, std::string& said) {
  const ImageShape shape = shape_of(subject.image);
  if (shape.bits != 1) return IMG_OK;
  constexpr std::int32_t kBlackSparingMarks = 5;
  const std::int32_t side = usual_speck(shape);
  const std::int32_t removed = IMG_despeckle_bitmap(subject.image, side, side, kBlackSparingMarks);
  if (removed > 0) said += std::to_string(removed) + " specks removed; ";
  return removed;
}

// Paper, skew, orientation, specks.
Operation make_clean(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) {
    std::string said;
    std::int32_t done = make_searchable(subject);
    if (done >= 0) done = keep_paper(subject, said);
    if (done >= 0) done = deskew(subject, &said);
    if (done >= 0) done = turn_upright(subject, said);
    if (done >= 0) done = remove_specks(subject, said);
    if (said.ends_with("; ")) said.resize(said.size() - 2);
    if (done >= 0) note(subject, said.empty() ? "nothing to clean" : said);
    return done;
  };
}

constexpr OperationRow kRows[] = {
    {OperationRow::both,
     "mono",
     {"method", 0, "background|sauvola|otsu", "how (default background)"},
     "make a page black and white: background (even paper\nfirst), sauvola (by what is around), "
     "otsu (one level)",
     "--method sauvola scan.tif page.tif",
     kMonoOptions,
     make_mono},
    {OperationRow::both,
     "level",
     {},
     "make paper even and light",
     "scan.tif even.png",
     {},
     make_level},
    {OperationRow::both,
     "despeckle",
     {},
     "remove small black specks from a page",
     "--speck-size 3x3 fax.tif clean.tif",
     kSpeckOptions,
     make_despeckle},
    {OperationRow::both,
     "deskew",
     {},
     "turn a page straight",
     "scan.tif straight.tif",
     {},
     make_deskew},
    {OperationRow::both,
     "autocrop",
     {},
     "keep what is on a page, without its margins",
     "--crop-margin 30 scan.tif content.tif",
     kAutocropOptions,
     make_autocrop},
    {OperationRow::both,
     "remove-border",
     {},
     "paint what is dark around a page",
     "scan.tif page.tif",
     {},
     make_remove_border},
    {OperationRow::both,
     "remove-lines",
     {},
     "remove ruled lines from a page",
     "fax.tif text.tif",
     {},
     make_remove_lines},
    {OperationRow::both,
     "auto-orient",
     {},
     "turn a page upright by its text",
     "scan.tif upright.tif",
     {},
     make_auto_orient},
    {OperationRow::both,
     "clean",
     {},
     "cut to the paper, paint what was around it, turn straight\nand upright, and remove specks, "
     "saying what was done",
     "scan.tif page.tif",
     {},
     make_clean},
};

}  // namespace

std::span<const OperationRow> cleanup_rows() {
  return kRows;
}

}  // namespace tool
