// Operations that put pixels at other places.
#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include "errors.h"
#include "operations.h"
#include "tarnquill.h"

namespace tool {
namespace {

using Value = std::optional<std::string>;

constexpr Option kFillOption = {"fill", 0, "N",
                                "of what --rotate and --extend bring in: a palette index, a\n"
                                "sample, or the colour 0xBBGGRR as a number (default white)"};
constexpr Option kFilterOption = {
    "filter", 0, "box|nearest|triangle|cubic|lanczos|mono",
    "of --size and --fit: how (default box); mono: box and\nblack or white again"};
constexpr Option kEnlargeOption = {"enlarge", 0, nullptr, "--size and --fit may make larger, too"};
constexpr Option kRotateOptions[] = {
    {"keep-size", 0, nullptr, "--rotate cuts corners off, and makes nothing larger"},
    {"nearest", 0, nullptr, "--rotate makes no colours that were not there"},
    kFillOption};
constexpr Option kExtendOptions[] = {kFillOption};
constexpr Option kResizeOptions[] = {kFilterOption};
constexpr Option kSizeOptions[] = {kFilterOption, kEnlargeOption};

std::int32_t fill_of(const Arguments& arguments) {
  constexpr std::int32_t kPaper = -1;
  return arguments.number("fill", 0, 0xFFFFFF).value_or(kPaper);
}

std::string required(const Value& value, const std::string& option, const std::string& wanted) {
  if (!value) throw UsageError("--" + option + " takes " + wanted);
  return *value;
}

// Of an export that takes nothing but the image.
template <auto kExport>
Operation plain(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) { return kExport(subject.image); };
}

Operation make_orient(const Value& value, const Arguments& /*arguments*/) {
  const std::string text = required(value, "value", "a number from 1 to 8");
  const auto number = whole_number(text);
  if (!number || *number < 1 || *number > 8) refuse("orient", text, "a number from 1 to 8");
  return [=](const Subject& subject) { return IMG_orient_bitmap(subject.image, *number); };
}

std::int32_t parse_angle(const std::string& text) {
  const auto degrees = parse_decimal(std::string_view(text).substr(text.starts_with('+') ? 1 : 0));
  if (!degrees || !(std::abs(*degrees) <= 1e6)) refuse("angle", text, "a number of degrees");
  return static_cast<std::int32_t>(std::lround(100 * *degrees));
}

Operation make_rotate(const Value& value, const Arguments& arguments) {
  constexpr std::int32_t kQuarter = 9000, kKeepsSize = 1, kNearest = 2;
  const std::string text = required(value, "angle", "a number of degrees, or auto");
  // By what the file says, as it is decoded.
  if (text == "auto") return [](const Subject& /*subject*/) { return IMG_OK + 0; };
  const std::int32_t angle = parse_angle(text), fill = fill_of(arguments);
  const bool nearest = arguments.has("nearest");
  const std::int32_t mode =
      (arguments.has("keep-size") ? kKeepsSize : 0) | (nearest ? kNearest : 0);
  return [=](const Subject& subject) {
    const bool blends = !nearest && angle % kQuarter != 0;
    const std::int32_t ready = blends ? make_blendable(subject) : IMG_OK;
    return ready < 0 ? ready : IMG_rotate_bitmap(subject.image, angle, fill, mode);
  };
}

Operation make_crop(const Value& value, const Arguments& /*arguments*/) {
  const Rect wanted = parse_rect("crop", required(value, "rect", "X,Y,W,H"));
  return [=](const Subject& subject) {
    const ImageShape shape = shape_of(subject.image);
    const Rect part = inside("crop", wanted, subject.label, shape.width, shape.height);
    return IMG_crop_bitmap(subject.image, part.x, part.y, part.width, part.height);
  };
}

Operation make_extend(const Value& value, const Arguments& arguments) {
  const std::string text = required(value, "margins", "L,T,R,B in pixels");
  const std::vector<std::int32_t> sides = numbers(text, ",,,");
  if (sides.size() != 4) refuse("margins", text, "L,T,R,B in pixels");
  const std::int32_t fill = fill_of(arguments);
  return [=](const Subject& subject) {
    return IMG_extend_bitmap(subject.image, sides[0], sides[1], sides[2], sides[3], fill);
  };
}

// ---- Other sizes ----

// "800", "800x", "x600", "800x600", "50%".
struct Scale {
  std::int32_t width = 0, height = 0;  // 0: as the other one wants it
  std::int32_t longest = 0;
  double percent = 0;
  bool within = false;  // of both sides the one that leaves less
};

Scale parse_scale(const std::string& option, const std::string& text) {
  const auto positive = [](std::string_view part) {
    const auto number = whole_number(part);
    return number && *number > 0 ? *number : 0;
  };
  Scale scale;
  const std::size_t x = text.find('x');
  if (text.ends_with('%')) {
    scale.percent = parse_decimal(std::string_view(text).substr(0, text.size() - 1)).value_or(0);
    if (!(scale.percent > 0 && scale.percent <= 1e6)) scale.percent = 0;
  } else if (x == std::string::npos) {
    scale.longest = positive(text);
  } else {
    const std::string_view width = std::string_view(text).substr(0, x);
    const std::string_view height = std::string_view(text).substr(x + 1);
    scale.width = positive(width);
    scale.height = positive(height);
    if ((scale.width == 0 && !width.empty()) || (scale.height == 0 && !height.empty())) scale = {};
  }
  if (scale.width + std::int64_t{scale.height} + scale.longest == 0 && scale.percent == 0) {
    refuse(option, text, "N, WxH, Wx, xH or N%");
  }
  return scale;
}

Size scaled_size(const Scale& scale, const Subject& subject) {
  const ImageShape shape = shape_of(subject.image);
  double width = shape.width, height = shape.height;
  if (scale.percent == 0 && (scale.width == 0 || scale.height == 0 || scale.within)) {
    // Where pixels are not square, a side of the picture is that of the sheet.
    std::int32_t x = 0, y = 0;
    IMG_get_resolution(subject.image, &x, &y);
    if (x > 0 && y > 0) x > y ? height = height* x / y : width = width * y / x;
  }
  double across = 1, down = 1;
  if (scale.percent != 0) {
    across = down = scale.percent / 100.0;
  } else if (scale.longest != 0) {
    across = down = scale.longest / std::max(width, height);
  } else {
    across = scale.width / width;
    down = scale.height / height;
    if (scale.within) across = down = std::min(across, down);
    if (scale.height == 0) down = across;
    if (scale.width == 0) across = down;
  }
  const auto side = [](double length) {
    return static_cast<std::int32_t>(std::clamp(std::floor(length + 0.5), 1.0, 2147483647.0));
  };
  return {side(width * across), side(height * down)};
}

std::int32_t method_of(const Arguments& arguments) {
  constexpr const char* kMethods[] = {"nearest", "box", "triangle", "cubic", "lanczos", "mono"};
  const std::string name = arguments.value("filter").value_or("box");
  const auto found = std::find(std::begin(kMethods), std::end(kMethods), name);
  if (found == std::end(kMethods)) {
    refuse("filter", name, "box, nearest, triangle, cubic, lanczos or mono");
  }
  return static_cast<std::int32_t>(found - std::begin(kMethods));
}

Operation resizing(const Scale& scale, bool enlarges, std::int32_t method) {
  return [=](const Subject& subject) {
    constexpr std::int32_t kNearest = 0;
    const ImageShape shape = shape_of(subject.image);
    const Size size = scaled_size(scale, subject);
    if (size.width == shape.width && size.height == shape.height) return IMG_OK + 0;
    if (!enlarges && (size.width > shape.width || size.height > shape.height)) {
      note(subject, size_text(shape.width, shape.height) + " pixels are not enlarged to " +
                        size_text(size.width, size.height) + " without --enlarge");
      return IMG_OK + 0;
    }
    const std::int32_t ready = method == kNearest ? IMG_OK : make_blendable(subject);
    return ready < 0 ? ready : IMG_resize_bitmap(subject.image, size.width, size.height, method);
  };
}

Operation make_resize(const Value& value, const Arguments& arguments) {
  return resizing(parse_scale("size", required(value, "size", "N, WxH, Wx, xH or N%")), true,
                  method_of(arguments));
}

Operation make_size(const Value& value, const Arguments& arguments) {
  const Scale scale = parse_scale("size", *value);
  return resizing(scale, arguments.has("enlarge") || scale.percent > 100, method_of(arguments));
}

Operation make_fit(const Value& value, const Arguments& arguments) {
  Scale scale = parse_scale("fit", *value);
  if (scale.width == 0 || scale.height == 0) refuse("fit", *value, "WxH");
  scale.within = true;
  return resizing(scale, arguments.has("enlarge"), method_of(arguments));
}

Operation make_dpi(const Value& value, const Arguments& /*arguments*/) {
  std::vector<std::int32_t> dpi = numbers(*value, "x");
  if (dpi.empty()) dpi.assign(2, whole_number(*value).value_or(0));
  if (std::ranges::any_of(dpi, [](std::int32_t n) { return n < 1 || n > 65535; })) {
    refuse("dpi", *value, "N or XxY with numbers from 1 to 65535");
  }
  return [=](const Subject& subject) {
    return IMG_set_resolution(subject.image, 1000 * dpi[0], 1000 * dpi[1]);
  };
}

constexpr OperationRow kRows[] = {
    {OperationRow::both,
     "rotate",
     {"angle", 0, "DEGREES", "clockwise, to hundredths: 90, -1.3; auto: as the file says"},
     "turn clockwise, to hundredths of a degree: 90, -1.3; auto:\nas the file says",
     "--angle -1.3 scan.tif straight.tif",
     kRotateOptions,
     make_rotate},
    {OperationRow::both,
     "flip",
     {},
     "turn upside down",
     "photo.jpg flipped.png",
     {},
     plain<IMG_flip_bitmap>},
    {OperationRow::both,
     "mirror",
     {},
     "exchange left and right",
     "photo.jpg mirrored.png",
     {},
     plain<IMG_mirror_bitmap>},
    {OperationRow::both,
     "orient",
     {"value", 0, "N", "1 to 8, as TIFF and EXIF count: what is undone"},
     "undo an orientation, 1 to 8 as TIFF and EXIF count",
     "--value 6 photo.jpg upright.png",
     {},
     make_orient},
    {OperationRow::both,
     "crop",
     {"rect", 0, "X,Y,W,H", "or WxH+X+Y: in pixels from the top left corner"},
     "keep this rectangle only",
     "--rect 100,50,400,300 photo.jpg part.png",
     {},
     make_crop},
    {OperationRow::both,
     "extend",
     {"margins", 0, "L,T,R,B", "pixels to add on the left, above, on the right, below"},
     "add margins, in pixels",
     "--margins 20,20,20,20 scan.tif framed.tif",
     kExtendOptions,
     make_extend},
    {OperationRow::as_command,
     "resize",
     {"size", 0, "SIZE", "N: the longer side; Wx, xH: the other side follows; WxH; N%"},
     "give an image another size",
     "--size 50% photo.jpg half.jpg",
     kResizeOptions,
     make_resize},
    {OperationRow::as_option,
     "size",
     {nullptr, 0, "SIZE", nullptr},
     "make smaller: N: the longer side; Wx, xH: the other side\nfollows; WxH; N%",
     nullptr,
     kSizeOptions,
     make_size},
    {OperationRow::as_option,
     "fit",
     {nullptr, 0, "WxH", nullptr},
     "make as large as fits there",
     nullptr,
     kSizeOptions,
     make_fit},
    {OperationRow::as_option,
     "dpi",
     {nullptr, 0, "N", nullptr},
     "give this resolution, or XxY; what scales afterwards scales it",
     nullptr,
     {},
     make_dpi},
};

}  // namespace

std::span<const OperationRow> geometry_rows() {
  return kRows;
}

}  // namespace tool
