// Ink in blocks of pixels: of 1 bit counted from the runs as they are kept, of greys and colours by
// a level that suits the page.
#include "process/cleanup/ink.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "process/cleanup/background.h"
#include "process/tone/threshold.h"

namespace tq::process {
namespace {

constexpr double kLongerSide = 1170;       // in blocks: of A4, 100 to the inch
constexpr int kLeastDistance = 30;         // of levels of ink and paper
constexpr std::uint32_t kBusyChanges = 8;  // of the colour, in a row of a tile

}  // namespace

// Blocks of pixels in a row, as counts of ink; and how often the colour changes in the tiles that they
// are parts of.
class BlockCounts {
 public:
  Status allocate(int blocks, int block_width) {
    size_ = block_width;
    TQ_TRY(changes_.allocate((blocks - 1) / InkPage::kTile + 1));
    // Rounded up: exact below 2^16, where all positions of run lists are.
    reciprocal_ = (std::uint64_t{1} << 32) / block_width + 1;
    return counts_.allocate(blocks);
  }
  std::span<const std::uint32_t> counts() const { return counts_.pixels(); }
  void clear() { std::ranges::fill(counts_.pixels(), 0); }
  std::span<std::uint32_t> changes() { return changes_.pixels(); }

  // Black from `first` to before `end`.
  void add(std::int32_t first, std::int32_t end) {
    std::uint32_t* const counts = counts_.data();
    const std::int32_t from = block_of(first), to = block_of(end - 1);
    ++changes_[from / InkPage::kTile];
    ++changes_[to / InkPage::kTile];
    if (from == to) {
      counts[from] += end - first;
      return;
    }
    counts[from] += (from + 1) * size_ - first;
    for (std::int32_t i = from + 1; i < to; ++i) counts[i] += size_;
    counts[to] += end - to * size_;
  }
  // A pixel each: 1 where it is black.
  void add_marks(Bytes marks) {
    const std::uint8_t* mark = marks.data();
    const std::uint8_t* const end = mark + marks.size();
    std::uint8_t last = 0;
    for (std::size_t i = 0; i < counts_.size(); ++i) {
      const std::uint8_t* const stop = mark + std::min<std::ptrdiff_t>(size_, end - mark);
      std::uint32_t sum = 0, changes = 0;
      for (; mark != stop; ++mark) {
        sum += *mark;
        changes += *mark ^ last;
        last = *mark;
      }
      counts_[i] += sum;
      changes_[i / InkPage::kTile] += changes;
    }
  }
  template <class Position>
  void add_runs(std::span<const Position> row, std::int32_t width) {
    for (std::size_t i = 0; i < row.size(); i += 2) {
      add(row[i], i + 1 < row.size() ? std::int32_t{row[i + 1]} : width);
    }
  }

 private:
  std::int32_t block_of(std::int32_t x) const {
    if (x >= 65536) return x / size_;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(x) * reciprocal_ >> 32);
  }

  std::int32_t size_ = 1;
  std::uint64_t reciprocal_ = 0;
  RowBuffer<std::uint32_t> counts_, changes_;
};

void InkPage::choose_blocks(const ImageSource& image, bool fine) {
  const Resolution resolution = resolution_of(image.record());
  double ratio = 1;  // of a pixel's width to its height on paper
  if (resolution.x > 0 && resolution.y > 0) ratio = double{1} * resolution.y / resolution.x;
  // Sides in units of the smaller side of a pixel.
  const double wide = std::max(ratio, 1.0), high = std::max(1 / ratio, 1.0);
  const double block = std::max(image.width() * wide, image.height() * high) / kLongerSide;
  const auto pixels = [block](double pixel, int side) {
    return std::clamp(static_cast<int>(std::min(block / pixel + 0.5, 2e9)), 1, side);
  };
  block_width_ = pixels(wide, image.width());
  block_height_ = pixels(high, image.height());
  if (fine && block_width_ > 1 && block_height_ > 1) block_width_ /= 2, block_height_ /= 2;
  aspect_ = ratio * block_width_ / block_height_;
  width_ = (image.width() - 1) / block_width_ + 1;
  height_ = (image.height() - 1) / block_height_ + 1;
}

Status InkPage::find(ImageSource& image, Reports reports, InkRule rule) {
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  choose_blocks(image, rule.fine);
  TQ_TRY(allocate());
  return image.bits() == 1 ? find_black(image, reports) : find_dark(image, reports, rule);
}

Status InkPage::allocate() {
  row_bytes_ = (static_cast<std::size_t>(width_) + 63) / 64 * 8;
  return bits_.allocate(static_cast<std::int64_t>(row_bytes_) * height_);
}

Status InkPage::transpose(const InkPage& page) {
  width_ = page.height_;
  height_ = page.width_;
  block_width_ = page.block_height_;
  block_height_ = page.block_width_;
  aspect_ = 1 / page.aspect_;
  TQ_TRY(allocate());
  std::ranges::fill(bits_.pixels(), std::uint8_t{0xFF});
  for (int y = 0; y < page.height_; ++y) {
    const Row from = page.row(y);
    const int mask = 0x80 >> y % 8;
    for (int i = 0; 8 * i < page.width_; ++i) {
      for (unsigned ink = from[i] ^ 0xFFu; ink != 0; ink &= ink - 1) {
        row(8 * i + 7 - std::countr_zero(ink))[y / 8] ^= byte(mask);
      }
    }
  }
  return kOk;
}

