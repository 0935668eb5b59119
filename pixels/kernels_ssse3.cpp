// Row kernels in registers of 128 bits, up to 16 pixels at a time; the rest of a row goes to the
// portable ones.
#if defined(__i386__) || defined(__x86_64__)

#include "core/numbers.h"
#include "pixels/kernels.h"
#include "platform/x86/simd128.h"

namespace tq::pixels {
namespace {

using namespace simd;

constexpr std::uint8_t kNothing = 0x80;  // shuffled to 0

// Four pixels, of 16 bytes that begin with them, to blue, green, red, 0.
TQ_SIMD Vector four_pixels(const std::uint8_t* bgr) {
  alignas(16) static constexpr std::uint8_t kOrder[16] = {0, 1, 2, 128, 3, 4,  5,  128,
                                                          6, 7, 8, 128, 9, 10, 11, 128};
  return shuffle8(load(bgr), load(kOrder));
}

// Loading four pixels reads four bytes of the next two as well.
constexpr int kReadAhead = 2;

TQ_KERNEL void widen_24(const std::uint8_t* bgr, Rgb* colours, int width) {
  int x = 0;
  for (; x + 4 + kReadAhead <= width; x += 4) store(colours + x, four_pixels(bgr + 3 * x));
  kPortableKernels.widen_24(bgr + 3 * x, colours + x, width - x);
}

// Five pixels; the byte behind them is read, and written before the next pixel is.
TQ_KERNEL void swap_24(const std::uint8_t* bgr, std::uint8_t* rgb, int width) {
  alignas(16) static constexpr std::uint8_t kOrder[16] = {2, 1,  0,  5, 4,  3,  8,  7,
                                                          6, 11, 10, 9, 14, 13, 12, 128};
  const Vector order = load(kOrder);
  int x = 0;
  for (; x + 5 < width; x += 5) store(rgb + 3 * x, shuffle8(load(bgr + 3 * x), order));
  kPortableKernels.swap_24(bgr + 3 * x, rgb + 3 * x, width - x);
}

// Five pixels; the byte before them is read, and the one behind is written before its pixel is.
TQ_KERNEL void mirror_24(const std::uint8_t* from, std::uint8_t* to, int width) {
  alignas(16) static constexpr std::uint8_t kOrder[16] = {13, 14, 15, 10, 11, 12, 7, 8,
                                                          9,  4,  5,  6,  1,  2,  3, 128};
  const Vector order = load(kOrder);
  int left = width;
  for (; left > 5; left -= 5, to += 15) store(to, shuffle8(load(from + 3 * left - 16), order));
  kPortableKernels.mirror_24(from, to, left);
}

// Pixels of sixteen bytes the other way round, but for the last `gap` bits, in whose place come those of the byte
// before.
TQ_SIMD Vector sixteen_mirrored(const std::uint8_t* from, int gap, Vector low, Vector high) {
  const Vector halves = all8(15), before = shift_left_by16(load(from - 1), 8 - gap);
  const Vector upper = shift_right_by16(load(from), gap);
  const Vector bytes = (upper & all8(0xFF >> gap)) | (before & all8(0xFF00 >> gap));
  const Vector turned =
      shuffle8(low, bytes & halves) | shuffle8(high, shift_right_unsigned16<4>(bytes) & halves);
  alignas(16) static constexpr std::uint8_t kBackwards[16] = {15, 14, 13, 12, 11, 10, 9, 8,
                                                              7,  6,  5,  4,  3,  2,  1, 0};
  return shuffle8(turned, load(kBackwards));
}

// What halves of bytes become in the other half: four pixels turned round, or one as it is.
TQ_KERNEL void mirror_part_bytes(const std::uint8_t* from, std::int64_t width, int bits,
                                 std::uint8_t* to) {
  alignas(16) static constexpr std::uint8_t kHalves[2][16] = {
      {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15},
      {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
  const Vector high = load(kHalves[bits / 4]), low = shift_left16<4>(high);
  auto left = static_cast<std::ptrdiff_t>((width * bits + 7) / 8);
  const int gap = static_cast<int>(8 * left - width * bits);
  for (; left > 16; left -= 16, to += 16) {
    store(to, sixteen_mirrored(from + left - 16, gap, low, high));
  }
  kPortableKernels.mirror_part_bytes(from, (8 * left - gap) / bits, bits, to);
}

TQ_KERNEL void widen_24_reversed(const std::uint8_t* bgr, std::uint8_t* out, int width) {
  alignas(16) static constexpr std::uint8_t kOrder[16] = {128, 2, 1, 0, 128, 5,  4,  3,
                                                          128, 8, 7, 6, 128, 11, 10, 9};
  const Vector order = load(kOrder);
  int x = 0;
  for (; x + 4 + kReadAhead <= width; x += 4) {
    store(out + 4 * x, shuffle8(load(bgr + 3 * x), order));
  }
  kPortableKernels.widen_24_reversed(bgr + 3 * x, out + 4 * x, width - x);
}

// Shuffles between three planes of 16 bytes and 48 bytes of pixels.
struct PlaneOrders {
  alignas(16) std::uint8_t to_pixels[3][3][16];  // third of the pixels, plane
  alignas(16) std::uint8_t to_plane[3][3][16];   // plane, third of the pixels
};
constexpr PlaneOrders kOrders = [] {
  PlaneOrders orders{};
  for (int third = 0; third < 3; ++third) {
    for (int plane = 0; plane < 3; ++plane) {
      for (int i = 0; i < 16; ++i) {
        const int at = 16 * third + i;  // of the pixels' bytes
        orders.to_pixels[third][plane][i] = at % 3 == plane ? byte(at / 3) : kNothing;
        const int wanted = 3 * i + plane - 16 * third;
        orders.to_plane[plane][third][i] = wanted >= 0 && wanted < 16 ? byte(wanted) : kNothing;
      }
    }
  }
  return orders;
}();

TQ_SIMD Vector gathered(Vector a, Vector b, Vector c, const std::uint8_t (&orders)[3][16]) {
  return shuffle8(a, load(orders[0])) | shuffle8(b, load(orders[1])) | shuffle8(c, load(orders[2]));
}

TQ_KERNEL void merge_planes(const std::uint8_t* blue, const std::uint8_t* green,
                            const std::uint8_t* red, std::uint8_t* bgr, int width) {
  int x = 0;
  for (; x + 16 <= width; x += 16, bgr += 48) {
    const Vector b = load(blue + x), g = load(green + x), r = load(red + x);
    for (int third = 0; third < 3; ++third) {
      store(bgr + 16 * third, gathered(b, g, r, kOrders.to_pixels[third]));
    }
  }
  kPortableKernels.merge_planes(blue + x, green + x, red + x, bgr, width - x);
}

TQ_KERNEL void split_planes(const std::uint8_t* bgr, std::uint8_t* blue, std::uint8_t* green,
                            std::uint8_t* red, int width) {
  int x = 0;
  for (; x + 16 <= width; x += 16, bgr += 48) {
    const Vector a = load(bgr), b = load(bgr + 16), c = load(bgr + 32);
    store(blue + x, gathered(a, b, c, kOrders.to_plane[0]));
    store(green + x, gathered(a, b, c, kOrders.to_plane[1]));
    store(red + x, gathered(a, b, c, kOrders.to_plane[2]));
  }
  kPortableKernels.split_planes(bgr, blue + x, green + x, red + x, width - x);
}

// Weighted sums of eight pixels; no sum exceeds 15 bits.
TQ_SIMD Vector eight_sums(const std::uint8_t* bgr, Vector weights) {
  return add_neighbours16(multiply_add8(four_pixels(bgr), weights),
                          multiply_add8(four_pixels(bgr + 12), weights));
}

TQ_SIMD Vector weights_of(int blue, int green, int red) {
  return all32(red << 16 | green << 8 | blue);
}

TQ_KERNEL void brightness_24(const std::uint8_t* bgr, std::uint8_t* grey, int width) {
  const Vector weights = weights_of(14, 75, 38);
  int x = 0;
  for (; x + 16 + kReadAhead <= width; x += 16, bgr += 48) {
    const Vector low = shift_right_unsigned16<7>(eight_sums(bgr, weights));
    const Vector high = shift_right_unsigned16<7>(eight_sums(bgr + 24, weights));
    store(grey + x, pack_unsigned16(low, high));
  }
  kPortableKernels.brightness_24(bgr, grey + x, width - x);
}

TQ_KERNEL void luma_24(const std::uint8_t* bgr, std::uint8_t* grey, int width) {
  const Vector weights = weights_of(11, 59, 30);
  const Vector hundredth = all16(5243);  // of 2^19; exact for all sums
  int x = 0;
  for (; x + 16 + kReadAhead <= width; x += 16, bgr += 48) {
    const Vector low = multiply_high_unsigned16(eight_sums(bgr, weights), hundredth);
    const Vector high = multiply_high_unsigned16(eight_sums(bgr + 24, weights), hundredth);
    store(grey + x,
          pack_unsigned16(shift_right_unsigned16<3>(low), shift_right_unsigned16<3>(high)));
  }
  kPortableKernels.luma_24(bgr, grey + x, width - x);
}

// The channels of sixteen colours.
struct Channels {
  Vector blue, green, red;
};

TQ_SIMD Channels channels_of(const Rgb* colours) {
  alignas(16) static constexpr std::uint8_t kOrder[16] = {0, 4, 8,  12, 1, 5, 9,  13,
                                                          2, 6, 10, 14, 3, 7, 11, 15};
  Vector four[4];
  for (int i = 0; i < 4; ++i) four[i] = shuffle8(load(colours + 4 * i), load(kOrder));
  const Vector low = interleave_low32(four[0], four[1]), high = interleave_low32(four[2], four[3]);
  return {
      interleave_low64(low, high), interleave_high64(low, high),
      interleave_low64(interleave_high32(four[0], four[1]), interleave_high32(four[2], four[3]))};
}

TQ_SIMD Vector eight_sums(const Rgb* colours, Vector weights) {
  return add_neighbours16(multiply_add8(load(colours), weights),
                          multiply_add8(load(colours + 4), weights));
}

TQ_SIMD Vector twice(const std::uint8_t (&limits)[8]) {
  const Vector eight = load64(limits);
  return interleave_low64(eight, eight);
}

// Of values in 16 bits, by thresholds. The quotient by 255.
template <int kSteps>
TQ_SIMD Vector dithered_levels(Vector values, Vector thresholds) {
  const Vector dividend = add16(multiply_low16(values, all16(kSteps)), thresholds);
  const Vector rounded = add16(add16(dividend, all16(1)), shift_right_unsigned16<8>(dividend));
  return shift_right_unsigned16<8>(rounded);
}

TQ_SIMD Vector eight_indices(Vector blue, Vector green, Vector red, Vector thresholds) {
  return shift_left16<5>(dithered_levels<7>(red, thresholds)) |
         shift_left16<2>(dithered_levels<7>(green, thresholds)) |
         dithered_levels<3>(blue, thresholds);
}

TQ_KERNEL void order_to_8(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out,
                          int width) {
  const Vector zero{}, thresholds = interleave_low8(load64(limits.channel), zero);
  int x = 0;
  for (; x + 16 <= width; x += 16) {
    const Channels c = channels_of(colours + x);
    const Vector low = eight_indices(interleave_low8(c.blue, zero), interleave_low8(c.green, zero),
                                     interleave_low8(c.red, zero), thresholds);
    const Vector high =
        eight_indices(interleave_high8(c.blue, zero), interleave_high8(c.green, zero),
                      interleave_high8(c.red, zero), thresholds);
    store(out + x, pack_unsigned16(low, high));
  }
  kPortableKernels.order_to_8(colours + x, limits, out + x, width - x);
}

// All bits where a level is not above its limit.
TQ_SIMD Vector off(Vector levels, Vector limits) {
  return equal8(subtract_saturated8(levels, limits), Vector{});
}

TQ_KERNEL void order_to_4(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out,
                          int width) {
  const Vector channel = twice(limits.channel), full = twice(limits.full);
  const Vector weights = weights_of(14, 75, 38);
  int x = 0;
  for (; x + 16 <= width; x += 16) {
    const Channels c = channels_of(colours + x);
    const Vector grey =
        pack_unsigned16(shift_right_unsigned16<7>(eight_sums(colours + x, weights)),
                        shift_right_unsigned16<7>(eight_sums(colours + x + 8, weights)));
    const Vector not_on = (off(grey, full) & all8(8)) | (off(c.blue, channel) & all8(4)) |
                          (off(c.green, channel) & all8(2)) | (off(c.red, channel) & all8(1));
    const Vector pairs = multiply_add8(not_on ^ all8(15), all16(1 << 8 | 16));
    store64(out + x / 2, pack_unsigned16(pairs, pairs));
  }
  kPortableKernels.order_to_4(colours + x, limits, out + x / 2, width - x);
}

TQ_KERNEL void order_to_1(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out,
                          int width) {
  // The leftmost pixel is the top bit, but the lowest of a mask.
  alignas(16) static constexpr std::uint8_t kTurned[16] = {7,  6,  5,  4,  3,  2,  1, 0,
                                                           15, 14, 13, 12, 11, 10, 9, 8};
  const Vector weights = weights_of(11, 59, 30);
  const Vector most_black = add16(
      multiply_low16(interleave_low8(load64(limits.channel), Vector{}), all16(100)), all16(99));
  int x = 0;
  for (; x + 16 <= width; x += 16, out += 2) {
    const Vector white = pack16(greater16(eight_sums(colours + x, weights), most_black),
                                greater16(eight_sums(colours + x + 8, weights), most_black));
    const std::uint32_t mask = top_bits8(shuffle8(white, load(kTurned)));
    out[0] = byte(mask);
    out[1] = byte(mask >> 8);
  }
  kPortableKernels.order_to_1(colours + x, limits, out, width - x);
}

}  // namespace

void add_ssse3_kernels(Kernels& kernels) {
  kernels = {.widen_24 = widen_24,
             .swap_24 = swap_24,
             .mirror_24 = mirror_24,
             .mirror_part_bytes = mirror_part_bytes,
             .widen_24_reversed = widen_24_reversed,
             .merge_planes = merge_planes,
             .split_planes = split_planes,
             .brightness_24 = brightness_24,
             .luma_24 = luma_24,
             .order_to_8 = order_to_8,
             .order_to_4 = order_to_4,
             .order_to_1 = order_to_1};
}

}  // namespace tq::pixels

#endif
