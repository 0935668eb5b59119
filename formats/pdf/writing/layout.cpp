// All in whole numbers, so that every system writes the same.
#include "formats/pdf/writing/layout.h"

#include <algorithm>
#include <utility>

namespace tq::pdf::writing {
namespace {

constexpr std::int64_t kTenth = kPoint / 10;
constexpr std::int64_t kLongestSide =
    14400 * kPoint;  // ISO 32000-1, Annex C: of a page, in its unit

// Of pixels at thousandths of a dot per inch.
std::int64_t length_of(std::int64_t pixels, std::int64_t resolution) {
  constexpr std::int64_t kOfAnInch = 72 * kPoint * 1000;
  return std::max<std::int64_t>((pixels * kOfAnInch + resolution / 2) / resolution, 1);
}

// The largest of this shape that fits.
Length fitted(Length shape, Length room) {
  while (std::max(shape.width, shape.height) > INT32_MAX) {
    shape = {std::max<std::int64_t>(shape.width / 2, 1),
             std::max<std::int64_t>(shape.height / 2, 1)};
  }
  const auto part = [](std::int64_t of, std::int64_t numerator, std::int64_t denominator) {
    return std::max<std::int64_t>((of * numerator + denominator / 2) / denominator, 1);
  };
  if (room.width * shape.height <= room.height * shape.width) {
    return {room.width, part(room.width, shape.height, shape.width)};
  }
  return {part(room.height, shape.width, shape.height), room.height};
}

bool fits(Length size, Length room) {
  return size.width <= room.width && size.height <= room.height;
}

Status lay_out_on_sheet(const Sheet& sheet, Length size, Layout& layout) {
  const bool true_size = sheet.fit % 2 == 1, may_turn = sheet.fit >= 2;
  const auto place = [&](Length page) {
    const Length room{page.width - 2 * sheet.margin, page.height - 2 * sheet.margin};
    if (room.width < 1 || room.height < 1) return Length{};
    return true_size && fits(size, room) ? size : fitted(size, room);
  };
  layout.page = {sheet.width, sheet.height};
  layout.picture = place(layout.page);
  const Length turned_page{sheet.height, sheet.width}, turned = place(turned_page);
  if (may_turn && turned.width > layout.picture.width) {
    layout.page = turned_page;
    layout.picture = turned;
  }
  return layout.picture.width > 0 ? StatusCode::ok : StatusCode::unsupported;
}

}  // namespace

Sheet::Sheet(const Options& options)
    : width(options.get<IMG_OPTION_PDF_PAGE_WIDTH>() * kTenth),
      height(options.get<IMG_OPTION_PDF_PAGE_HEIGHT>() * kTenth),
      margin(options.get<IMG_OPTION_PDF_MARGIN>() * kTenth),
      fit(options.get<IMG_OPTION_PDF_FIT>()),
      default_dpi(options.limit(IMG_OPTION_PDF_DEFAULT_DPI, 72)) {}

Status lay_out(const Sheet& sheet, std::int32_t width, std::int32_t height, Resolution resolution,
               int orientation, Layout& layout) {
  const std::int64_t known = std::max(resolution.x, resolution.y);
  const std::int64_t otherwise = known > 0 ? known : 1000 * sheet.default_dpi;
  Length size{length_of(width, resolution.x > 0 ? resolution.x : otherwise),
              length_of(height, resolution.y > 0 ? resolution.y : otherwise)};
  if (orientation >= 5) std::swap(size.width, size.height);
  layout = {.orientation = orientation};
  if (sheet.width > 0 && sheet.height > 0) {
    TQ_TRY(lay_out_on_sheet(sheet, size, layout));
  } else {
    layout.picture = size;
    layout.page = {size.width + 2 * sheet.margin, size.height + 2 * sheet.margin};
  }
  layout.x = (layout.page.width - layout.picture.width) / 2;
  layout.y = (layout.page.height - layout.picture.height) / 2;
  const std::int64_t longest = std::max(layout.page.width, layout.page.height);
  while (longest > kLongestSide * layout.user_unit) layout.user_unit *= 10;
  return kOk;
}

}  // namespace tq::pdf::writing
