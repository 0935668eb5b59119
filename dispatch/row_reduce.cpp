// Ordered dithers and nearest colours against the fixed palettes.
#include "dispatch/row_reduce.h"

#include <algorithm>

#include "core/context.h"
#include "process/grey.h"
#include "process/nearest_colour.h"
#include "process/sixteen_colours.h"

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

int dithered_level(int value, int levels, int t) {
  return (value * (levels - 1) + t) / 255;
}

}  // namespace

void RowReducer::choose(const HeaderBlock& source) {
  const std::int32_t target = context().settings.decomp_reduction;
  bits_ = lowers(target, source.header.biBitCount) ? target : 0;
  plain_thresholds_ = context().settings.dither_mode == 2;
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
  process::pack_nibbles(reduced_.data(), source_.width, [&](std::int32_t x) {
    const Rgb c = colours_.data()[x];
    if (plain_thresholds_) return process::cut_sixteen(c.blue, c.green, c.red);
    return process::ordered_sixteen(c, process::intensity(c), threshold(x, y));
  });
}

void RowReducer::reduce_to_1(std::int32_t y) {
  for (std::int32_t x = 0; x < source_.width; ++x) {
    const int t = plain_thresholds_ ? 127 : threshold(x, y);
    if (process::luma(colours_[x]) > t)
      reduced_[x / 8] |= static_cast<std::uint8_t>(0x80 >> (x % 8));
  }
}

// The palette entry with the least distance of halved components, the lowest of equal ones.
std::uint8_t RowReducer::nearest(Rgb colour) {
  const std::uint32_t key = static_cast<std::uint32_t>(colour.red) << 16 |
                            static_cast<std::uint32_t>(colour.green) << 8 | colour.blue | kInUse;
  CachedColour& cached = cache_[(key * 0x9E3779B1u) >> 20];
  if (cached.key == key) return cached.index;
  cached = {key, process::nearest_colour(colour, fixed_palette(2))};
  return cached.index;
}

}  // namespace tq::dispatch
