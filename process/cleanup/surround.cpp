// Ink that holds a square wider than any stroke of writing is an area. Areas that reach an edge, where
// darkness goes on outside, are the surround; writing that touches one is not as wide.
#include "process/cleanup/surround.h"

#include "process/cleanup/change_rows.h"

namespace tq::process {
namespace {

constexpr int kCharacter = 25;  // blocks: 1/4 inch of A4
constexpr int kGrowth = 3;

// Along one line of the mask: a place is left dark when all places within `reach` are, or when any
// is. What lies outside is as the former wants it.
template <bool kShrink>
void spread_line(std::uint8_t* line, std::ptrdiff_t step, std::ptrdiff_t count, int reach,
                 std::uint8_t* copy) {
  for (std::ptrdiff_t i = 0; i < count; ++i) copy[i] = line[i * step];
  constexpr std::uint8_t kCounted = kShrink ? 0 : 1;
  int counted = 0;
  for (std::ptrdiff_t i = 0; i < std::min<std::ptrdiff_t>(reach, count); ++i) {
    counted += copy[i] == kCounted ? 1 : 0;
  }
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    if (i + reach < count) counted += copy[i + reach] == kCounted ? 1 : 0;
    if (i > reach) counted -= copy[i - reach - 1] == kCounted ? 1 : 0;
    line[i * step] = (counted > 0) == kShrink ? 0 : 1;
  }
}

}  // namespace

template <bool kShrink>
Status Surround::spread(int reach) {
  RowBuffer<std::uint8_t> copy;
  TQ_TRY(copy.allocate(std::max(stride_, rows_)));
  for (std::ptrdiff_t y = 0; y < rows_; ++y) {
    spread_line<kShrink>(mask_.data() + y * stride_, 1, stride_, reach, copy.data());
  }
  for (std::ptrdiff_t x = 0; x < stride_; ++x) {
    spread_line<kShrink>(mask_.data() + x, stride_, rows_, reach, copy.data());
  }
  return kOk;
}

Status Surround::find(const InkPage& page) {
  stride_ = std::ptrdiff_t{page.width()} + 2 * kReach;
  rows_ = std::ptrdiff_t{page.height()} + 2 * kReach;
  TQ_TRY(mask_.allocate(std::int64_t{stride_} * rows_));
  std::ranges::fill(mask_.pixels(), std::uint8_t{1});
  for (int y = 0; y < page.height(); ++y) {
    for (int x = 0; x < page.width(); ++x) mask_[place(x, y)] = page.has_ink(x, y) ? 1 : 0;
  }
  TQ_TRY(spread<true>(kReach));
  TQ_TRY(spread<false>(kReach));
  return keep_edges(page);
}

Status Surround::keep_edges(const InkPage& page) {
  Components areas(Components::Neighbours::four, Components::Colour::black);
  RowBuffer<std::int32_t> drawn;
  TQ_TRY(drawn.allocate(page.width()));
  for (int y = 0; y < page.height(); ++y) {
    ChangePen pen(drawn.pixels(), page.width());
    for (int x = 0; x < page.width(); ++x) {
      if (covers(x, y)) pen.draw(x, x + 1);
    }
    TQ_TRY(areas.add_row(pen.row(), page.width()));
  }
  areas.settle();
  const auto is_surround = [&](const Component& c) {
    const bool at_edge =
        c.left == 0 || c.top == 0 || c.right == page.width() || c.bottom == page.height();
    return at_edge && c.longer_side() > kCharacter;
  };
  std::ranges::fill(mask_.pixels(), std::uint8_t{0});
  blocks_ = 0;
  for (int y = 0; y < page.height(); ++y) {
    for (const Run& run : areas.row(y)) {
      if (!is_surround(areas.all()[run.component])) continue;
      std::fill_n(&mask_[place(run.first, y)], run.end - run.first, std::uint8_t{1});
      blocks_ += run.end - run.first;
    }
  }
  // A dark page is no surround.
  if (5 * blocks_ > 4 * std::int64_t{page.width()} * page.height()) {
    std::ranges::fill(mask_.pixels(), std::uint8_t{0});
    blocks_ = 0;
  }
  return kOk;
}

Status Surround::grow(const InkPage& page) {
  RowBuffer<std::uint8_t> before;
  TQ_TRY(before.allocate(std::ssize(mask_.pixels())));
  for (int i = 0; i < kGrowth; ++i) {
    std::ranges::copy(mask_.pixels(), before.data());
    TQ_TRY(spread<false>(1));
    for (int y = 0; y < page.height(); ++y) {
      for (int x = 0; x < page.width(); ++x) {
        if (!page.has_ink(x, y)) mask_[place(x, y)] = before[place(x, y)];
      }
    }
  }
  return spread<false>(1);
}

}  // namespace tq::process
