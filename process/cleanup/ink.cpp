// Ink in blocks of pixels: of 1 bit counted from the runs as they are kept, of greys and colours by
// a level that suits the page.
#include "process/cleanup/ink.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "process/cleanup/background.h"
#include "process/cleanup/bit_counts.h"
#include "process/geometry/kernels.h"
#include "process/tone/threshold.h"

namespace tq::process {
namespace {

constexpr double kLongerSide = 1170;       // in blocks: of A4, 100 to the inch
constexpr int kLeastDistance = 30;         // of levels of ink and paper
constexpr std::uint32_t kBusyChanges = 8;  // of the colour, in a row of a tile

// The 64 columns of a row from x on, a multiple of as many; the first is the top bit.
constexpr std::uint64_t kFirstColumn = std::uint64_t{1} << 63;

std::uint64_t load_word(Bytes row, int x) {
  std::uint64_t word;
  std::memcpy(&word, &row[x / 8], sizeof word);
  return __builtin_bswap64(word);
}
void store_word(std::uint64_t word, Row row, int x) {
  word = __builtin_bswap64(word);
  std::memcpy(&row[x / 8], &word, sizeof word);
}

}  // namespace

// How many rows of the tiles at work change their colour often: `changes` of a row.
class BusyRows {
 public:
  Status allocate(int tiles, std::int64_t tile_height) {
    most_quiet_ = tile_height / 8;
    return counts_.allocate(tiles);
  }
  void begin() {
    std::ranges::fill(counts_.pixels(), 0);
    rows_ = 0;
  }
  void end_row() { ++rows_; }
  std::uint32_t rows() const { return rows_; }
  // Whether a tile may still become full.
  bool is_open(std::size_t tile) const { return rows_ - counts_.data()[tile] <= most_quiet_; }
  void add(std::size_t tile, std::uint32_t changes) {
    if (changes >= kBusyChanges) ++counts_.data()[tile];
  }
  bool is_full(std::size_t tile) const {
    return 8 * std::uint64_t{counts_[tile]} >= 7 * std::uint64_t{rows_};
  }

 private:
  std::int64_t most_quiet_ = 0;
  std::uint32_t rows_ = 0;
  RowBuffer<std::uint32_t> counts_;
};

// Blocks of pixels in a row, as counts of ink; and how often the colour changes in the tiles that they
// are parts of.
class BlockCounts {
 public:
  Status allocate(int blocks, int block_width) {
    size_ = block_width;
    TQ_TRY(changes_.allocate((blocks - 1) / InkPage::kTile + 1));
    // Rounded up: exact below 2^16, where all positions of run lists are.
    reciprocal_ = (std::uint64_t{1} << 32) / block_width + 1;
    return counts_.allocate((std::int64_t{blocks} + 7) / 8 * 8);
  }
  void clear() { std::ranges::fill(counts_.pixels(), 0); }

  void end_row(BusyRows& busy) {
    for (std::size_t tile = 0; tile < changes_.size(); ++tile) {
      busy.add(tile, std::exchange(changes_.data()[tile], 0));
    }
  }
  std::int64_t count(int x) const { return counts_[x]; }
  // Sets what has `least` or more to ink in a white row.
  void store(std::int64_t least, Row bits) const {
    for (std::size_t x = 0; x < counts_.size(); x += 8) {
      std::array<std::uint32_t, 8> eight;
      std::memcpy(eight.data(), counts_.data() + x, sizeof eight);
      std::uint32_t any = 0;
      for (const std::uint32_t count : eight) any |= count;
      if (any == 0) continue;
      int white = 0;
      for (const std::uint32_t count : eight) white = white << 1 | (count < least ? 1 : 0);
      bits[x / 8] = byte(white);
    }
  }

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

// The same of bits, for small blocks: counts of 4 bits, a tile in a word, the first block on top.
class SmallBlockCounts {
 public:
  static bool suits(int block_width, int block_height) {
    return block_width <= kWidest && block_width * std::int64_t{block_height} < 16;
  }
  Status allocate(int blocks, int block_width, int width) {
    width_ = width;
    group_ = 4 * block_width;
    TQ_TRY(by_group_.allocate(std::int64_t{1} << group_));
    const int mask = (1 << block_width) - 1;
    for (int group = 0; group < 1 << group_; ++group) {
      for (int at = group_ - block_width; at >= 0; at -= block_width) {
        by_group_[group] = word(by_group_[group] << 4 | count_bits(group >> at & mask));
      }
    }
    return counts_.allocate((blocks - 1) / InkPage::kTile + 1);
  }
  void clear() { std::ranges::fill(counts_.pixels(), std::uint64_t{0}); }

