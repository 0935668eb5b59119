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

// Weights of a bell on values that lie symmetrically: sums of the two that are equally far away, two
// products at a time, of the middle and the first pair, then of two pairs.
struct Sums {
  Vector low, high;  // as the halves of lanes interleave

  TQ_SIMD void add(Vector near, Vector far, Vector factors) {
    low = add32(low, multiply_add16(interleave_low16(near, far), factors));
    high = add32(high, multiply_add16(interleave_high16(near, far), factors));
  }
};

TQ_SIMD Vector two_weights(const std::int16_t* weights) {
  std::int32_t both;
  std::memcpy(&both, weights, sizeof both);
  return all32(both);
}

// Sixteen values as 16 bits each.
TQ_SIMD Vector widened(const std::uint8_t* from) {
  return load_widened(from);
}
TQ_SIMD Vector widened(const std::int16_t* from) {
  return load(from);
}
template <class Value>
TQ_SIMD Vector both_of(const Value* a, const Value* b) {
  return add16(widened(a), widened(b));
}

constexpr int kHalf = 8 * kLanes;

// The sums of 32 values side by side; of what is added to them the places of the first are given.
template <class Value>
struct Weighted {
  Sums first, last;

  TQ_SIMD Weighted(int rounding)
      : first{all32(rounding), all32(rounding)}, last{all32(rounding), all32(rounding)} {}
  TQ_SIMD void add_middle(const Value* at, const Value* a, const Value* b, Vector factors) {
    first.add(widened(at), both_of(a, b), factors);
    last.add(widened(at + kHalf), both_of(a + kHalf, b + kHalf), factors);
  }
  TQ_SIMD void add_two(const Value* a, const Value* b, const Value* c, const Value* d,
                       Vector factors) {
    first.add(both_of(a, b), both_of(c, d), factors);
    last.add(both_of(a + kHalf, b + kHalf), both_of(c + kHalf, d + kHalf), factors);
  }
  TQ_SIMD void add_last(const Value* a, const Value* b, Vector factors) {
    first.add(both_of(a, b), Vector{}, factors);
    last.add(both_of(a + kHalf, b + kHalf), Vector{}, factors);
  }
};

TQ_KERNEL void smooth_along(const std::uint8_t* from, int size, const std::int16_t* weights,
                            int radius, std::int16_t* to, std::ptrdiff_t count) {
  std::ptrdiff_t i = 0;
  for (; i + 2 * kHalf <= count; i += 2 * kHalf) {
    const std::uint8_t *left = from + i - size, *right = from + i + size;
    Weighted<std::uint8_t> sums(128);
    sums.add_middle(from + i, left, right, two_weights(weights));
    int k = 2;
    for (; k < radius; k += 2) {
      left -= 2 * std::ptrdiff_t{size};
      right += 2 * std::ptrdiff_t{size};
      sums.add_two(left + size, right - size, left, right, two_weights(weights + k));
    }
    if (k == radius) sums.add_last(left - size, right + size, two_weights(weights + k));
    store(to + i, pack32(shift_right32<8>(sums.first.low), shift_right32<8>(sums.first.high)));
    store(to + i + kHalf,
          pack32(shift_right32<8>(sums.last.low), shift_right32<8>(sums.last.high)));
  }
  kPortableToneKernels.smooth_along(from + i, size, weights, radius, to + i, count - i);
}

TQ_KERNEL void smooth_down(const std::int16_t* const* rows, std::ptrdiff_t first,
                           const std::int16_t* weights, int radius, std::uint8_t* to,
                           std::ptrdiff_t count) {
  std::ptrdiff_t i = 0;
  for (; i + 2 * kHalf <= count; i += 2 * kHalf) {
    const std::ptrdiff_t at = first + i;
    Weighted<std::int16_t> sums(1 << 19);
    sums.add_middle(rows[0] + at, rows[-1] + at, rows[1] + at, two_weights(weights));
    int k = 2;
    for (; k < radius; k += 2) {
      sums.add_two(rows[-k] + at, rows[k] + at, rows[-k - 1] + at, rows[k + 1] + at,
                   two_weights(weights + k));
    }
    if (k == radius) sums.add_last(rows[-k] + at, rows[k] + at, two_weights(weights + k));
    const Vector low =
        pack32(shift_right32<20>(sums.first.low), shift_right32<20>(sums.first.high));
    const Vector high = pack32(shift_right32<20>(sums.last.low), shift_right32<20>(sums.last.high));
    store(to + i, in_sequence(pack_unsigned16(low, high)));
  }
  kPortableToneKernels.smooth_down(rows, first + i, weights, radius, to + i, count - i);
}

TQ_KERNEL void sharpen(const std::uint8_t* from, int amount, std::uint8_t* smooth,
                       std::ptrdiff_t count) {
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
