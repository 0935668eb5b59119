#include "process/cleanup/text_ink.h"

#include <algorithm>
#include <cstring>

#include "process/cleanup/bit_counts.h"
#include "process/cleanup/components.h"

namespace tq::process {
namespace {

constexpr int kSpeck = 2;    // pixels
constexpr int kFewest = 12;  // components
constexpr int kBlot = 16, kStroke = 8;
constexpr int kHighest = 60;  // of what is filled, hundredths of an inch
constexpr int kNear = 8, kHighestWord = 60, kWidestWord = 250;

void whiten(Row bits, int first, int end) {
  const int left = first / 8, right = end / 8;
  const int before = 0xFF >> first % 8, behind = 0xFF00 >> end % 8 & 0xFF;
  if (left == right) {
    bits[left] |= byte(before & behind);
    return;
  }
  bits[left] |= byte(before);
  std::fill(bits.begin() + left + 1, bits.begin() + right, std::uint8_t{0xFF});
  if (behind != 0) bits[right] |= byte(behind);
}

// Tiles of a sixth of an inch that are full of dots, as a printer's screens make them, or noise.
class ScreenedTiles {
 public:
  Status find(const InkPage& page) {
    columns_ = page.tile_columns();
    const int rows = page.tile_rows();
    TQ_TRY(busy_rows_.allocate(columns_ * std::int64_t{rows}));
    TQ_TRY(screened_.allocate(columns_ * std::int64_t{rows}));
    for (int y = 0; y < page.height(); ++y) {
      const Row row = page.row(y);
      std::uint8_t* const busy_rows = busy_rows_.data() + y / kTile * std::ptrdiff_t{columns_};
      for (int x = 0; x < columns_; ++x) {
        std::uint64_t four;  // tiles: most have no ink at all
        std::memcpy(&four, &row[2 * x & ~7], sizeof four);
        if (~four == 0) {
          x |= 3;
          continue;
        }
        const unsigned pair = row[2 * x] << 8 | row[2 * x + 1];
        const int changes = count_bits((pair ^ pair >> 1) & 0x7FFF);
        if (changes >= kBusyChanges) ++busy_rows[x];
      }
    }
    const auto is_full = [&](int x, int y) {
      if (x < 0 || y < 0 || x >= columns_ || y >= rows) return false;
      return busy_rows_[y * std::ptrdiff_t{columns_} + x] >= kBusyRows || page.is_screened(x, y);
    };
    for (int y = 0; y < rows; ++y) {
      for (int x = 0; x < columns_; ++x) {
        bool found = false;
        for (int k = -1; k <= 1; ++k) {
          for (int i = -1; i <= 1; ++i) found |= is_full(x + i, y + k);
        }
        screened_[y * std::ptrdiff_t{columns_} + x] = found;
      }
    }
    return kOk;
  }
  bool has(int x, int y) const {
    return screened_[y / kTile * std::ptrdiff_t{columns_} + x / kTile] != 0;
  }

