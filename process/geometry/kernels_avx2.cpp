// Row kernels in registers of 256 bits. They leave the rest of a row to the portable ones.
#if defined(__i386__) || defined(__x86_64__)

#include <algorithm>

#include "platform/x86/simd256.h"
#include "process/geometry/kernels.h"

namespace tq::process {
namespace {

using namespace simd;

TQ_KERNEL void copy_past(const std::uint8_t* from, std::uint8_t* to, std::ptrdiff_t bytes,
                         std::uint8_t other) {
  constexpr std::ptrdiff_t kStep = 16 * kLanes;
  const Vector others = all8(other);
  const auto beyond = static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(to) % kStep);
  std::ptrdiff_t i = std::min((kStep - beyond) % kStep, bytes);
  kPortableGeometryKernels.copy_past(from, to, i, other);
  for (; i + kStep <= bytes; i += kStep) store_past(to + i, load(from + i) ^ others);
  finish_stores();
  kPortableGeometryKernels.copy_past(from + i, to + i, bytes - i, other);
}

TQ_KERNEL void add_rows(const std::uint8_t* const* rows, int count, std::uint16_t* sums,
                        std::ptrdiff_t samples) {
  constexpr int kHalf = 8 * kLanes;
  std::ptrdiff_t i = 0;
  for (; i + 2 * kHalf <= samples; i += 2 * kHalf) {
    Vector low = load(sums + i), high = load(sums + i + kHalf);
    for (int k = 0; k < count; ++k) {
      low = add16(low, load_widened(rows[k] + i));
      high = add16(high, load_widened(rows[k] + i + kHalf));
    }
    store(sums + i, low);
    store(sums + i + kHalf, high);
  }
  for (int k = 0; k < count; ++k) {
    const std::uint8_t* const rest = rows[k] + i;
    kPortableGeometryKernels.add_rows(&rest, 1, sums + i, samples - i);
  }
}

template <class Value>
TQ_SIMD std::ptrdiff_t add_four_shares(const Value* from, std::uint32_t share, std::uint64_t* sums,
                                       std::ptrdiff_t count) {
  const Vector factor = all64(share);
  std::ptrdiff_t i = 0;
  for (; i + 4 <= count; i += 4) {
    store(sums + i, add64(load(sums + i), multiply_unsigned32(load_as_64(from + i), factor)));
  }
  return i;
}

TQ_KERNEL void add_shares(const std::uint8_t* from, std::uint32_t share, std::uint64_t* sums,
                          std::ptrdiff_t count) {
  const std::ptrdiff_t i = add_four_shares(from, share, sums, count);
  kPortableGeometryKernels.add_shares(from + i, share, sums + i, count - i);
}

TQ_KERNEL void add_shares_16(const std::uint16_t* from, std::uint32_t share, std::uint64_t* sums,
                             std::ptrdiff_t count) {
  const std::ptrdiff_t i = add_four_shares(from, share, sums, count);
  kPortableGeometryKernels.add_shares_16(from + i, share, sums + i, count - i);
}

// What belongs to the same channel of two pixels comes side by side: of 16 bytes, or of 12.
constexpr std::uint8_t kNothing = 0x80;
alignas(16) constexpr std::uint8_t kPairs[3][16] = {
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
    {0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, kNothing, kNothing, kNothing, kNothing},
    {0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15}};

TQ_SIMD const std::uint8_t* pairs_of(int size) {
  return kPairs[size == 1 ? 0 : size - 2];
}

// Two lanes of each row; of 3 channels a lane has 12 bytes and 6 results, and 4 bytes more are read,
// and 2 written.
TQ_KERNEL void halve(const std::uint8_t* upper, const std::uint8_t* lower, int size,
                     std::uint8_t* to, std::ptrdiff_t pixels) {
  const std::ptrdiff_t taken = size == 3 ? 12 : 16, made = taken / 2;
  const std::ptrdiff_t in_lane = made / size;  // pixels
  const Vector order = load_repeated(pairs_of(size)), ones = all8(1), two = all16(2);
  std::ptrdiff_t x = 0;
  for (; x + 2 * in_lane + 1 <= pixels; x += 2 * in_lane) {
    const std::ptrdiff_t at = 2 * x * size;
    const Vector above = shuffle8(load_lanes(upper + at, upper + at + taken), order);
    const Vector below = shuffle8(load_lanes(lower + at, lower + at + taken), order);
    const Vector sums = add16(multiply_add8(above, ones), multiply_add8(below, ones));
    const Vector means = shift_right_unsigned16<2>(add16(sums, two));
    const Vector bytes = pack_unsigned16(means, means);
    store_half<0>(to + x * size, bytes);
    store_half<1>(to + x * size + made, bytes);
  }
  kPortableGeometryKernels.halve(upper + 2 * x * size, lower + 2 * x * size, size, to + x * size,
                                 pixels - x);
}

// A lane for each of two pixels of the result; of 3 or 4 channels four taps at a time. `kSize` - 1
// channels follow the first.
template <int kSize>
TQ_SIMD void two_pixels(const std::uint8_t* first, const std::uint8_t* last,
                        const std::int16_t* first_weights, const std::int16_t* last_weights,
                        int used, std::int16_t* to) {
  // Two taps of each channel as 16 bits.
  alignas(16) static constexpr std::uint8_t kOrders[2][2][16] = {
      {{0, 128, 3, 128, 1, 128, 4, 128, 2, 128, 5, 128, 128, 128, 128, 128},
       {6, 128, 9, 128, 7, 128, 10, 128, 8, 128, 11, 128, 128, 128, 128, 128}},
      {{0, 128, 4, 128, 1, 128, 5, 128, 2, 128, 6, 128, 3, 128, 7, 128},
       {8, 128, 12, 128, 9, 128, 13, 128, 10, 128, 14, 128, 11, 128, 15, 128}}};
  const Vector low = load_repeated(kOrders[kSize - 3][0]);
  const Vector high = load_repeated(kOrders[kSize - 3][1]);
  Vector sums = all32(128);
  for (int k = 0; k < used; k += 4) {
    const Vector pixels = load_lanes(first + kSize * k, last + kSize * k);
    const Vector weights = load_lanes(first_weights + k, last_weights + k);
    sums = add32(sums, multiply_add16(shuffle8(pixels, low), shuffle32<0x00>(weights)));
    sums = add32(sums, multiply_add16(shuffle8(pixels, high), shuffle32<0x55>(weights)));
  }
  const Vector made = shift_right32<8>(sums), both = pack32(made, made);
  store_half<0>(to, both);
  store_half<1>(to + kSize, both);
}

TQ_SIMD void two_levels(const std::uint8_t* first, const std::uint8_t* last,
                        const std::int16_t* first_weights, const std::int16_t* last_weights,
                        int used, std::int16_t* to) {
  Vector sums{};
  for (int k = 0; k < used; k += 8) {
    const Vector levels = interleave_low8(load_lanes(first + k, last + k), Vector{});
    sums = add32(sums, multiply_add16(levels, load_lanes(first_weights + k, last_weights + k)));
  }
  sums = add32(sums, shuffle32<0x4E>(sums));
  sums = add32(add32(sums, shuffle32<0xB1>(sums)), all32(128));
  const Vector made = shift_right32<8>(sums);
  const Vector both = pack32(made, made);
  store_half<0>(to, both);
  store_half<1>(to + 1, both);
}

TQ_KERNEL void weigh_along(const std::uint8_t* from, int size, const ColumnTaps& columns,
                           std::int16_t* to, int width) {
  const std::int16_t* weights = columns.weights;
  int x = 0;
  for (; x + 2 <= width; x += 2, weights += 2 * columns.stride, to += 2 * size) {
    const std::uint8_t* const first = from + std::ptrdiff_t{columns.first[x]} * size;
    const std::uint8_t* const last = from + std::ptrdiff_t{columns.first[x + 1]} * size;
    const std::int16_t* const next = weights + columns.stride;
    if (size == 1) {
      two_levels(first, last, weights, next, columns.used, to);
    } else if (size == 3) {
      two_pixels<3>(first, last, weights, next, columns.used, to);
    } else {
      two_pixels<4>(first, last, weights, next, columns.used, to);
    }
  }
  const ColumnTaps rest{columns.first + x, weights, columns.used, columns.stride};
  kPortableGeometryKernels.weigh_along(from, size, rest, to, width - x);
}

// Two rows at a time, by pairs of weights.
TQ_SIMD Vector sixteen_down(const std::int16_t* const* rows, const std::int32_t* pairs, int count,
                            std::ptrdiff_t i) {
  Vector low = all32(1 << 19), high = low;
  for (int k = 0; k < count; k += 2) {
    const Vector a = load(rows[k] + i), b = k + 1 < count ? load(rows[k + 1] + i) : Vector{};
    const Vector factors = all32(pairs[k / 2]);
    low = add32(low, multiply_add16(interleave_low16(a, b), factors));
    high = add32(high, multiply_add16(interleave_high16(a, b), factors));
  }
  return pack32(shift_right32<20>(low), shift_right32<20>(high));
}

TQ_KERNEL void weigh_down(const std::int16_t* const* rows, const std::int16_t* weights, int count,
                          std::uint8_t* to, std::ptrdiff_t samples) {
  constexpr int kHalf = 8 * kLanes;
  std::int32_t pairs[kMostDown / 2] = {};
  std::memcpy(pairs, weights, sizeof *weights * static_cast<std::size_t>(count));
  std::ptrdiff_t i = 0;
  for (; i + 2 * kHalf <= samples; i += 2 * kHalf) {
    const Vector low = sixteen_down(rows, pairs, count, i);
    const Vector high = sixteen_down(rows, pairs, count, i + kHalf);
    store(to + i, in_sequence(pack_unsigned16(low, high)));
  }
  const std::int16_t* rest[kMostDown];
  for (int k = 0; k < count; ++k) rest[k] = rows[k] + i;
  kPortableGeometryKernels.weigh_down(rest, weights, count, to + i, samples - i);
}

// Lanes are four pixels of rows k and k + 4, each as 32 bits, and then four rows of one column each.
TQ_KERNEL void turn_24(const std::uint8_t* const* rows, int count, int there, std::uint8_t* to,
                       std::ptrdiff_t to_stride) {
  alignas(16) static constexpr std::uint8_t kOpen[16] = {0, 1, 2, 128, 3, 4,  5,  128,
                                                         6, 7, 8, 128, 9, 10, 11, 128};
  // And back, four bytes being nothing.
  alignas(16) static constexpr std::uint8_t kClose[16] = {0,  1,  2,  4,  5,   6,   8,   9,
                                                          10, 12, 13, 14, 128, 128, 128, 128};
  const Vector open = load_repeated(kOpen), close = load_repeated(kClose);
  int i = 0;
  for (; i + 4 <= count && i + 6 <= there; i += 4, to += 4 * to_stride) {
    Vector pixels[4];
    TQ_UNROLLED
    for (int k = 0; k < 4; ++k) {
      pixels[k] = shuffle8(load_lanes(rows[k] + 3 * i, rows[k + 4] + 3 * i), open);
    }
    const Vector a = interleave_low32(pixels[0], pixels[1]);
    const Vector b = interleave_low32(pixels[2], pixels[3]);
    const Vector c = interleave_high32(pixels[0], pixels[1]);
    const Vector d = interleave_high32(pixels[2], pixels[3]);
    const Vector columns[4] = {interleave_low64(a, b), interleave_high64(a, b),
                               interleave_low64(c, d), interleave_high64(c, d)};
    TQ_UNROLLED
    for (int k = 0; k < 4; ++k) {
      const Vector closed = shuffle8(columns[k], close);
      std::uint8_t* const at = to + k * to_stride;
      store_lane<0>(at, closed);
      store_half<1>(at + 12, closed);
      const auto last = static_cast<std::uint32_t>(_mm_extract_epi32(lane<1>(closed), 2));
      std::memcpy(at + 20, &last, sizeof last);
    }
  }
  const std::uint8_t* rest[8];
  for (int k = 0; k < 8; ++k) rest[k] = rows[k] + 3 * i;
  kPortableGeometryKernels.turn_24(rest, count - i, there - i, to, to_stride);
}

// Four places of a walk, and the next four.
struct Steps {
  Vector x, y, x_step, y_step, size, stride, sign;

