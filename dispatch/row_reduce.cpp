// Ordered dithers and nearest colours against the fixed palettes.
#include "dispatch/row_reduce.h"

#include <algorithm>

#include "core/settings.h"

namespace tq::dispatch {
namespace {

constexpr std::uint32_t kInUse = 1u << 24;
constexpr std::uint32_t kCacheEntries = 4096;

bool lowers(int target, int source_bits) {
  return (target == 8 && source_bits >= 24) || (target == 4 && source_bits >= 8) ||
         (target == 1 && source_bits >= 4);
}

std::uint8_t threshold(std::int32_t x, std::int32_t y) {
  return kDispersedDots[x & 7][y & 7];
}

int luma(Rgb c) {
  return (30 * c.red + 59 * c.green + 11 * c.blue) / 100;
}

// Brightness for the full-intensity bit; darker than luma on purpose, so that mid tones stay at
// half intensity.
int intensity(Rgb c) {
  const int grey = (75 * c.green + 38 * c.red + 14 * c.blue) >> 7;
  return grey > 40 ? grey - 40 : 0;
}

int dithered_level(int value, int levels, int t) {
  return (value * (levels - 1) + t) / 255;
}

int square(int v) {
  return v * v;
}

}  // namespace

void RowReducer::choose(const HeaderBlock& source) {
  const std::int32_t target = settings().decomp_reduction;
  bits_ = lowers(target, source.header.biBitCount) ? target : 0;
  plain_thresholds_ = settings().dither_mode == 2;
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

std::span<const std::uint8_t> RowReducer::reduce(std::span<const std::uint8_t> row,
                                                 std::int32_t y) {
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

void RowReducer::reduce_to_8(std::int32_t y) {
  for (std::int32_t x = 0; x < source_.width; ++x) {
    const Rgb c = colours_[x];
    const int t = threshold(x, y);
    reduced_[x] = plain_thresholds_ ? nearest(c)
                                    : static_cast<std::uint8_t>(dithered_level(c.red, 8, t) << 5 |
                                                                dithered_level(c.green, 8, t) << 2 |
                                                                dithered_level(c.blue, 4, t));
  }
}

void RowReducer::reduce_to_4(std::int32_t y) {
  for (std::int32_t x = 0; x < source_.width; ++x) {
    const Rgb c = colours_[x];
    const int t = plain_thresholds_ ? 180 : threshold(x, y);
    const bool full =
        plain_thresholds_ ? std::max({c.blue, c.green, c.red}) > 220 : intensity(c) > t + 40;
    const int index =
        (full ? 8 : 0) | (c.blue > t ? 4 : 0) | (c.green > t ? 2 : 0) | (c.red > t ? 1 : 0);
    reduced_[x / 2] |= static_cast<std::uint8_t>(x % 2 == 0 ? index << 4 : index);
  }
}

void RowReducer::reduce_to_1(std::int32_t y) {
  for (std::int32_t x = 0; x < source_.width; ++x) {
    const int t = plain_thresholds_ ? 127 : threshold(x, y);
    if (luma(colours_[x]) > t) reduced_[x / 8] |= static_cast<std::uint8_t>(0x80 >> (x % 8));
  }
}

// The palette entry with the least distance of halved components, the lowest of equal ones.
std::uint8_t RowReducer::nearest(Rgb colour) {
  const std::uint32_t key = static_cast<std::uint32_t>(colour.red) << 16 |
                            static_cast<std::uint32_t>(colour.green) << 8 | colour.blue | kInUse;
  CachedColour& cached = cache_[(key * 0x9E3779B1u) >> 20];
  if (cached.key == key) return cached.index;
  int best = INT32_MAX;
  std::uint8_t found = 0;
  for (int i = 0; i < 256; ++i) {
    const Rgb entry = palette()[i];
    const int distance = square((colour.red >> 1) - (entry.red >> 1)) +
                         square((colour.green >> 1) - (entry.green >> 1)) +
                         square((colour.blue >> 1) - (entry.blue >> 1));
    if (distance < best) {
      best = distance;
      found = static_cast<std::uint8_t>(i);
    }
  }
  cached = {key, found};
  return found;
}

}  // namespace tq::dispatch
