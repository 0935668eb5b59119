// Ordered dithers and nearest colours against the fixed palettes.
#include "pixels/reduce.h"

#include <algorithm>

#include "pixels/colours.h"

namespace tq::pixels {
namespace {

constexpr std::uint32_t kInUse = 1u << 24;
constexpr std::uint32_t kCacheEntries = 4096;

bool lowers(std::int32_t target, int source_bits) {
  return (target == 8 && source_bits >= 24) || (target == 4 && source_bits >= 8) ||
         (target == 1 && source_bits >= 4);
}

std::uint8_t threshold(int x, int y) {
  return kDispersedDots[x & 7][y & 7];
}

int dithered_level(int value, int levels, int t) {
  return (value * (levels - 1) + t) / 255;
}

}  // namespace

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
  if (bits_ == 8 && plain_thresholds_) TQ_TRY(cache_.allocate(kCacheEntries));
  return kOk;
}

Bytes RowReducer::reduce(Bytes row, int y) {
  row_to_colours(row, source_, colours_.pixels());
  std::fill(reduced_.pixels().begin(), reduced_.pixels().end(), std::uint8_t{0});
  switch (bits_) {
    case 8:
      reduce_to_8(y);
      break;
    case 4:
      reduce_to_4(y);
      break;
    default:
      reduce_to_1(y);
      break;
  }
  return reduced_.pixels();
}

void RowReducer::reduce_to_8(int y) {
  for (int x = 0; x < source_.width; ++x) {
    const Rgb c = colours_[x];
    const int t = threshold(x, y);
    reduced_[x] = plain_thresholds_
                      ? nearest(c)
                      : byte(dithered_level(c.red, 8, t) << 5 | dithered_level(c.green, 8, t) << 2 |
                             dithered_level(c.blue, 4, t));
  }
}

void RowReducer::reduce_to_4(int y) {
  pack_nibbles(reduced_.data(), source_.width, [&](int x) {
    const Rgb c = colours_.data()[x];
    if (plain_thresholds_) return plain_sixteen(c.blue, c.green, c.red);
    return ordered_sixteen(c, intensity(c), threshold(x, y));
  });
}

void RowReducer::reduce_to_1(int y) {
  for (int x = 0; x < source_.width; ++x) {
    const int t = plain_thresholds_ ? 127 : threshold(x, y);
    if (luma(colours_[x]) > t) reduced_[x / 8] |= byte(0x80 >> (x % 8));
  }
}

// Of the palette that has no order to compute with.
std::uint8_t RowReducer::nearest(Rgb colour) {
  const std::uint32_t key = kInUse | colour.red << 16 | colour.green << 8 | colour.blue;
  CachedColour& cached = cache_[(key * 0x9E3779B1u) >> 20];
  if (cached.key == key) return cached.index;
  cached = {key, nearest_colour(colour, fixed_palette(2))};
  return cached.index;
}

}  // namespace tq::pixels
