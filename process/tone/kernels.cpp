// The portable row kernels, and the choice.
#include "process/tone/kernels.h"

#include <algorithm>
#include <cstdlib>

#include "core/numbers.h"

namespace tq::process {
namespace {

void map_bytes(const std::uint8_t* from, const std::uint8_t* table, std::uint8_t* to,
               std::ptrdiff_t count) {
  std::ptrdiff_t i = 0;
  for (; i + 4 <= count; i += 4) {
    for (int k = 0; k < 4; ++k) to[i + k] = table[from[i + k]];
  }
  for (; i < count; ++i) to[i] = table[from[i]];
}

void smooth_along(const std::uint8_t* from, int size, const std::int16_t* weights, int radius,
                  std::int16_t* to, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    std::int32_t sum = 128 + weights[0] * from[i];
    for (std::ptrdiff_t k = 1; k <= radius; ++k) {
      sum += weights[k] * (from[i - k * size] + from[i + k * size]);
    }
    to[i] = static_cast<std::int16_t>(sum >> 8);
  }
}

void smooth_down(const std::int16_t* const* rows, std::ptrdiff_t first, const std::int16_t* weights,
                 int radius, std::uint8_t* to, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = first; i < first + count; ++i) {
    std::int32_t sum = (1 << 19) + weights[0] * rows[0][i];
    for (int k = 1; k <= radius; ++k) sum += weights[k] * (rows[-k][i] + rows[k][i]);
    *to++ = byte(std::clamp(sum >> 20, 0, 255));
  }
}

void sharpen(const std::uint8_t* from, int amount, std::uint8_t* smooth, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const int more = ((from[i] - smooth[i]) * amount + (1 << (kSharpenBits - 1))) >> kSharpenBits;
    smooth[i] = byte(std::clamp(from[i] + more, 0, 255));
  }
}

void find_edges(const std::uint8_t* const* rows, int size, std::uint8_t* to, std::ptrdiff_t count) {
  const std::uint8_t *a = rows[0], *b = rows[1], *c = rows[2];
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const std::ptrdiff_t l = i - size, r = i + size;
    const int right = a[r] + 2 * b[r] + c[r] - (a[l] + 2 * b[l] + c[l]);
    const int down = c[l] + 2 * c[i] + c[r] - (a[l] + 2 * a[i] + a[r]);
    to[i] = byte(std::min(std::max(std::abs(right), std::abs(down)), 255));
  }
}

std::uint8_t middle(std::uint8_t a, std::uint8_t b, std::uint8_t c) {
  return std::max(std::min(a, b), std::min(std::max(a, b), c));
}

// Of columns that are sorted: the greatest of the least, the middle of the middle and the least of
// the greatest are what can be in the middle of all.
void median_of_nine(const std::uint8_t* const* rows, int size, std::uint8_t* to,
                    std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    std::uint8_t least[3], mid[3], most[3];
    for (int k = 0; k < 3; ++k) {
      const std::ptrdiff_t at = i + (k - 1) * std::ptrdiff_t{size};
      const std::uint8_t a = rows[0][at], b = rows[1][at], c = rows[2][at];
      least[k] = std::min({a, b, c});
      most[k] = std::max({a, b, c});
      mid[k] = middle(a, b, c);
    }
    to[i] = middle(std::max({least[0], least[1], least[2]}), middle(mid[0], mid[1], mid[2]),
                   std::min({most[0], most[1], most[2]}));
  }
}

void lesser(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* to, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = std::min(a[i], b[i]);
}

void greater(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* to, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = std::max(a[i], b[i]);
}

}  // namespace

constexpr ToneKernels kPortableToneKernels{.map_bytes = map_bytes,
                                           .smooth_along = smooth_along,
                                           .smooth_down = smooth_down,
                                           .sharpen = sharpen,
                                           .find_edges = find_edges,
                                           .median_of_nine = median_of_nine,
                                           .lesser = lesser,
                                           .greater = greater};

ToneKernels tone_kernels() {
  ToneKernels kernels = kPortableToneKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (platform::cpu_features().avx2) add_avx2_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::process
