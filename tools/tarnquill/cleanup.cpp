// Operations on pages as scanners give them.
#include <algorithm>
#include <array>
#include <iterator>

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

constexpr OperationRow kRows[] = {
    {OperationRow::both,
     "mono",
     {"method", 0, "NAME", "background (default), sauvola, otsu"},
     "make a page black and white: background (even paper\nfirst), sauvola (by what is around), "
     "otsu (one level)",
     kMonoOptions,
     make_mono},
    {OperationRow::both, "level", {}, "make paper even and light", {}, make_level},
    {OperationRow::both,
     "despeckle",
     {},
     "remove small black specks from a page",
     kSpeckOptions,
     make_despeckle},
};

}  // namespace

std::span<const OperationRow> cleanup_rows() {
  return kRows;
}

}  // namespace tool
