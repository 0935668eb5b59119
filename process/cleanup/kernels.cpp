// The portable row kernels, and the choice.
#include "process/cleanup/kernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/numbers.h"

namespace tq::process {
namespace {

// How many bytes are above a level.
int count_above(const std::uint8_t (&tile)[256], int level) {
  std::uint8_t sums[16] = {};
  for (int k = 0; k < 256; k += 16) {
    for (int i = 0; i < 16; ++i) sums[i] = byte(sums[i] + (tile[k + i] > level ? 1 : 0));
  }
  int count = 0;
  for (const int sum : sums) count += sum;
  return count;
}

int bright_level(const std::uint8_t* tile, std::ptrdiff_t stride, int pixels) {
  std::uint8_t bytes[kTileSide * kTileSide];
  for (int y = 0; y < kTileSide; ++y) {
    std::memcpy(bytes + y * kTileSide, tile + y * stride, kTileSide);
  }
  int least = 0, most = 255;
  while (least < most) {
    const int middle = (least + most) / 2;
    if (5 * count_above(bytes, middle) <= pixels) {
      most = middle;
    } else {
      least = middle + 1;
    }
  }
  return least;
}

void connect(const std::int32_t* values, std::uint16_t* to, std::ptrdiff_t count) {
  for (std::ptrdiff_t x = 0; x < count; ++x, to += kTileSide) {
    const std::int32_t from = values[x], difference = values[x + 1] - from;
    std::int32_t value = from * 2 * kTileSide + difference + 512;
    for (int i = 0; i < kTileSide; ++i, value += 2 * difference) to[i] = word(value >> 10);
  }
}

// A quotient below 256 that is no whole number lies further from the next one than these round.
void even_out(const std::uint8_t* levels, const std::uint16_t* background, std::uint8_t* to,
              std::ptrdiff_t count) {
  for (std::ptrdiff_t x = 0; x < count; ++x) {
    const float quotient =
        static_cast<float>(levels[x] * kEvenScale) / static_cast<float>(background[x]);
    to[x] = byte(static_cast<int>(std::min(quotient, 255.0F)));
  }
}

// The same as comparing the quotient, without a division.
void mark_dark(const std::uint8_t* levels, const std::uint16_t* background, int level,
               std::uint8_t* marks, std::ptrdiff_t count) {
  for (std::ptrdiff_t x = 0; x < count; ++x) {
    marks[x] = byte(levels[x] * kEvenScale < (level + 1) * background[x] ? 1 : 0);
  }
}

// Sums of bytes that stay bytes are sums of words.
void add_columns(const MovedColumn* columns, std::ptrdiff_t count, int rows, int y,
                 std::uint8_t* sums) {
  constexpr int kWords = kRowsAtATime / 8;
  std::uint64_t words[kWords] = {}, more[kWords];
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const int first = y + columns[i].up;
    if (first <= -kRowsAtATime || first >= rows) continue;
    std::memcpy(more, columns[i].cells + first, sizeof more);
    for (int k = 0; k < kWords; ++k) words[k] += more[k];
  }
  std::memcpy(sums, words, sizeof words);
}

void move_windows(const std::uint8_t* entering, const std::uint8_t* leaving, const WindowSums& to,
                  std::ptrdiff_t count) {
  std::uint32_t sum = 0, squares = 0;
  for (std::ptrdiff_t x = 0; x < count; ++x) {
    const std::uint32_t more = entering[x], less = leaving[x];
    to.sums_before[x + 1] += sum += more - less;
    to.squares_before[x + 1] += squares += more * more - less * less;
  }
}

// Of the i-th window; the variance may be below 0 by rounding.
struct Moments {
  std::int64_t mean, variance;
};

Moments moments_of(const WindowRow& windows, std::ptrdiff_t i) {
  const std::uint32_t sum = windows.sums_before[i + windows.columns] - windows.sums_before[i];
  const std::uint32_t squares =
      windows.squares_before[i + windows.columns] - windows.squares_before[i];
  // Quotients that are no whole numbers lie further from them than the product's error, which is below
  // the half of what is added.
  constexpr double kSlack = 1.0 / (1 << 17);
  const auto mean = static_cast<std::int64_t>(256.0 * sum * windows.share + kSlack);
  const auto square = static_cast<std::int64_t>(65536.0 * squares * windows.share + kSlack);
  return {mean, square - mean * mean};
}

std::int64_t largest_variance(const WindowRow& windows, std::int64_t least, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    least = std::max(least, moments_of(windows, i).variance);
  }
  return least;
}

void mark_by_windows(const std::uint8_t* levels, const WindowRow& windows, const WindowRule& rule,
                     std::uint8_t* marks, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const auto [mean, variance] = moments_of(windows, i);
    const std::int64_t pixel = levels[i] * kWindowUnit;
    bool black = false;
    if (variance < kFlatDeviation * kFlatDeviation) {
      black = levels[i] <= rule.flat_level;
    } else if (pixel < mean) {  // no threshold is above the mean
      const std::int64_t least = mean - mean * rule.k / 100;
      const auto deviation = static_cast<std::int64_t>(std::sqrt(static_cast<double>(variance)));
      black = pixel < least || pixel < least + mean * rule.k * deviation / (100 * rule.range);
    }
    marks[i] = byte(black ? 1 : 0);
  }
}

}  // namespace

constexpr CleanupKernels kPortableCleanupKernels{.bright_level = bright_level,
                                                 .connect = connect,
                                                 .even_out = even_out,
                                                 .mark_dark = mark_dark,
                                                 .add_columns = add_columns,
                                                 .move_windows = move_windows,
                                                 .largest_variance = largest_variance,
                                                 .mark_by_windows = mark_by_windows};

CleanupKernels cleanup_kernels() {
  CleanupKernels kernels = kPortableCleanupKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (platform::cpu_features().avx2) add_avx2_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::process
