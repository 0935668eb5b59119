// tarnquill flip, mirror, rotate, orient, crop, extend, resize, invert: pixels at other places.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iterator>

#include "command.h"
#include "errors.h"
#include "operate.h"
#include "tarnquill.h"

namespace tool {
namespace {

constexpr Option kPlainOptions[] = {kCodeOption, kPageOption, kQuietOption, kHelpOption};
constexpr Option kFillOption = {"fill", 0, "N",
                                "of what comes in: a palette index, a sample, or the colour\n"
                                "0xBBGGRR as a number (default white)"};

constexpr std::int32_t kPaper = -1;
std::int32_t fill_of(const Arguments& arguments) {
  return arguments.number("fill", 0, 0xFFFFFF).value_or(kPaper);
}

[[noreturn]] void refuse(const std::string& option, const std::string& wanted) {
  throw UsageError("--" + option + " takes " + wanted);
}

std::string required(const Arguments& arguments, const std::string& option,
                     const std::string& wanted) {
  const auto text = arguments.value(option);
  if (!text) refuse(option, wanted);
  return *text;
}

int run_flip(const Arguments& arguments) {
  return operate(arguments, IMG_flip_bitmap);
}
int run_mirror(const Arguments& arguments) {
  return operate(arguments, IMG_mirror_bitmap);
}
int run_invert(const Arguments& arguments) {
  return operate(arguments, IMG_invert_bitmap);
}

constexpr Option kOrientOptions[] = {
    {"value", 0, "N", "1 to 8, as TIFF and EXIF count: what is undone"},
    kCodeOption,
    kPageOption,
    kQuietOption,
    kHelpOption};

int run_orient(const Arguments& arguments) {
  const auto value = arguments.number("value", 1, 8);
  if (!value) refuse("value", "a number from 1 to 8");
  return operate(arguments, [=](std::int32_t image) { return IMG_orient_bitmap(image, *value); });
}

// A palette with colours has no levels between.
bool has_colours(std::int32_t image) {
  std::int32_t bits = 0;
  const auto block = IMG_bitmap_info(image, nullptr, nullptr, &bits);
  if (bits != 4 && bits != 8) return false;
  const auto* const palette = reinterpret_cast<const unsigned char*>(block) + 40;
  for (int i = 0; i < 1 << bits; ++i) {
    const unsigned char* const entry = palette + 4 * i;
    if (entry[0] != entry[1] || entry[1] != entry[2]) return true;
  }
  return false;
}

std::int32_t promoted_where_needed(std::int32_t image) {
  if (!has_colours(image)) return IMG_OK;
  complain("the palette becomes 24 bits, for colours between its own");
  return IMG_promote_24(image);
}

constexpr Option kRotateOptions[] = {
    {"angle", 0, "DEGREES", "clockwise, to hundredths: 90, -1.3"},
    {"keep-size", 0, nullptr, "cut the corners off, instead of making the image larger"},
    {"nearest", 0, nullptr, "no colours that were not there"},
    kFillOption,
    kCodeOption,
    kPageOption,
    kQuietOption,
    kHelpOption};

std::int32_t parse_angle(const std::string& text) {
  double degrees = 0;
  const char* const end = text.data() + text.size();
  const auto [behind, error] =
      std::from_chars(text.data() + (text.starts_with('+') ? 1 : 0), end, degrees);
  if (error != std::errc() || behind != end || !(std::abs(degrees) <= 1e6)) {
    refuse("angle", "a number of degrees, not '" + printable(text) + "'");
  }
  return static_cast<std::int32_t>(std::lround(100 * degrees));
}

int run_rotate(const Arguments& arguments) {
  constexpr std::int32_t kQuarter = 9000, kKeepsSize = 1, kNearest = 2;
  const std::int32_t angle = parse_angle(required(arguments, "angle", "a number of degrees"));
  const bool nearest = arguments.has("nearest");
  const std::int32_t mode =
      (arguments.has("keep-size") ? kKeepsSize : 0) | (nearest ? kNearest : 0);
  const std::int32_t fill = fill_of(arguments);
  return operate(arguments, [=](std::int32_t image) {
    const bool blends = !nearest && angle % kQuarter != 0;
    const std::int32_t ready = blends ? promoted_where_needed(image) : IMG_OK;
    return ready < 0 ? ready : IMG_rotate_bitmap(image, angle, fill, mode);
  });
}

constexpr Option kCropOptions[] = {
    {"rect", 0, "X,Y,W,H", "or WxH+X+Y: in pixels from the top left corner"},
    kCodeOption,
    kPageOption,
    kQuietOption,
    kHelpOption};

int run_crop(const Arguments& arguments) {
  const Rect wanted = parse_rect("rect", required(arguments, "rect", "X,Y,W,H"));
  return operate(arguments, [=](std::int32_t image) {
    std::int32_t width = 0, height = 0;
    IMG_bitmap_info(image, &width, &height, nullptr);
    const Rect part = clipped(wanted, width, height);
    return IMG_crop_bitmap(image, part.x, part.y, part.width, part.height);
  });
}

constexpr Option kExtendOptions[] = {
    {"margins", 0, "L,T,R,B", "pixels to add on the left, above, on the right, below"},
    kFillOption,
    kCodeOption,
    kPageOption,
    kQuietOption,
    kHelpOption};

std::array<std::int32_t, 4> parse_margins(const std::string& text) {
  std::array<std::int32_t, 4> margins{};
  const char* at = text.data();
  const char* const end = at + text.size();
  for (std::size_t i = 0; i < margins.size(); ++i) {
    const auto [behind, error] = std::from_chars(at, end, margins[i]);
    const bool goes_on = i + 1 < margins.size() && behind != end && *behind == ',';
    const bool ends = i + 1 == margins.size() && behind == end;
    if (error != std::errc() || (!goes_on && !ends)) {
      refuse("margins", "L,T,R,B, not '" + printable(text) + "'");
    }
    at = behind + 1;
  }
  return margins;
}

int run_extend(const Arguments& arguments) {
  const auto margins = parse_margins(required(arguments, "margins", "L,T,R,B in pixels"));
  const std::int32_t fill = fill_of(arguments);
  return operate(arguments, [=](std::int32_t image) {
    return IMG_extend_bitmap(image, margins[0], margins[1], margins[2], margins[3], fill);
  });
}

constexpr Option kResizeOptions[] = {
    {"size", 0, "WxH|N%|N", "to this size, to so many percent, or the longer side to N"},
    {"method", 0, "NAME", "area (default), nearest, triangle, cubic, lanczos"},
    kCodeOption,
    kPageOption,
    kQuietOption,
    kHelpOption};

Size scaled_size(const std::string& text, std::int32_t width, std::int32_t height) {
  if (text.find('x') != std::string::npos) return parse_size("size", text);
  const bool percent = text.ends_with('%');
  const char* const end = text.data() + text.size() - (percent ? 1 : 0);
  std::int32_t number = 0;
  const auto [behind, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || behind != end || number < 1) {
    refuse("size", "WxH, N% or N, not '" + printable(text) + "'");
  }
  const std::int64_t of = percent ? 100 : std::max(width, height);
  const auto scaled = [&](std::int64_t side) {
    const std::int64_t value = (2 * side * number / of + 1) / 2;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, 1, 0x7FFFFFFF));
  };
  return {scaled(width), scaled(height)};
}