  void add(Bytes row, BusyRows& busy) {
    const int tile_width = 4 * group_;
    const std::uint16_t* const by_group = by_group_.data();
    const std::uint32_t mask = (1U << group_) - 1;
    std::uint64_t before = 0;  // whether the pixel before is black
    for (std::size_t tile = 0; tile < counts_.size(); ++tile) {
      const std::size_t at = tile * tile_width / 8;
      const int left = width_ - static_cast<int>(tile) * tile_width;
      std::uint64_t black = ~pixels_from(row, at);
      if (black == 0) {
        before = 0;
        continue;
      }
      if (left < 64) black &= ~(~std::uint64_t{0} >> left);
      if (black >> (64 - tile_width) == 0) {
        before = 0;
        continue;
      }
      std::uint64_t counts = 0;
      for (int i = 1; i <= 4; ++i) {
        counts = counts << 16 | by_group[black >> (64 - i * group_) & mask];
      }
      counts_.data()[tile] += counts;
      if (busy.is_open(tile)) {
        // Where runs begin, and where they end.
        const std::uint64_t inside = ~std::uint64_t{0} << (64 - tile_width);
        const std::uint64_t first = black & ~(black >> 1 | before << 63) & inside;
        const std::uint64_t last = black & ~(black << 1) & inside;
        busy.add(tile, sum_of_fours(count_in_fours(first) + count_in_fours(last)));
      }
      before = black >> (64 - tile_width) & 1;
    }
  }
  void end_row(BusyRows&) {}

  std::int64_t count(int x) const { return counts_[x / 16] >> (60 - 4 * (x % 16)) & 15; }
  void store(std::int64_t least, Row bits) const {
    constexpr std::uint64_t kEach = 0x1111111111111111;
    const std::uint64_t lacking = kEach * (8 - least);  // so that enough are 8 or more
    for (std::size_t tile = 0; tile < counts_.size(); ++tile) {
      if (counts_.data()[tile] == 0) continue;
      std::uint64_t ink = (counts_.data()[tile] + lacking) >> 3 & kEach;
      ink = (ink | ink >> 3) & 0x0303030303030303;
      ink = (ink | ink >> 6) & 0x000F000F000F000F;
      ink = (ink | ink >> 12) & 0x000000FF000000FF;
      ink |= ink >> 24;
      bits[2 * tile] = byte(~ink >> 8);
      bits[2 * tile + 1] = byte(~ink);
    }
  }

 private:
  static constexpr int kWidest = 3;

  // From a byte on; white behind the row.
  static std::uint64_t pixels_from(Bytes row, std::size_t at) {
    std::uint64_t word = ~std::uint64_t{0};
    if (at + sizeof word <= row.size()) {
      std::memcpy(&word, &row[at], sizeof word);
    } else {
      std::memcpy(&word, &row[at], row.size() - at);
    }
    return __builtin_bswap64(word);
  }

