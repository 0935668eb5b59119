// The sheet inside a dark surround, and the surround painted over.
#include <algorithm>

#include "process/cleanup/change_rows.h"
#include "process/cleanup/surround.h"
#include "process/geometry/geometry.h"
#include "process/process.h"

namespace tq::process {
namespace {

// On even paper a surround would be paper, too.
constexpr InkRule kAsScanned{.levelled = false};

// The largest area beside the surround, if it is about as a sheet is.
Status find_sheet(const InkPage& page, const Surround& surround, Component& sheet) {
  Components areas(Components::Neighbours::four, Components::Colour::white);
  RowBuffer<std::int32_t> drawn;
  TQ_TRY(drawn.allocate(page.width()));
  for (int y = 0; y < page.height(); ++y) {
    ChangePen pen(drawn.pixels(), page.width());
    for (int x = 0; x < page.width(); ++x) {
      if (surround.covers(x, y)) pen.draw(x, x + 1);
    }
    TQ_TRY(areas.add_row(pen.row(), page.width()));
  }
  areas.settle();
  sheet = *std::ranges::max_element(areas.all(), {}, &Component::pixels);
  return kOk;
}

}  // namespace

Status find_paper(ImageSource& image, Rect& paper) {
  paper = {};
  InkPage page;
  TQ_TRY(page.find(image, InkPage::Reports::source_rows, kAsScanned));
  paper = {0, 0, image.width(), image.height()};
  Surround surround;
  TQ_TRY(surround.find(page));
  if (surround.empty()) return kOk;
  Component sheet{};
  TQ_TRY(find_sheet(page, surround, sheet));
  const std::int64_t whole = std::int64_t{page.width()} * page.height();
  if (4 * sheet.pixels < whole || 2 * sheet.pixels < sheet.width() * sheet.height()) return kOk;
  const auto span = [](std::int64_t first, std::int64_t end, int block, int side, std::int32_t& at,
                       std::int32_t& count) {
    at = static_cast<std::int32_t>(first * block);
    count = static_cast<std::int32_t>(std::min<std::int64_t>(end * block, side)) - at;
  };
  span(sheet.left, sheet.right, page.block_width(), image.width(), paper.x, paper.width);
  span(sheet.top, sheet.bottom, page.block_height(), image.height(), paper.y, paper.height);
  return Status::from_raw(paper.width < image.width() || paper.height < image.height() ? 1 : 0);
}

Status remove_border(ImageSource& image, std::int32_t colour) {
  release_display_cache(image.record());
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  Pixel pixel;
  TQ_TRY(choose_pixel(image, colour, pixel));
  InkPage page;
  TQ_TRY(page.find(image, InkPage::Reports::none, kAsScanned));
  Surround surround;
  TQ_TRY(surround.find(page));
  if (surround.empty()) {
    for (int y = 0; y < image.height(); ++y) TQ_TRY(image.next_row());
    return kOk;
  }
  TQ_TRY(surround.grow(page));
  ImageDraft result;
  TQ_TRY(create_result(result, image, same_kind(image, image.width(), image.height())));
  const int width = image.width(), bits = image.bits(), block = page.block_width();
  RowBuffer<std::uint8_t> painted;
  TQ_TRY(painted.allocate(row_bytes(width, bits)));
  fill_row(painted.pixels(), bits, pixel);
  StoredRows rows(image);
  TQ_TRY(rows.allocate());
  TQ_TRY(make_rows(result, image, [&](int y, Row row) {
    copy_row(rows.read(y), row);
    clear_padding(row, width, bits);
    const int line = y / page.block_height();
    for (int x = 0; x < page.width(); ++x) {
      if (!surround.covers(x, line)) continue;
      const int first = x;
      while (x < page.width() && surround.covers(x, line)) ++x;
      const std::int64_t from = std::int64_t{first} * block;
      const std::int64_t end = std::min<std::int64_t>(std::int64_t{x} * block, width);
      place_bits(painted.pixels(), from * bits, (end - from) * bits, row, from * bits);
    }
  }));
  result.install(image.record());
  return Status::from_raw(1);
}

}  // namespace tq::process