int run_resize(const Arguments& arguments) {
  constexpr const char* kMethods[] = {"nearest", "area", "triangle", "cubic", "lanczos"};
  const std::string size = required(arguments, "size", "WxH, N% or N");
  const std::string name = arguments.value("method").value_or("area");
  const auto found = std::find(std::begin(kMethods), std::end(kMethods), name);
  if (found == std::end(kMethods)) {
    refuse("method", "area, nearest, triangle, cubic or lanczos, not '" + printable(name) + "'");
  }
  const auto method = static_cast<std::int32_t>(found - std::begin(kMethods));
  scaled_size(size, 1, 1);  // whether it is one
  return operate(arguments, [=](std::int32_t image) {
    const std::int32_t ready = method == 0 ? IMG_OK : promoted_where_needed(image);
    if (ready < 0) return ready;
    std::int32_t width = 0, height = 0;
    IMG_bitmap_info(image, &width, &height, nullptr);
    const Size wanted = scaled_size(size, width, height);
    return IMG_resize_bitmap(image, wanted.width, wanted.height, method);
  });
}

}  // namespace

const Command kFlip = {"flip",         "IN OUT",      "Turns an image upside down.",
                       kOperationHelp, kPlainOptions, run_flip};
const Command kMirror = {"mirror",       "IN OUT",      "Exchanges left and right.",
                         kOperationHelp, kPlainOptions, run_mirror};
const Command kInvert = {"invert",       "IN OUT",      "Makes light dark and dark light.",
                         kOperationHelp, kPlainOptions, run_invert};
const Command kOrient = {"orient",       "IN OUT",       "Undoes an orientation.",
                         kOperationHelp, kOrientOptions, run_orient};
const Command kRotate = {"rotate",       "IN OUT",       "Turns an image by any angle.",
                         kOperationHelp, kRotateOptions, run_rotate};
const Command kCrop = {"crop",         "IN OUT",     "Keeps a rectangle of an image.",
                       kOperationHelp, kCropOptions, run_crop};
const Command kExtend = {"extend",       "IN OUT",       "Adds margins to an image.",
                         kOperationHelp, kExtendOptions, run_extend};
const Command kResize = {"resize",       "IN OUT",       "Gives an image another size.",
                         kOperationHelp, kResizeOptions, run_resize};

}  // namespace tool
