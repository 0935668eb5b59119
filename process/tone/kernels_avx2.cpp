// Row kernels in registers of 256 bits. They leave the rest of a row to the portable ones.
#if defined(__i386__) || defined(__x86_64__)

#include "platform/x86/simd256.h"
#include "process/tone/kernels.h"

namespace tq::process {
namespace {

using namespace simd;

// A table of 256 bytes as 16 shuffles. Each takes what differs between its 16 bytes and those of the
// one before, for all places from its first on: places below are negative, which gives 0. Places are
// numbers with a sign, so that the table has two halves.
TQ_KERNEL void map_bytes(const std::uint8_t* from, const std::uint8_t* table, std::uint8_t* to,
                         std::ptrdiff_t count) {
  constexpr int kWidth = 16 * kLanes, kParts = 8;  // of a half
  std::uint8_t changes[2 * kParts * 16];
  for (int half = 0; half < 256; half += 128) {
    for (int i = 0; i < 128; ++i) {
      const int before = i < 16 ? 0 : table[half + i - 16];
      changes[half + i] = static_cast<std::uint8_t>(table[half + i] ^ before);
    }
  }
  const auto mapped = [&](Vector x) __attribute__((target("avx2"))) {
    Vector low = x, high = x ^ all8(0x80), result{};
    TQ_UNROLLED
    for (int part = 0; part < kParts; ++part) {
      result ^= shuffle8(load_repeated(changes + 16 * part), low);
      result ^= shuffle8(load_repeated(changes + 128 + 16 * part), high);
      low = subtract_signed8(low, all8(16));
      high = subtract_signed8(high, all8(16));
    }
    return result;
  };
  std::ptrdiff_t i = 0;
  for (; i + kWidth <= count; i += kWidth) store(to + i, mapped(load(from + i)));
  kPortableToneKernels.map_bytes(from + i, table, to + i, count - i);
}

// Weights of a bell on values that lie symmetrically: two products at a time, of the middle and the
// first pair, then of two pairs. `pair(k)` is the sum of the values k away, of 0 the middle alone.
struct Sums {
  Vector low, high;  // as the halves of lanes interleave
};
template <class Pair>
TQ_SIMD Sums weighted(Pair pair, const std::int16_t* weights, int radius, int rounding) {
  Sums sums{all32(rounding), all32(rounding)};
  for (int k = 0; k <= radius; k += 2) {
    std::int32_t both;
    std::memcpy(&both, weights + k, sizeof both);
    const Vector a = pair(k), b = pair(k + 1), factors = all32(both);
    sums.low = add32(sums.low, multiply_add16(interleave_low16(a, b), factors));
    sums.high = add32(sums.high, multiply_add16(interleave_high16(a, b), factors));
  }
  return sums;
}

TQ_KERNEL void smooth_along(const std::uint8_t* from, int size, const std::int16_t* weights,
                            int radius, std::int16_t* to, std::ptrdiff_t count) {
  constexpr int kWidth = 8 * kLanes;
  std::ptrdiff_t i = 0;
  for (; i + kWidth <= count; i += kWidth) {
    const std::uint8_t* const at = from + i;
    const auto pair = [ at, size, radius ](std::ptrdiff_t k) __attribute__((target("avx2"))) {
      if (k == 0) return load_widened(at);
      if (k > radius) return Vector{};
      return add16(load_widened(at - k * size), load_widened(at + k * size));
    };
    const Sums sums = weighted(pair, weights, radius, 128);
    store(to + i, pack32(shift_right32<8>(sums.low), shift_right32<8>(sums.high)));
  }
  kPortableToneKernels.smooth_along(from + i, size, weights, radius, to + i, count - i);
}

TQ_SIMD Vector sixteen_down(const std::int16_t* const* rows, std::ptrdiff_t i,
                            const std::int16_t* weights, int radius) {
  const auto pair = [ rows, i, radius ](int k) __attribute__((target("avx2"))) {
    if (k == 0) return load(rows[0] + i);
    if (k > radius) return Vector{};
    return add16(load(rows[-k] + i), load(rows[k] + i));
  };
  const Sums sums = weighted(pair, weights, radius, 1 << 19);
  return pack32(shift_right32<20>(sums.low), shift_right32<20>(sums.high));
}

TQ_KERNEL void smooth_down(const std::int16_t* const* rows, std::ptrdiff_t first,
                           const std::int16_t* weights, int radius, std::uint8_t* to,
                           std::ptrdiff_t count) {
  constexpr int kHalf = 8 * kLanes;
  std::ptrdiff_t i = 0;
  for (; i + 2 * kHalf <= count; i += 2 * kHalf) {
    const Vector low = sixteen_down(rows, first + i, weights, radius);
    const Vector high = sixteen_down(rows, first + i + kHalf, weights, radius);
    store(to + i, in_sequence(pack_unsigned16(low, high)));
  }
  kPortableToneKernels.smooth_down(rows, first + i, weights, radius, to + i, count - i);
}

TQ_KERNEL void sharpen(const std::uint8_t* from, int amount, std::uint8_t* smooth,
                       std::ptrdiff_t count) {
  constexpr int kHalf = 8 * kLanes;
  const Vector factors = all32(amount | 1 << (kSharpenBits - 1) << 16), one = all16(1);
  const auto half = [&](std::ptrdiff_t i) __attribute__((target("avx2"))) {
    const Vector level = load_widened(from + i);
    const Vector lack = subtract16(level, load_widened(smooth + i));
    const Vector low = multiply_add16(interleave_low16(lack, one), factors);
    const Vector high = multiply_add16(interleave_high16(lack, one), factors);
    return add16(level,
                 pack32(shift_right32<kSharpenBits>(low), shift_right32<kSharpenBits>(high)));
  };
  std::ptrdiff_t i = 0;
  for (; i + 2 * kHalf <= count; i += 2 * kHalf) {
    store(smooth + i, in_sequence(pack_unsigned16(half(i), half(i + kHalf))));
  }
  kPortableToneKernels.sharpen(from + i, amount, smooth + i, count - i);
}

TQ_SIMD Vector one_two_one(const std::uint8_t* a, const std::uint8_t* b, const std::uint8_t* c) {
  return add16(add16(load_widened(a), load_widened(c)), shift_left16<1>(load_widened(b)));
}

TQ_SIMD Vector sixteen_edges(const std::uint8_t* above, const std::uint8_t* at,
                             const std::uint8_t* below, std::ptrdiff_t size) {
  const Vector right = subtract16(one_two_one(above + size, at + size, below + size),
                                  one_two_one(above - size, at - size, below - size));
  const Vector down = subtract16(one_two_one(below - size, below, below + size),
                                 one_two_one(above - size, above, above + size));
  return max16(abs16(right), abs16(down));
}

TQ_KERNEL void find_edges(const std::uint8_t* const* rows, int size, std::uint8_t* to,
                          std::ptrdiff_t count) {
  constexpr int kHalf = 8 * kLanes;
  const std::uint8_t *above = rows[0], *at = rows[1], *below = rows[2];
  std::ptrdiff_t i = 0;
  for (; i + 2 * kHalf <= count; i += 2 * kHalf) {
    const Vector first = sixteen_edges(above + i, at + i, below + i, size);
    const Vector last = sixteen_edges(above + i + kHalf, at + i + kHalf, below + i + kHalf, size);
    store(to + i, in_sequence(pack_unsigned16(first, last)));
  }
  const std::uint8_t* const rest[] = {above + i, at + i, below + i};
  kPortableToneKernels.find_edges(rest, size, to + i, count - i);
}

TQ_SIMD Vector middle(Vector a, Vector b, Vector c) {
  return max8(min8(a, b), min8(max8(a, b), c));
}

TQ_KERNEL void median_of_nine(const std::uint8_t* const* rows, int size, std::uint8_t* to,
                              std::ptrdiff_t count) {
  constexpr int kWidth = 16 * kLanes;
  std::ptrdiff_t i = 0;
  for (; i + kWidth <= count; i += kWidth) {
    Vector least[3], mid[3], most[3];
    TQ_UNROLLED
    for (int k = 0; k < 3; ++k) {
      const std::ptrdiff_t at = i + (k - 1) * std::ptrdiff_t{size};
      const Vector a = load(rows[0] + at), b = load(rows[1] + at), c = load(rows[2] + at);
      const Vector low = min8(a, b), high = max8(a, b), inner = min8(high, c);
      least[k] = min8(low, c);
      most[k] = max8(high, c);
      mid[k] = max8(low, inner);
    }
    const Vector low = max8(max8(least[0], least[1]), least[2]);
    const Vector high = min8(min8(most[0], most[1]), most[2]);
    store(to + i, middle(low, middle(mid[0], mid[1], mid[2]), high));
  }
  const std::uint8_t* const rest[] = {rows[0] + i, rows[1] + i, rows[2] + i};
  kPortableToneKernels.median_of_nine(rest, size, to + i, count - i);
}

template <Vector (*kExtreme)(Vector, Vector)>
TQ_SIMD std::ptrdiff_t take_extremes(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* to,
                                     std::ptrdiff_t count) {
  constexpr int kWidth = 16 * kLanes;
  std::ptrdiff_t i = 0;
  for (; i + kWidth <= count; i += kWidth) store(to + i, kExtreme(load(a + i), load(b + i)));
  return i;
}

TQ_KERNEL void lesser(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* to,
                      std::ptrdiff_t count) {
  const std::ptrdiff_t i = take_extremes<min8>(a, b, to, count);
  kPortableToneKernels.lesser(a + i, b + i, to + i, count - i);
}

TQ_KERNEL void greater(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* to,
                       std::ptrdiff_t count) {
  const std::ptrdiff_t i = take_extremes<max8>(a, b, to, count);
  kPortableToneKernels.greater(a + i, b + i, to + i, count - i);
}

}  // namespace

void add_avx2_kernels(ToneKernels& kernels) {
  kernels = {.map_bytes = map_bytes,
             .smooth_along = smooth_along,
             .smooth_down = smooth_down,
             .sharpen = sharpen,
             .find_edges = find_edges,
             .median_of_nine = median_of_nine,
             .lesser = lesser,
             .greater = greater};
}

}  // namespace tq::process

#endif
