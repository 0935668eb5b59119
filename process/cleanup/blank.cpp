// Whether there is anything on a page. A page that is called blank is thrown away, so whatever may be
// writing counts.
#include <algorithm>

#include "process/cleanup/background.h"
#include "process/cleanup/change_rows.h"
#include "process/cleanup/surround.h"
#include "process/process.h"
#include "process/tone/threshold.h"

namespace tq::process {
namespace {

constexpr int kMargin = 20;               // of a side it is this part
constexpr int kLeastContrast = 35;        // of what is written; grain of paper has less
constexpr std::int64_t kDarkest = 10000;  // of pixels it is this part that tells how dark ink is

// The level half-way from paper to what is darkest within the margins; what shines through from the
// back of the page lies above it where there is ink.
Status choose_level(ImageSource& image, int& level) {
  LevelledRows rows(image);
  TQ_TRY(rows.find());
  LevelCounter counter;
  TQ_TRY(counter.allocate(std::int64_t{image.width()} * image.height()));
  const int left = image.width() / kMargin, top = image.height() / kMargin;
  for (int y = top; y < image.height() - top; ++y) {
    counter.add(rows.read(y).subspan(static_cast<std::size_t>(left),
                                     static_cast<std::size_t>(image.width() - 2 * left)));
  }
  const LevelCounts counts = counter.counts();
  std::int64_t total = 0, darker = 0;
  for (const auto count : counts) total += static_cast<std::int64_t>(count);
  int darkest = 0;
  while (darkest < 255 &&
         (darker += static_cast<std::int64_t>(counts[darkest])) * kDarkest <= total) {
    ++darkest;
  }
  level = darkest > kPaperLevel - kLeastContrast
              ? 0
              : std::min((kPaperLevel + darkest) / 2, kPaperLevel - kLeastContrast);
  return kOk;
}

struct PageShape {
  std::int64_t width, height;
  // Those of so many tenths of a millimetre on A4, whose longer side has about 1170 blocks, or more.
  std::int64_t blocks(std::int64_t tenths) const {
    return (tenths * std::max<std::int64_t>({width, height, 1170}) + 1485) / 2970;
  }
  bool touches_edge(const Component& c) const {
    return c.left <= 0 || c.top <= 0 || c.right >= width || c.bottom >= height;
  }
  bool lies_in_margin(const Component& c) const {
    return c.right <= width / kMargin || c.left >= width - width / kMargin ||
           c.bottom <= height / kMargin || c.top >= height - height / kMargin;
  }
  bool is_punch_hole(const Component& c) const {
    const std::int64_t longer = c.longer_side(), shorter = std::min(c.width(), c.height());
    const bool round = shorter >= blocks(40) && longer <= blocks(80) && 4 * longer <= 5 * shorter;
    // A circle takes 785 thousandths of its box.
    const std::int64_t filled = c.pixels * 1000 / (c.width() * c.height());
    const std::int64_t from_edge =
        std::min({std::int64_t{c.left}, std::int64_t{c.top}, width - c.right, height - c.bottom});
    return round && filled >= 700 && filled <= 900 && from_edge <= blocks(200);
  }
};

// Whether dust lies in rows, as the remains of faint writing do: by chance the counts of rows vary
// as their mean.
bool lies_in_rows(std::span<const std::uint32_t> counts) {
  std::uint64_t sum = 0, squares = 0;
  for (const std::uint64_t count : counts) sum += count, squares += count * count;
  const std::uint64_t n = counts.size();
  return sum >= 60 && squares * n > sum * sum + 3 * sum * n;
}

Status has_writing(const InkPage& page, std::int32_t tolerance, bool& found) {
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

  const PageShape shape{page.width(), page.height()};
  const std::int64_t least = shape.blocks(12 + tolerance);
  constexpr int kRow = 4;  // blocks that dust is counted in
  RowBuffer<std::uint32_t> dust;
  TQ_TRY(dust.allocate(page.height() / kRow + 1));
  std::int64_t grains = 0;
  for (const Component& c : components.all()) {
    if (shape.touches_edge(c) || shape.is_punch_hole(c)) continue;
    if (shape.lies_in_margin(c)) {
      // Page numbers stand there; so do shadows of an edge, which are thin or small.
      const bool thin = c.longer_side() > 5 * std::min(c.width(), c.height());
      found = found || (c.longer_side() >= least + shape.blocks(6) && !thin);
    } else if (c.longer_side() >= least) {
      found = true;
    } else {
      ++grains;
      ++dust[c.top / kRow];
    }
  }
  const std::int64_t area = shape.width * shape.height;
  const std::int64_t centimetre = shape.blocks(100);
  const bool dense = grains * 10 * centimetre * centimetre > (5 + std::int64_t{tolerance}) * area;
  found = found || (dense && lies_in_rows(dust.pixels()));
  return kOk;
}

}  // namespace

Status is_blank(ImageSource& image, std::int32_t tolerance) {
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  if (tolerance < 0 || tolerance > 100) return StatusCode::unsupported;
  InkRule rule;
  if (image.bits() != 1) TQ_TRY(choose_level(image, rule.level));
  InkPage page;
  TQ_TRY(page.find(image, InkPage::Reports::source_rows, rule));
  bool found = false;
  TQ_TRY(has_writing(page, tolerance, found));
  // What was dark is dust, or holes: it says nothing of how faint the writing may be.
  if (image.bits() != 1 && !found && rule.level > 0) {
    rule.level = kPaperLevel - kLeastContrast;
    TQ_TRY(page.find(image, InkPage::Reports::none, rule));
    TQ_TRY(has_writing(page, tolerance, found));
  }
  return Status::from_raw(found ? 0 : 1);
}

}  // namespace tq::process
