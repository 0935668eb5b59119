// Where the writing of a page is, and a page cut to it.
#include <algorithm>

#include "process/cleanup/change_rows.h"
#include "process/cleanup/surround.h"
#include "process/process.h"

namespace tq::process {
namespace {

// In blocks, of which an A4 sheet has 100 to the inch.
constexpr int kLeastSide = 5, kLeastInk = 6;  // of what is no speck by itself
constexpr int kNear = 8;                      // to such a thing a dot belongs

struct Box {
  std::int32_t left = INT32_MAX, top = INT32_MAX, right = 0, bottom = 0;
  bool empty() const { return left >= right; }
  void add(const Component& c) {
    left = std::min(left, c.left), top = std::min(top, c.top);
    right = std::max(right, c.right), bottom = std::max(bottom, c.bottom);
  }
};

bool is_content(const Component& c) {
  return c.longer_side() >= kLeastSide && c.pixels >= kLeastInk;
}

bool is_near(const Component& a, const Component& b) {
  return a.left < b.right + kNear && b.left < a.right + kNear && a.top < b.bottom + kNear &&
         b.top < a.bottom + kNear;
}

Status find_box(const InkPage& page, Box& box) {
  Surround surround;
  TQ_TRY(surround.find(page));
  if (!surround.empty()) TQ_TRY(surround.grow(page));
  Components components(Components::Neighbours::eight, Components::Colour::black);
  RowBuffer<std::int32_t> drawn;
  TQ_TRY(drawn.allocate(page.width()));
  for (int y = 0; y < page.height(); ++y) {
    ChangePen pen(drawn.pixels(), page.width());
    for (int x = 0; x < page.width(); ++x) {
      if (page.has_ink(x, y) && !surround.covers(x, y)) pen.draw(x, x + 1);
    }
    TQ_TRY(components.add_row(pen.row(), page.width()));
  }
  components.settle();
  for (const Component& c : components.all()) {
    if (is_content(c)) box.add(c);
  }
  // Points and dots at its edge.
  const Box inner = box;
  for (const Component& c : components.all()) {
    if (inner.empty() || c.pixels < 2 || is_content(c)) continue;
    const bool inside = c.left >= inner.left && c.right <= inner.right && c.top >= inner.top &&
                        c.bottom <= inner.bottom;
    const bool far = c.left >= inner.right + kNear || c.right + kNear <= inner.left ||
                     c.top >= inner.bottom + kNear || c.bottom + kNear <= inner.top;
    if (inside || far) continue;
    if (std::ranges::any_of(components.all(), [&](const Component& other) {
          return is_content(other) && is_near(c, other);
        })) {
      box.add(c);
    }
  }
  return kOk;
}

Status locate(ImageSource& image, InkPage::Reports reports, Rect& content) {
  content = {};
  InkPage page;
  TQ_TRY(page.find(image, reports));
  Box box;
  TQ_TRY(find_box(page, box));
  if (box.empty()) return kOk;
  // Ink may reach into the block beside, when less than half of that is.
  const auto span = [](std::int64_t first, std::int64_t end, int block, int side, std::int32_t& at,
                       std::int32_t& count) {
    const int more = block > 1 ? 1 : 0;
    at = static_cast<std::int32_t>(std::max<std::int64_t>(first - more, 0) * block);
    count = static_cast<std::int32_t>(std::min<std::int64_t>((end + more) * block, side)) - at;
  };
  span(box.left, box.right, page.block_width(), image.width(), content.x, content.width);
  span(box.top, box.bottom, page.block_height(), image.height(), content.y, content.height);
  return Status::from_raw(1);
}

}  // namespace

Status find_content(ImageSource& image, Rect& content) {
  return locate(image, InkPage::Reports::source_rows, content);
}

Status autocrop_bitmap(ImageSource& image, std::int32_t margin) {
  release_display_cache(image.record());
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  if (margin < 0) return StatusCode::unsupported;
  Rect content;
  TQ_TRY(locate(image, InkPage::Reports::none, content));
  const auto widen = [margin](std::int32_t& at, std::int32_t& count, std::int32_t side) {
    const std::int64_t first = std::max<std::int64_t>(std::int64_t{at} - margin, 0);
    const std::int64_t end = std::min<std::int64_t>(std::int64_t{at} + count + margin, side);
    at = static_cast<std::int32_t>(first);
    count = static_cast<std::int32_t>(end - first);
  };
  const bool blank = content.width == 0;
  widen(content.x, content.width, image.width());
  widen(content.y, content.height, image.height());
  if (blank || (content.width == image.width() && content.height == image.height())) {
    for (int y = 0; y < image.height(); ++y) TQ_TRY(image.next_row());
    return kOk;
  }
  TQ_TRY(crop_bitmap(image, content));
  return Status::from_raw(1);
}

}  // namespace tq::process
