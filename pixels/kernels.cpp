// The portable row kernels, and the choice.
#include "pixels/kernels.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::pixels {
namespace {

void widen_24(const std::uint8_t* bgr, Rgb* colours, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) colours[x] = {bgr[0], bgr[1], bgr[2], 0};
}

void swap_24(const std::uint8_t* bgr, std::uint8_t* rgb, int width) {
  for (int x = 0; x < width; ++x, bgr += 3, rgb += 3) {
    rgb[0] = bgr[2];
    rgb[1] = bgr[1];
    rgb[2] = bgr[0];
  }
}

void mirror_24(const std::uint8_t* from, std::uint8_t* to, int width) {
  from += std::ptrdiff_t{3} * width;
  for (int x = 0; x < width; ++x, to += 3) std::memcpy(to, from -= 3, 3);
}

std::uint64_t load_le(const std::uint8_t* from) {
  static_assert(std::endian::native == std::endian::little);
  std::uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// The pixels of each byte the other way round.
std::uint64_t mirror_bytes(std::uint64_t bytes, int bits) {
  constexpr std::uint64_t kNibbles = 0x0F0F0F0F0F0F0F0F, kPairs = 0x3333333333333333,
                          kSingles = 0x5555555555555555;
  bytes = (bytes & kNibbles) << 4 | (bytes >> 4 & kNibbles);
  if (bits == 4) return bytes;
  bytes = (bytes & kPairs) << 2 | (bytes >> 2 & kPairs);
  return (bytes & kSingles) << 1 | (bytes >> 1 & kSingles);
}

// Eight bytes at a time from the end of `from`, the last of them highest; what it does not have
// is 0. The padding comes first and is shifted out.
void mirror_part_bytes(const std::uint8_t* from, std::int64_t width, int bits, std::uint8_t* to) {
  const auto size = static_cast<std::ptrdiff_t>((width * bits + 7) / 8);
  const int gap = static_cast<int>(8 * size - width * bits);
  const auto taken = [&](std::ptrdiff_t end) {
    if (end >= 8) return mirror_bytes(load_le(from + end - 8), bits);
    std::uint8_t first[8] = {};
    if (end > 0) std::memcpy(first + 8 - end, from, static_cast<std::size_t>(end));
    return mirror_bytes(load_le(first), bits);
  };
  std::uint64_t word = taken(size);
  for (std::ptrdiff_t at = 0; at < size; at += 8) {
    const std::uint64_t next = taken(size - at - 8);
    const std::uint64_t joined = gap == 0 ? word : word << gap | next >> (64 - gap);
    const std::uint64_t stored = __builtin_bswap64(joined);
    std::memcpy(to + at, &stored, static_cast<std::size_t>(std::min<std::ptrdiff_t>(8, size - at)));
    word = next;
  }
}

void widen_24_reversed(const std::uint8_t* bgr, std::uint8_t* out, int width) {
  for (int x = 0; x < width; ++x, bgr += 3, out += 4) {
    out[0] = 0;
    out[1] = bgr[2];
    out[2] = bgr[1];
    out[3] = bgr[0];
  }
}

void merge_planes(const std::uint8_t* blue, const std::uint8_t* green, const std::uint8_t* red,
                  std::uint8_t* bgr, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) {
    bgr[0] = blue[x];
    bgr[1] = green[x];
    bgr[2] = red[x];
  }
}

void split_planes(const std::uint8_t* bgr, std::uint8_t* blue, std::uint8_t* green,
                  std::uint8_t* red, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) {
    blue[x] = bgr[0];
    green[x] = bgr[1];
    red[x] = bgr[2];
  }
}

template <int (*kGrey)(Rgb)>
void weigh_24(const std::uint8_t* bgr, std::uint8_t* grey, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) grey[x] = byte(kGrey({bgr[0], bgr[1], bgr[2], 0}));
}

// By the threshold `t`. The quotient by 255, as it is below 65535.
constexpr int dithered_level(int value, int levels, int t) {
  const int dividend = value * (levels - 1) + t;
  return (dividend + 1 + (dividend >> 8)) >> 8;
}

void order_to_8(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out, int width) {
  for (int x = 0; x < width; ++x) {
    const Rgb c = colours[x];
    const int t = limits.channel[x & 7];
    out[x] = byte(dithered_level(c.red, 8, t) << 5 | dithered_level(c.green, 8, t) << 2 |
                  dithered_level(c.blue, 4, t));
  }
}

void order_to_4(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out, int width) {
  pack_nibbles(out, width, [&](int x) {
    const Rgb c = colours[x];
    const int t = limits.channel[x & 7];
    return sixteen_index(brightness(c) > limits.full[x & 7], c.blue > t, c.green > t, c.red > t);
  });
}

void order_to_1(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out, int width) {
  for (int x = 0; x < width; x += 8) {
    int white = 0;
    for (int i = 0; i < std::min(width - x, 8); ++i) {
      white |= (weighted(colours[x + i]) >= 100 * (limits.channel[i] + 1)) << (7 - i);
    }
    *out++ = byte(white);
  }
}

}  // namespace

OrderedLimits ordered_limits(int y, int darker_by) {
  OrderedLimits limits;
  for (int x = 0; x < 8; ++x) {
    limits.channel[x] = kDispersedDots[x][y & 7];
    limits.full[x] = byte(std::min(limits.channel[x] + 40 + darker_by, 255));
  }
  return limits;
}

constexpr Kernels kPortableKernels{.widen_24 = widen_24,
                                   .swap_24 = swap_24,
                                   .mirror_24 = mirror_24,
                                   .mirror_part_bytes = mirror_part_bytes,
                                   .widen_24_reversed = widen_24_reversed,
                                   .merge_planes = merge_planes,
                                   .split_planes = split_planes,
                                   .brightness_24 = weigh_24<brightness>,
                                   .luma_24 = weigh_24<luma>,
                                   .order_to_8 = order_to_8,
                                   .order_to_4 = order_to_4,
                                   .order_to_1 = order_to_1};

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  Kernels kernels = kPortableKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (features.ssse3) add_ssse3_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::pixels