Status InkPage::level(const InkPage& page, double slope) {
  width_ = page.width_;
  height_ = page.height_;
  block_width_ = page.block_width_;
  block_height_ = page.block_height_;
  aspect_ = page.aspect_;
  RowBuffer<std::int32_t> falls;
  TQ_TRY(falls.allocate(width_));
  for (int x = 0; x < width_; ++x) {
    const double fall = slope * (x - width_ / 2);
    falls[x] = static_cast<std::int32_t>(fall + (fall < 0 ? -0.5 : 0.5));
  }
  TQ_TRY(allocate());
  std::ranges::fill(bits_.pixels(), std::uint8_t{0xFF});
  for (int y = 0; y < height_; ++y) {
    const Row from = page.row(y);
    for (int i = 0; 8 * i < width_; ++i) {
      for (unsigned ink = from[i] ^ 0xFFu; ink != 0; ink &= ink - 1) {
        const int bit = std::countr_zero(ink), to = y - falls[8 * i + 7 - bit];
        if (to >= 0 && to < height_) row(to)[i] ^= byte(1 << bit);
      }
    }
  }
  return kOk;
}

bool InkPage::has_ink(int left, int top, int right, int bottom) const {
  for (int y = std::max(top, 0); y < std::min(bottom, height_); ++y) {
    for (int x = std::max(left, 0); x < std::min(right, width_); ++x) {
      if (has_ink(x, y)) return true;
    }
  }
  return false;
}

// Ink where at least half of a block is.
void InkPage::store_row(int y, int rows, int last_columns, std::span<const std::uint32_t> counts) {
  const Row bits = row(y);
  std::ranges::fill(bits, std::uint8_t{0xFF});
  for (int x = 0; x < width_; ++x) {
    const std::int64_t columns = x + 1 < width_ ? block_width_ : last_columns;
    if (2 * std::int64_t{counts[x]} >= columns * rows) bits[x / 8] ^= byte(0x80 >> x % 8);
  }
}

// Of each row `add(y, blocks)` tells what is black.
template <class Add>
Status InkPage::count_rows(ImageSource& image, Reports reports, Add&& add) {
  const int height = image.height();
  const int last_columns = image.width() - (width_ - 1) * block_width_;
  BlockCounts blocks;
  TQ_TRY(blocks.allocate(width_, block_width_));
  TQ_TRY(screened_.allocate(std::int64_t{tile_columns()} * tile_rows()));
  RowBuffer<std::uint32_t> busy;  // rows, of the tiles at work
  TQ_TRY(busy.allocate(tile_columns()));
  const std::int64_t tile_height = std::int64_t{kTile} * block_height_;
  std::uint8_t* screened = screened_.data();
  std::uint32_t rows_of_tile = 0;
  for (int y = 0, rows = 0; y < height; ++y) {
    if (reports == Reports::source_rows) TQ_TRY(image.next_row());
    add(y, blocks);
    ++rows_of_tile;
    const bool ends_tiles = rows_of_tile == tile_height || y + 1 == height;
    for (int x = 0; x < tile_columns(); ++x) {
      if (std::exchange(blocks.changes()[x], 0) >= kBusyChanges) ++busy[x];
      if (!ends_tiles) continue;
      const bool full = 8 * std::uint64_t{std::exchange(busy[x], 0)} >= 7 * rows_of_tile;
      *screened++ = full ? 1 : 0;
    }
    if (ends_tiles) rows_of_tile = 0;
    if (++rows < block_height_ && y + 1 < height) continue;
    store_row(y / block_height_, rows, last_columns, blocks.counts());
    blocks.clear();
    rows = 0;
  }
  return kOk;
}

Status InkPage::find_black(ImageSource& image, Reports reports) {
  const int width = image.width();
  RowBuffer<std::int32_t> changes;
  TQ_TRY(changes.allocate(most_transitions(width)));
  if (image.in_runs()) TQ_TRY(list_waiting_rows(image.record()));
  return count_rows(image, reports, [&](int y, BlockCounts& blocks) {
    const RowView view = image.in_runs() ? view_row(image.record(), y) : RowView{{}, image.row(y)};
    if (view.bits.empty()) return blocks.add_runs(view.transitions, width);
    const std::int32_t count = bits_to_transitions(view.bits, width, changes.pixels());
    blocks.add_runs(std::span<const std::int32_t>(changes.pixels().first(count)), width);
  });
}

Status InkPage::find_dark(ImageSource& image, Reports reports, InkRule rule) {
  const int width = image.width(), height = image.height();
  LevelledRows levelled(image);
  GreyRows grey(image, GreyKind::luma);
  RowBuffer<std::uint8_t> dark;
  TQ_TRY(dark.allocate(width));
  TQ_TRY(rule.levelled ? levelled.find() : grey.allocate());

  if (rule.levelled) {
    TQ_TRY(dark_.allocate(std::int64_t{width_} * height_));
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        dark_[y * std::ptrdiff_t{width_} + x] =
            byte(levelled.is_dark(x * block_width_, y * block_height_) ? 1 : 0);
      }
    }
  }
  int level = rule.level;
  if (level == InkRule::kByOtsu) {
    LevelCounter counter;
    TQ_TRY(counter.allocate(std::int64_t{width} * height));
    for (int y = 0; y < height; ++y) counter.add(rule.levelled ? levelled.read(y) : grey.read(y));
    const LevelCounts counts = counter.counts();
    level = otsu_level(counts);
    const bool has_ink = class_distance(counts, level) >= kLeastDistance;
    if (rule.levelled) level = clamp_on_paper(level);
    if (!has_ink) level = -1;
  }
  return count_rows(image, reports, [&](int y, BlockCounts& blocks) {
    if (rule.levelled) {
      levelled.mark_dark(y, level, dark.pixels());
    } else {
      const Bytes levels = grey.read(y);
      for (int x = 0; x < width; ++x) dark[x] = byte(levels[x] <= level ? 1 : 0);
    }
    blocks.add_marks(dark.pixels());
  });
}

}  // namespace tq::process