  // Bytes from the origin.
  TQ_SIMD Vector offsets() const {
    const Vector rows = multiply_unsigned32(shift_right_unsigned64<32>(y), stride);
    return add64(multiply_unsigned32(shift_right_unsigned64<32>(x), size),
                 subtract64(rows ^ sign, sign));
  }
  // In the low bits of 64.
  TQ_SIMD Vector x_fractions() const { return shift_right_unsigned64<24>(x) & all64(255); }
  TQ_SIMD Vector y_fractions() const { return shift_right_unsigned64<24>(y) & all64(255); }
  TQ_SIMD void advance() {
    x = add64(x, x_step);
    y = add64(y, y_step);
  }
};

TQ_SIMD Vector four_places(std::int64_t start, std::int64_t step) {
  const std::int64_t places[] = {start, start + step, start + 2 * step, start + 3 * step};
  return load(places);
}

TQ_SIMD Steps steps_of(const Walk& walk, int size) {
  const bool upwards = walk.stride < 0;
  return {.x = four_places(walk.x, walk.x_step),
          .y = four_places(walk.y, walk.y_step),
          .x_step = all64(4 * walk.x_step),
          .y_step = all64(4 * walk.y_step),
          .size = all64(size),
          .stride = all64(upwards ? -walk.stride : walk.stride),
          .sign = all64(upwards ? -1 : 0)};
}

// Two values without a sign by weights of (256 - f) and f, side by side: halves upwards, by 65536.
TQ_SIMD Vector blended(Vector pairs, Vector weights) {
  constexpr int kMiddle = 1 << 23;  // what the values lack that they have a sign
  return shift_right32<16>(
      add32(multiply_add16(pairs ^ all16(0x8000), weights), all32(kMiddle + 32768)));
}

// 256 * a + (b - a) * f, which fits 16 bits, though parts of it do not.
TQ_SIMD Vector between(Vector a, Vector b, Vector fractions) {
  return add16(shift_left16<8>(a), multiply_low16(subtract16(b, a), fractions));
}

TQ_SIMD Vector row_weights(Vector fractions) {
  return add64(subtract64(all64(256), fractions), shift_left32<16>(fractions));
}

template <int kSize>
TQ_SIMD int blend_colours(const Walk& walk, std::uint8_t* to, int count) {
  alignas(16) static constexpr std::uint8_t kLeft[2][16] = {
      {0, 128, 1, 128, 2, 128, 128, 128, 8, 128, 9, 128, 10, 128, 128, 128},
      {0, 128, 1, 128, 2, 128, 3, 128, 8, 128, 9, 128, 10, 128, 11, 128}};
  alignas(16) static constexpr std::uint8_t kRight[2][16] = {
      {3, 128, 4, 128, 5, 128, 128, 128, 11, 128, 12, 128, 13, 128, 128, 128},
      {4, 128, 5, 128, 6, 128, 7, 128, 12, 128, 13, 128, 14, 128, 15, 128}};
  alignas(16) static constexpr std::uint8_t kFour[16] = {0, 1, 0, 1, 0, 1, 0, 1,
                                                         8, 9, 8, 9, 8, 9, 8, 9};
  alignas(16) static constexpr std::uint8_t kClose[2][16] = {
      {0, 1, 2, 4, 5, 6, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128},
      {0, 1, 2, 3, 4, 5, 6, 7, 128, 128, 128, 128, 128, 128, 128, 128}};
  const Vector left = load_repeated(kLeft[kSize - 3]), right = load_repeated(kRight[kSize - 3]);
  const Vector four = load_repeated(kFour), close = load_repeated(kClose[kSize - 3]);
  Steps steps = steps_of(walk, kSize);
  int i = 0;
  // Two bytes behind the last pixel are written.
  for (; i + 5 <= count; i += 4, steps.advance(), to += 4 * kSize) {
    std::int64_t offsets[4];
    store(offsets, steps.offsets());
    const std::uint8_t *above[4], *below[4];
    TQ_UNROLLED
    for (int k = 0; k < 4; ++k) {
      above[k] = walk.origin + static_cast<std::ptrdiff_t>(offsets[k]);
      below[k] = above[k] + walk.stride;
    }
    const Vector upper = load_halves(above), lower = load_halves(below);
    const Vector fx = shuffle8(steps.x_fractions(), four);
    const Vector fy = row_weights(steps.y_fractions());
    const Vector a = between(shuffle8(upper, left), shuffle8(upper, right), fx);
    const Vector b = between(shuffle8(lower, left), shuffle8(lower, right), fx);
    const Vector first = blended(interleave_low16(a, b), shuffle32<0x00>(fy));
    const Vector last = blended(interleave_high16(a, b), shuffle32<0xAA>(fy));
    const Vector made = pack32(first, last);
    const Vector bytes = shuffle8(pack_unsigned16(made, made), close);
    store_half<0>(to, bytes);
    store_half<1>(to + 2 * kSize, bytes);
  }
  return i;
}

// Eight places: those of the four above and of the four below each as 32 bits.
TQ_SIMD Vector eight_levels(Vector all, Vector fx, Vector fy) {
  const Vector bytes = all16(255);
  const Vector columns = fx | shift_left32<16>(fx);
  const Vector rows = add32(subtract32(all32(256), fy), shift_left32<16>(fy));
  return blended(between(all & bytes, shift_right_unsigned16<8>(all), columns), rows);
}

// Four neighbours each, where sixteen places follow each other in a row.
struct Around {
  Vector first, last;
};
TQ_SIMD Around sixteen_in_row(const std::uint8_t* above, const std::uint8_t* below) {
  const __m128i a = load_lane(above), b = load_lane(above + 1);
  const __m128i c = load_lane(below), d = load_lane(below + 1);
  // Lanes of eight, whose halves of four belong together.
  const Vector upper = joined(_mm_unpacklo_epi8(a, b), _mm_unpackhi_epi8(a, b));
  const Vector lower = joined(_mm_unpacklo_epi8(c, d), _mm_unpackhi_epi8(c, d));
  const Vector low = interleave_low16(upper, lower), high = interleave_high16(upper, lower);
  return {joined(lane<0>(low), lane<0>(high)), joined(lane<1>(low), lane<1>(high))};
}

TQ_SIMD int blend_levels(const Walk& walk, std::uint8_t* to, int count) {
  constexpr int kBatch = 16, kAhead = 8;
  Steps steps = steps_of(walk, 1);
  std::int64_t at_x = walk.x, at_y = walk.y;
  int i = 0;
  for (; i + kBatch <= count; i += kBatch, to += kBatch) {
    std::int64_t offsets[kBatch];
    Vector x[4], y[4];
    TQ_UNROLLED
    for (int k = 0; k < 4; ++k) {
      store(offsets + 4 * k, steps.offsets());
      x[k] = steps.x_fractions();
      y[k] = steps.y_fractions();
      steps.advance();
    }
    // Rows to come: processors do not foresee the few lines of memory that are new in each.
    __builtin_prefetch(walk.origin + static_cast<std::ptrdiff_t>(offsets[0]) +
                       kAhead * walk.stride);
    // Steps to the next pixel differ by one at most.
    const std::int64_t end_x = at_x + (kBatch - 1) * walk.x_step;
    const std::int64_t end_y = at_y + (kBatch - 1) * walk.y_step;
    Around around;
    if ((end_x >> 32) - (at_x >> 32) == kBatch - 1 && end_y >> 32 == at_y >> 32) {
      const std::uint8_t* const at = walk.origin + static_cast<std::ptrdiff_t>(offsets[0]);
      around = sixteen_in_row(at, at + walk.stride);
    } else {
      std::uint32_t each[kBatch];
      TQ_UNROLLED
      for (int k = 0; k < kBatch; ++k) {
        const std::uint8_t* const at = walk.origin + static_cast<std::ptrdiff_t>(offsets[k]);
        std::uint16_t above, below;
        std::memcpy(&above, at, sizeof above);
        std::memcpy(&below, at + walk.stride, sizeof below);
        each[k] = above | std::uint32_t{below} << 16;
      }
      around = {load(each), load(each + 8)};
    }
    at_x = end_x + walk.x_step;
    at_y = end_y + walk.y_step;
    const Vector first = eight_levels(around.first, in_sequence(even32(x[0], x[1])),
                                      in_sequence(even32(y[0], y[1])));
    const Vector last =
        eight_levels(around.last, in_sequence(even32(x[2], x[3])), in_sequence(even32(y[2], y[3])));
    const Vector made = in_sequence(pack32(first, last));
    store_lane<0>(to, in_sequence(pack_unsigned16(made, made)));
  }
  return i;
}

TQ_KERNEL void blend(const Walk& walk, int size, std::uint8_t* to, int count) {
  const int i = size == 1   ? blend_levels(walk, to, count)
                : size == 3 ? blend_colours<3>(walk, to, count)
                            : blend_colours<4>(walk, to, count);
  Walk rest = walk;
  rest.x += i * walk.x_step;
  rest.y += i * walk.y_step;
  kPortableGeometryKernels.blend(rest, size, to + std::ptrdiff_t{i} * size, count - i);
}

}  // namespace

void add_avx2_kernels(GeometryKernels& kernels) {
  kernels.copy_past = copy_past;
  kernels.add_rows = add_rows;
  kernels.add_shares = add_shares;
  kernels.add_shares_16 = add_shares_16;
  kernels.halve = halve;
  kernels.weigh_along = weigh_along;
  kernels.weigh_down = weigh_down;
  kernels.turn_24 = turn_24;
  kernels.blend = blend;
}

}  // namespace tq::process

#endif