  int width_ = 0, group_ = 4;  // pixels of four blocks
  RowBuffer<std::uint16_t> by_group_;
  RowBuffer<std::uint64_t> counts_;
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
  return image.bits() == 1 ? find_black(image, reports, rule.fine)
                           : find_dark(image, reports, rule);
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
  constexpr int kWord = 64;
  const auto transpose_square = geometry_kernels().transpose_square;
  for (int x = 0; x < page.width_; x += kWord) {
    for (int y = 0; y < page.height_; y += kWord) {
      std::uint64_t square[kWord];
      for (int i = 0; i < kWord; ++i) {
        square[i] = y + i < page.height_ ? load_word(page.row(y + i), x) : ~std::uint64_t{0};
      }
      transpose_square(square);
      for (int i = 0; i < std::min(kWord, height_ - x); ++i) store_word(square[i], row(x + i), y);
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
  // Columns in turn of a word that fall alike.
  struct Strip {
    std::int32_t fall, first;
    std::uint64_t mask;
  };
  RowBuffer<Strip> strips;
  TQ_TRY(strips.allocate(width_));
  std::size_t count = 0;
  const int middle = width_ / 2;
  for (int x = 0; x < width_; ++x) {
    const double exact = slope * (x - middle);
    const auto fall = static_cast<std::int32_t>(exact + (exact < 0 ? -0.5 : 0.5));
    if (x % 64 == 0 || fall != strips.data()[count - 1].fall) {
      strips.data()[count++] = {fall, x / 64 * 64, 0};
    }
    strips.data()[count - 1].mask |= kFirstColumn >> x % 64;
  }
  TQ_TRY(allocate());
  std::ranges::fill(bits_.pixels(), std::uint8_t{0xFF});
  for (int y = 0; y < height_; ++y) {
    for (const Strip& strip : strips.pixels().first(count)) {
      const int from = y + strip.fall;
      if (from < 0 || from >= height_) continue;
      const std::uint64_t ink = ~load_word(page.row(from), strip.first) & strip.mask;
      store_word(load_word(row(y), strip.first) ^ ink, row(y), strip.first);
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

// Ink is where at least half of a block is. Of each row `add(y, busy)` adds to `blocks` what is black.
template <class Blocks, class Add>
Status InkPage::count_rows(ImageSource& image, Reports reports, Blocks& blocks, Add&& add) {
  const int height = image.height();
  const int last_columns = image.width() - (width_ - 1) * block_width_;
  TQ_TRY(screened_.allocate(std::int64_t{tile_columns()} * tile_rows()));
  const std::int64_t tile_height = std::int64_t{kTile} * block_height_;
  BusyRows busy;
  TQ_TRY(busy.allocate(tile_columns(), tile_height));
  std::uint8_t* screened = screened_.data();
  for (int y = 0, rows = 0; y < height; ++y) {
    if (reports == Reports::source_rows) TQ_TRY(image.next_row());
    add(y, busy);
    blocks.end_row(busy);
    busy.end_row();
    if (busy.rows() == tile_height || y + 1 == height) {
      for (int x = 0; x < tile_columns(); ++x) *screened++ = busy.is_full(x) ? 1 : 0;
      busy.begin();
    }
    if (++rows < block_height_ && y + 1 < height) continue;
    const auto half = [rows](int columns) { return (std::int64_t{columns} * rows + 1) / 2; };
    const Row bits = row(y / block_height_);
    std::ranges::fill(bits, std::uint8_t{0xFF});
    blocks.store(half(block_width_), bits);
    const int last = width_ - 1, bit = 0x80 >> last % 8;
    bits[last / 8] |= byte(bit);
    if (blocks.count(last) >= half(last_columns)) bits[last / 8] ^= byte(bit);
    blocks.clear();
    rows = 0;
  }
  return kOk;
}

Status InkPage::find_black(ImageSource& image, Reports reports, bool fine) {
  const int width = image.width();
  const bool small = SmallBlockCounts::suits(block_width_, block_height_);
  RowBuffer<std::uint8_t> expanded;
  if (small && image.in_runs()) TQ_TRY(expanded.allocate(row_bytes(width, 1)));
  // Bits where they are, or what lists make of them.
  const auto bits_of = [&](int y) -> Bytes {
    if (!image.in_runs()) return image.row(y);
    const RowView view = view_row(image.record(), y);
    if (!view.bits.empty()) return view.bits;
    expand_row(image.record(), y, expanded.pixels());
    return expanded.pixels();
  };
  if (fine && block_width_ == 1 && block_height_ == 1) {
    for (int y = 0; y < height_; ++y) {
      if (reports == Reports::source_rows) TQ_TRY(image.next_row());
      const Bytes from = bits_of(y);
      const Row bits = row(y);
      std::ranges::fill(bits.subspan(width / 8), std::uint8_t{0xFF});
      std::memcpy(bits.data(), from.data(), width / 8);
      if (width % 8 != 0) bits[width / 8] = byte(from[width / 8] | 0xFF >> width % 8);
    }
    return screened_.allocate(std::int64_t{tile_columns()} * tile_rows());
  }
  if (small) {
    SmallBlockCounts blocks;
    TQ_TRY(blocks.allocate(width_, block_width_, width));
    return count_rows(image, reports, blocks,
                      [&](int y, BusyRows& busy) { blocks.add(bits_of(y), busy); });
  }
  BlockCounts blocks;
  TQ_TRY(blocks.allocate(width_, block_width_));
  RowBuffer<std::int32_t> changes;
  TQ_TRY(changes.allocate(most_transitions(width)));
  if (image.in_runs()) TQ_TRY(list_waiting_rows(image.record()));
  return count_rows(image, reports, blocks, [&](int y, BusyRows&) {
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
  BlockCounts blocks;
  TQ_TRY(blocks.allocate(width_, block_width_));
  return count_rows(image, reports, blocks, [&](int y, BusyRows&) {
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
