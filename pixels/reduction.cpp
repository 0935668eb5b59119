// Ordered dithers, fixed thresholds, nearest colours.
#include "pixels/reduction.h"

#include <algorithm>
#include <climits>

#include "pixels/kernels.h"

namespace tq::pixels {
namespace {

bool lowers(std::int32_t target, int source_bits) {
  return (target == 8 && source_bits >= 24) || (target == 4 && source_bits >= 8) ||
         (target == 1 && source_bits >= 4);
}

struct Interval {
  int least, most;
};

// The squares of the distances from a level of seven bits to eight that follow each other.
Interval squares(int level, int first) {
  const int last = first + 7;
  const int below = first - level, above = level - last;
  const int least = std::max({below, above, 0});
  const int most = std::max(level - first, last - level);
  return {least * least, most * most};
}

}  // namespace

Status NearestColours::open(std::span<const Rgb> palette) {
  palette_ = palette;
  TQ_TRY(table_.allocate(std::int64_t{kCell} * kCells));
  TQ_TRY(known_.allocate(kCells));
  std::fill(known_.pixels().begin(), known_.pixels().end(), std::uint8_t{0});
  return kOk;
}

// Only colours that are nowhere farther than another one is everywhere can be the nearest. They keep
// their order, by which the first of equals is found.
void NearestColours::fill(std::uint32_t cell) {
  const int red = static_cast<int>(cell >> 8) * 8, green = static_cast<int>(cell >> 4 & 15) * 8,
            blue = static_cast<int>(cell & 15) * 8;
  std::array<int, 256> least;
  int bound = INT_MAX;
  for (std::size_t i = 0; i < palette_.size(); ++i) {
    const Rgb c = palette_[i];
    const Interval r = squares(c.red >> 1, red), g = squares(c.green >> 1, green),
                   b = squares(c.blue >> 1, blue);
    least[i] = r.least + g.least + b.least;
    bound = std::min(bound, r.most + g.most + b.most);
  }
  std::array<Rgb, 256> near;
  std::array<std::uint8_t, 256> index;
  std::size_t count = 0;
  for (std::size_t i = 0; i < palette_.size(); ++i) {
    if (least[i] > bound) continue;
    near[count] = palette_[i];
    index[count++] = byte(i);
  }
  std::uint8_t* out = table_.data() + std::size_t{kCell} * cell;
  const auto candidates = std::span<const Rgb>(near).first(count);
  for (int r = 0; r < 8; ++r) {
    for (int g = 0; g < 8; ++g) {
      for (int b = 0; b < 8; ++b) {
        const Rgb colour{byte(2 * (blue + b)), byte(2 * (green + g)), byte(2 * (red + r)), 0};
        *out++ = index[nearest_colour(colour, candidates)];
      }
    }
  }
  known_[cell] = 1;
}

void RowReducer::choose(const HeaderBlock& source, std::int32_t bits, std::int32_t dither_mode) {
  bits_ = lowers(bits, source.header.biBitCount) ? bits : 0;
  plain_thresholds_ = dither_mode == 2;
}

const Rgb* RowReducer::palette() const {
  switch (bits_) {
    case 8:
      return fixed_palette(plain_thresholds_ ? 2 : 1).data();
    case 4:
      return sixteen_colours().data();
    default:
      return black_and_white().data();
  }
}

Status RowReducer::allocate(const HeaderBlock& source) {
  if (!active()) return kOk;
  source_ = {.width = source.header.biWidth,
             .bits = source.header.biBitCount,
             .cmyk = source.header.biCompression == 0,
             .palette = source.palette};
  TQ_TRY(colours_.allocate(source_.width));
  TQ_TRY(reduced_.allocate(row_bytes(source_.width, bits_)));
  if (bits_ == 8 && plain_thresholds_) TQ_TRY(nearest_.open(fixed_palette(2)));
  return kOk;
}

Bytes RowReducer::reduce(Bytes row, int y) {
  row_to_colours(row, source_, colours_.pixels());
  std::fill(reduced_.pixels().begin(), reduced_.pixels().end(), std::uint8_t{0});
  const Rgb* const colours = colours_.data();
  std::uint8_t* const out = reduced_.data();
  if (bits_ == 8 && plain_thresholds_) {
    for (int x = 0; x < source_.width; ++x) out[x] = nearest_.find(colours[x]);
  } else if (bits_ == 4 && plain_thresholds_) {
    pack_nibbles(out, source_.width, [&](int x) {
      return plain_sixteen(colours[x].blue, colours[x].green, colours[x].red);
    });
  } else {
    constexpr int kMiddle = 127;
    const Kernels k = kernels();
    const auto order = bits_ == 8 ? k.order_to_8 : bits_ == 4 ? k.order_to_4 : k.order_to_1;
    OrderedLimits limits = ordered_limits(y, kDarkerBy);
    if (plain_thresholds_) std::ranges::fill(limits.channel, byte(kMiddle));
    order(colours, limits, out, source_.width);
  }
  return reduced_.pixels();
}

}  // namespace tq::pixels
