// Row kernels in registers of 256 bits. They leave the rest of a row to the portable ones.
#if defined(__i386__) || defined(__x86_64__)

#include "platform/x86/simd256.h"
#include "process/cleanup/kernels.h"

namespace tq::process {
namespace {

using namespace simd;

TQ_KERNEL int bright_level(const std::uint8_t* tile, std::ptrdiff_t stride, int pixels) {
  constexpr int kPairs = kTileSide / 2;
  Vector rows[kPairs];
  TQ_UNROLLED
  for (int i = 0; i < kPairs; ++i) {
    rows[i] = load_lanes(tile + 2 * i * stride, tile + (2 * i + 1) * stride);
  }
  int least = 0, most = 255;
  while (least < most) {
    const int middle = (least + most) / 2;
    const Vector limit = all8(middle);
    Vector counts{};
    TQ_UNROLLED
    for (int i = 0; i < kPairs; ++i) {
      counts = subtract_signed8(counts, equal8(min8(rows[i], limit), rows[i]));
    }
    const int above = kTileSide * kTileSide - static_cast<int>(sum32(distance8(counts, Vector{})));
    if (5 * above <= pixels) {
      most = middle;
    } else {
      least = middle + 1;
    }
  }
  return least;
}

TQ_KERNEL void connect(const std::int32_t* values, std::uint16_t* to, std::ptrdiff_t count) {
  alignas(32) static constexpr std::int32_t kSteps[8] = {0, 2, 4, 6, 8, 10, 12, 14};
  const Vector steps = load(kSteps);
  for (std::ptrdiff_t x = 0; x < count; ++x, to += kTileSide) {
    const std::int32_t from = values[x], difference = values[x + 1] - from;
    const Vector first = add32(all32(from * 2 * kTileSide + difference + 512),
                               multiply_low32(all32(difference), steps));
    const Vector last = add32(first, all32(16 * difference));
    store(to, in_sequence(pack32(shift_right32<10>(first), shift_right32<10>(last))));
  }
}

TQ_SIMD Vector eight_even(const std::uint8_t* levels, const std::uint16_t* background) {
  const Vector scaled = multiply_add16(load_as_32(levels), all32(kEvenScale));
  const FloatVector quotients = to_floats(scaled) / to_floats(load_as_32(background));
  return truncated(min_floats(quotients, all_floats(255)));
}

TQ_KERNEL void even_out(const std::uint8_t* levels, const std::uint16_t* background,
                        std::uint8_t* to, std::ptrdiff_t count) {
  std::ptrdiff_t x = 0;
  for (; x + 16 <= count; x += 16) {
    const Vector first = eight_even(levels + x, background + x);
    const Vector last = eight_even(levels + x + 8, background + x + 8);
    const Vector both = in_sequence(pack32(first, last));
    const Vector bytes = pack_unsigned16(both, both);
    store_half<0>(to + x, bytes);
    store_half<1>(to + x + 8, bytes);
  }
  kPortableCleanupKernels.even_out(levels + x, background + x, to + x, count - x);
}

// All bits of 16 where `factors` make less than 0 of levels and backgrounds.
TQ_SIMD Vector sixteen_dark(const std::uint8_t* levels, const std::uint16_t* background,
                            Vector factors) {
  const Vector level = load_widened(levels), paper = load(background);
  const Vector low = multiply_add16(interleave_low16(level, paper), factors);
  const Vector high = multiply_add16(interleave_high16(level, paper), factors);
  return greater16(Vector{}, pack32(low, high));
}

TQ_KERNEL void mark_dark(const std::uint8_t* levels, const std::uint16_t* background, int level,
                         std::uint8_t* marks, std::ptrdiff_t count) {
  constexpr int kHalf = 8 * kLanes;
  const Vector factors = interleave_low16(all16(kEvenScale), all16(-(level + 1)));
  std::ptrdiff_t x = 0;
  for (; x + 2 * kHalf <= count; x += 2 * kHalf) {
    const Vector first = sixteen_dark(levels + x, background + x, factors);
    const Vector last = sixteen_dark(levels + x + kHalf, background + x + kHalf, factors);
    store(marks + x, in_sequence(pack16(first, last)) & all8(1));
  }
  kPortableCleanupKernels.mark_dark(levels + x, background + x, level, marks + x, count - x);
}

TQ_KERNEL void add_columns(const MovedColumn* columns, std::ptrdiff_t count, int rows, int y,
                           std::uint8_t* sums) {
  constexpr int kHalf = kRowsAtATime / 2;
  Vector upper{}, lower{};
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const int first = y + columns[i].up;
    if (first <= -kRowsAtATime || first >= rows) continue;
    upper = add_saturated8(upper, load(columns[i].cells + first));
    lower = add_saturated8(lower, load(columns[i].cells + first + kHalf));
  }
  store(sums, upper);
  store(sums + kHalf, lower);
}

TQ_KERNEL void move_windows(const std::uint8_t* entering, const std::uint8_t* leaving,
                            const WindowSums& to, std::ptrdiff_t count) {
  Vector sum{}, square{};
  std::ptrdiff_t x = 0;
  for (; x + 8 <= count; x += 8) {
    const Vector more = load_as_32(entering + x), less = load_as_32(leaving + x);
    const Vector change = subtract32(more, less);
    // The difference of the squares is a product of these.
    const Vector sums = running_sums32(change);
    const Vector squares = running_sums32(multiply_add16(change, add32(more, less)));
    std::uint32_t* const all_sums = to.sums_before + x + 1;
    std::uint32_t* const all_squares = to.squares_before + x + 1;
    store(all_sums, add32(load(all_sums), add32(sums, sum)));
    store(all_squares, add32(load(all_squares), add32(squares, square)));
    sum = add32(sum, last32(sums));
    square = add32(square, last32(squares));
  }
  std::uint32_t more_sum = low32(sum), more_squares = low32(square);
  for (; x < count; ++x) {
    const std::uint32_t more = entering[x], less = leaving[x];
    to.sums_before[x + 1] += more_sum += more - less;
    to.squares_before[x + 1] += more_squares += more * more - less * less;
  }
}

WindowRow from_place(const WindowRow& windows, std::ptrdiff_t i) {
  return {windows.sums_before + i, windows.squares_before + i, windows.columns, windows.share};
}

// Eight windows. Of variances by floats, from means that are not rounded down: those lower a variance
// by up to twice the mean. All else that differs is little beside.
constexpr std::int64_t kVarianceError = 1 << 18;

struct EightSums {
  Vector sums, squares;
};

TQ_SIMD EightSums eight_windows(const WindowRow& windows, std::ptrdiff_t i) {
  const std::uint32_t *sums = windows.sums_before + i, *squares = windows.squares_before + i;
  return {subtract32(load(sums + windows.columns), load(sums)),
          subtract32(load(squares + windows.columns), load(squares))};
}

TQ_SIMD FloatVector eight_variances(const EightSums& eight, double share) {
  // Squares may have 32 bits, of which one is a sign.
  const FloatVector mean = to_floats(eight.sums) * all_floats(static_cast<float>(256 * share));
  const FloatVector square = to_floats(shift_right_unsigned32<1>(eight.squares)) *
                             all_floats(static_cast<float>(131072 * share));
  return square - mean * mean;
}

TQ_KERNEL std::int64_t largest_variance(const WindowRow& windows, std::int64_t least,
                                        std::ptrdiff_t count) {
  FloatVector limit = all_floats(static_cast<float>(least - kVarianceError));
  std::ptrdiff_t i = 0;
  for (; i + 8 <= count; i += 8) {
    const EightSums eight = eight_windows(windows, i);
    if (less_bits(limit, eight_variances(eight, windows.share)) == 0) continue;
    least = kPortableCleanupKernels.largest_variance(from_place(windows, i), least, 8);
    limit = all_floats(static_cast<float>(least - kVarianceError));
  }
  return kPortableCleanupKernels.largest_variance(from_place(windows, i), least, count - i);
}

// Whole numbers are exact in doubles.
template <int kLane>
TQ_SIMD Vector four_black(const EightSums& eight, Vector level, double share,
                          const WindowRule& rule) {
  const DoubleVector slack = all_doubles(1.0 / (1 << 17));
  const DoubleVector sum = to_doubles<kLane>(eight.sums);
  const DoubleVector squares =
      to_doubles<kLane>(eight.squares ^ all32(INT32_MIN)) + all_doubles(2147483648.0);
  const DoubleVector mean = rounded_down(sum * all_doubles(256 * share) + slack);
  const DoubleVector square = rounded_down(squares * all_doubles(65536 * share) + slack);
  const DoubleVector variance = square - mean * mean;
  const DoubleVector weighted = mean * all_doubles(static_cast<double>(rule.k));
  // A hundredth of a whole number: what is added is less than the next one lacks.
  const DoubleVector least = mean - rounded_down(weighted * all_doubles(0.01) + all_doubles(0.001));
  const DoubleVector pixel = to_doubles<kLane>(shift_left32<8>(level));
  const DoubleVector deviation = rounded_down(square_root(variance));
  const DoubleVector range = all_doubles(static_cast<double>(100 * rule.range));
  // A quotient, rounded down, is greater than a whole number if it is the next one at least.
  const auto below = (pixel - least + all_doubles(1)) * range <= weighted * deviation;
  const auto black = below & (pixel < mean);
  const auto flat = variance < all_doubles(kFlatDeviation * kFlatDeviation);
  const auto dark = to_doubles<kLane>(level) <= all_doubles(static_cast<double>(rule.flat_level));
  return reinterpret_cast<Vector>((flat & dark) | (~flat & black));
}

TQ_KERNEL void mark_by_windows(const std::uint8_t* levels, const WindowRow& windows,
                               const WindowRule& rule, std::uint8_t* marks, std::ptrdiff_t count) {
  const FloatVector flat =
      all_floats(static_cast<float>(kFlatDeviation * kFlatDeviation - kVarianceError));
  std::ptrdiff_t i = 0;
  for (; i + 8 <= count; i += 8) {
    const EightSums eight = eight_windows(windows, i);
    const Vector level = load_as_32(levels + i);
    Vector black;
    if (less_bits(eight_variances(eight, windows.share), flat) == 0xFF) {
      black = greater32(all32(rule.flat_level + 1), level);
    } else {
      black = narrowed(four_black<0>(eight, level, windows.share, rule),
                       four_black<1>(eight, level, windows.share, rule));
    }
    const Vector words = pack32(black, black), bytes = pack16(words, words) & all8(1);
    store_quarter<0>(marks + i, bytes);
    store_quarter<1>(marks + i + 4, bytes);
  }
  kPortableCleanupKernels.mark_by_windows(levels + i, from_place(windows, i), rule, marks + i,
                                          count - i);
}

}  // namespace

void add_avx2_kernels(CleanupKernels& kernels) {
  kernels = {.bright_level = bright_level,
             .connect = connect,
             .even_out = even_out,
             .mark_dark = mark_dark,
             .add_columns = add_columns,
             .move_windows = move_windows,
             .largest_variance = largest_variance,
             .mark_by_windows = mark_by_windows};
}

}  // namespace tq::process

#endif