 private:
  static constexpr int kTile = InkPage::kTile, kBusyChanges = 6, kBusyRows = 12;
  int columns_ = 0;
  RowBuffer<std::uint8_t> busy_rows_, screened_;
};

// What there is of a component beside its box.
struct Texture {
  std::uint32_t runs, masked;  // of these pixels, on dark or screened ground
};

bool may_be_text(const Component& c, const Texture& texture, const InkPage& page) {
  if (c.left == 0 || c.top == 0 || c.right == page.width() || c.bottom == page.height())
    return false;
  if (c.pixels <= kSpeck || 4 * std::int64_t{texture.masked} >= c.pixels) return false;
  // The frame of a page.
  if (10 * c.width() > 7 * page.width() && 10 * c.height() > 7 * page.height()) return false;
  const std::int64_t area = c.width() * c.height();
  if (c.height() > kHighest && 2 * c.pixels >= area) return false;
  // A blot: strokes are thinner.
  return c.height() <= kBlot || 4 * c.pixels < area ||
         c.pixels < kStroke * std::int64_t{texture.runs};
}

}  // namespace

Status find_components(const InkPage& page, Components& components) {
  RowBuffer<std::int32_t> changes;
  TQ_TRY(changes.allocate(most_transitions(page.width())));
  for (int y = 0; y < page.height(); ++y) {
    const std::int32_t count = bits_to_transitions(page.row(y), page.width(), changes.pixels());
    TQ_TRY(components.add_row(changes.pixels().first(count), page.width()));
  }
  components.settle();
  return kOk;
}

Status keep_text(InkPage& page, int& marks) {
  const int height = page.height();
  ScreenedTiles screened;
  TQ_TRY(screened.find(page));
  Components components(Components::Neighbours::eight, Components::Colour::black);
  TQ_TRY(find_components(page, components));
  const std::span<Component> all = components.all();
  RowBuffer<Texture> textures;
  TQ_TRY(textures.allocate(std::ssize(all)));
  for (int y = 0; y < height; ++y) {
    for (const Run& run : components.row(y)) {
      Texture& texture = textures[run.component];
      ++texture.runs;
      for (int x = run.first, end = 0; x < run.end; x = end) {
        end = std::min(run.end, (x / InkPage::kTile + 1) * InkPage::kTile);
        if (screened.has(x, y)) {
          texture.masked += end - x;
        } else if (page.knows_dark()) {
          for (; x < end; ++x) texture.masked += page.is_dark(x, y) ? 1 : 0;
        }
      }
    }
  }
  marks = 0;
  for (std::size_t i = 0; i < all.size(); ++i) {
    all[i].mark = may_be_text(all[i], textures.data()[i], page) ? 1 : 0;
    marks += all[i].mark;
  }
  if (marks < kFewest) marks = 0;
  for (int y = 0; y < height; ++y) {
    for (const Run& run : components.row(y)) {
      if (marks == 0 || all[run.component].mark == 0) whiten(page.row(y), run.first, run.end);
    }
  }
  return kOk;
}

Status keep_near(InkPage& page, const InkPage& text) {
  // Tiles of 8 x 8 of the text's blocks; one more around them is near.
  const int columns = (text.width() - 1) / kNear + 3, rows = (text.height() - 1) / kNear + 3;
  RowBuffer<std::uint8_t> near;
  TQ_TRY(near.allocate(columns * std::int64_t{rows}));
  for (int y = 0; y < text.height(); ++y) {
    const Row row = text.row(y);
    for (int x = 0; kNear * x < text.width(); ++x) {
      if (row[x] == 0xFF) continue;
      for (int k = 0; k < 3; ++k) {
        std::fill_n(near.data() + (y / kNear + k) * std::ptrdiff_t{columns} + x, 3,
                    std::uint8_t{1});
      }
    }
  }
  Components components(Components::Neighbours::eight, Components::Colour::black);
  TQ_TRY(find_components(page, components));
  const auto tile = [](int block, int size, int text_size, int most) {
    const std::int64_t at = (block + std::int64_t{1}) * size / text_size / kNear + 1;
    return static_cast<int>(std::min<std::int64_t>(at, most));
  };
  for (Component& c : components.all()) {
    const int x = tile((c.left + c.right) / 2, page.block_width(), text.block_width(), columns - 1);
    const int y = tile((c.top + c.bottom) / 2, page.block_height(), text.block_height(), rows - 1);
    const bool large = c.height() * page.block_height() > kHighestWord * text.block_height() ||
                       c.width() * page.block_width() > kWidestWord * text.block_width();
    c.mark = !large && near[y * std::ptrdiff_t{columns} + x] != 0 ? 1 : 0;
  }
  for (int y = 0; y < page.height(); ++y) {
    for (const Run& run : components.row(y)) {
      if (components.all()[run.component].mark == 0) whiten(page.row(y), run.first, run.end);
    }
  }
  return kOk;
}

}  // namespace tq::process
