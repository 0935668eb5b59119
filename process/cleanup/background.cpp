// The background of a page: in tiles the level that four fifths of the pixels do not exceed, then
// what covers writing and dark patches in 5 x 5 tiles, their mean, and straight lines between tiles.
#include "process/cleanup/background.h"

#include <algorithm>
#include <array>

namespace tq::process {
namespace {

constexpr int kReach = 2;  // tiles to each side

// Along one axis: `line(i)` for i from 0 to `count` - 1 becomes what `choose` makes of those within
// reach.
template <class Choose>
void filter_line(std::uint8_t* line, std::ptrdiff_t step, int count, std::uint8_t* spare,
                 Choose&& choose) {
  for (int i = 0; i < count; ++i) {
    int chosen = line[i * step];
    for (int k = std::max(i - kReach, 0); k <= std::min(i + kReach, count - 1); ++k) {
      chosen = choose(chosen, int{line[k * step]});
    }
    spare[i] = byte(chosen);
  }
  for (int i = 0; i < count; ++i) line[i * step] = spare[i];
}

template <class Choose>
void filter_tiles(std::uint8_t* tiles, int columns, int rows, std::uint8_t* spare,
                  Choose&& choose) {
  for (int y = 0; y < rows; ++y) {
    filter_line(tiles + y * std::ptrdiff_t{columns}, 1, columns, spare, choose);
  }
  for (int x = 0; x < columns; ++x) filter_line(tiles + x, columns, rows, spare, choose);
}

}  // namespace

Status Background::allocate(int width, int height) {
  width_ = width;
  height_ = height;
  columns_ = (width - 1) / kTile + 1;
  rows_ = (height - 1) / kTile + 1;
  row_ = 0;
  TQ_TRY(band_.allocate(std::int64_t{columns_} * kTile * std::min(height, kTile)));
  TQ_TRY(tiles_.allocate(std::int64_t{columns_} * rows_));
  TQ_TRY(smooth_.allocate(std::int64_t{columns_} * rows_));
  TQ_TRY(between_.allocate(std::int64_t{columns_} + 2));
  return line_.allocate((std::int64_t{columns_} + 1) * kTile);
}

void Background::add_row(Bytes levels) {
  std::copy_n(levels.begin(), width_,
              band_.pixels().begin() + std::ptrdiff_t{row_ % kTile} * columns_ * kTile);
  ++row_;
  if (row_ % kTile == 0 || row_ == height_) end_tiles();
}

void Background::end_tiles() {
  const int rows = (row_ - 1) % kTile + 1;
  const std::ptrdiff_t stride = std::ptrdiff_t{columns_} * kTile;
  std::uint8_t* const out = tiles_.data() + std::ptrdiff_t{(row_ - 1) / kTile} * columns_;
  for (int x = 0; x < columns_; ++x) {
    const std::uint8_t* const from = band_.data() + x * std::ptrdiff_t{kTile};
    const int columns = std::min(kTile, width_ - x * kTile);
    if (rows == kTile && columns == kTile) {
      out[x] = byte(kernels_.bright_level(from, stride, kTile * kTile));
      continue;
    }
    std::uint8_t tile[kTile * kTile] = {};
    for (int y = 0; y < rows; ++y) std::copy_n(from + y * stride, columns, tile + y * kTile);
    out[x] = byte(kernels_.bright_level(tile, kTile, rows * columns));
  }
}

Status Background::finish() {
  RowBuffer<std::uint8_t> spare;
  TQ_TRY(spare.allocate(std::max(columns_, rows_)));
  std::uint8_t* const tiles = tiles_.data();
  filter_tiles(tiles, columns_, rows_, spare.data(), [](int a, int b) { return std::max(a, b); });
  filter_tiles(tiles, columns_, rows_, spare.data(), [](int a, int b) { return std::min(a, b); });
  TQ_TRY(find_dark());
  for (int y = 0; y < rows_; ++y) {
    const int top = std::max(y - kReach, 0), bottom = std::min(y + kReach, rows_ - 1);
    for (int x = 0; x < columns_; ++x) {
      const int left = std::max(x - kReach, 0), right = std::min(x + kReach, columns_ - 1);
      int sum = 0;
      for (int k = top; k <= bottom; ++k) {
        for (int i = left; i <= right; ++i) sum += tiles[k * std::ptrdiff_t{columns_} + i];
      }
      const int count = (bottom - top + 1) * (right - left + 1);
      smooth_[y * std::ptrdiff_t{columns_} + x] =
          word(std::max((32 * sum + count) / (2 * count), 16));
    }
  }
  return kOk;
}

Status Background::find_dark() {
  const std::span<const std::uint8_t> tiles = tiles_.pixels();
  TQ_TRY(dark_.allocate(std::ssize(tiles)));
  std::array<std::uint32_t, 256> counts{};
  for (const std::uint8_t level : tiles) ++counts[level];
  // Paper is what a tenth of the page is not lighter than.
  int paper = 255;
  for (std::size_t lighter = 0; paper > 0; --paper) {
    lighter += counts[paper];
    if (10 * lighter > tiles.size()) break;
  }
  for (int y = 0; y < rows_; ++y) {
    for (int x = 0; x < columns_; ++x) {
      if (10 * tiles[y * std::ptrdiff_t{columns_} + x] >= 6 * paper) continue;
      for (int k = std::max(y - 1, 0); k <= std::min(y + 1, rows_ - 1); ++k) {
        for (int i = std::max(x - 1, 0); i <= std::min(x + 1, columns_ - 1); ++i) {
          dark_[k * std::ptrdiff_t{columns_} + i] = 1;
        }
      }
    }
  }
  return kOk;
}

std::span<const std::uint16_t> Background::read(int y) {
  // Centres of pixels and tiles in half pixels.
  constexpr int kHalf = kTile / 2, kParts = 2 * kTile;
  const int above = y < kHalf ? -1 : (y - kHalf) / kTile;
  const int part = 2 * (y - kHalf - above * kTile) + 1;
  const std::uint16_t* const upper = smooth_.data() + std::max(above, 0) * std::ptrdiff_t{columns_};
  const std::uint16_t* const lower =
      smooth_.data() + std::min(above + 1, rows_ - 1) * std::ptrdiff_t{columns_};
  std::int32_t* const between = between_.data() + 1;
  for (int x = 0; x < columns_; ++x) {
    between[x] = upper[x] * (kParts - part) + lower[x] * part;
  }
  between[-1] = between[0];
  between[columns_] = between[columns_ - 1];
  kernels_.connect(between - 1, line_.data(), std::ptrdiff_t{columns_} + 1);
  return std::span<const std::uint16_t>(line_.pixels())
      .subspan(kHalf, static_cast<std::size_t>(width_));
}

void Background::level_row(int y, Bytes levels, Row out) {
  kernels_.even_out(levels.data(), read(y).data(), out.data(), width_);
}

void Background::mark_dark(int y, Bytes levels, int level, Row marks) {
  kernels_.mark_dark(levels.data(), read(y).data(), level, marks.data(), width_);
}

Status LevelledRows::find() {
  TQ_TRY(grey_.allocate());
  TQ_TRY(levels_.allocate(image_.width()));
  TQ_TRY(background_.allocate(image_.width(), image_.height()));
  for (int y = 0; y < image_.height(); ++y) background_.add_row(grey_.read(y));
  return background_.finish();
}

Bytes LevelledRows::read(int y) {
  background_.level_row(y, grey_.read(y), levels_.pixels());
  return levels_.pixels();
}

void LevelledRows::mark_dark(int y, int level, Row out) {
  background_.mark_dark(y, grey_.read(y), level, out);
}

}  // namespace tq::process
