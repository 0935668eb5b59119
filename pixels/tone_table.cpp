// Brightness, contrast and gamma as one table of levels. Powers are compared by their logarithms, in
// integers, since the last bits of the C library's differ between systems.
#include "pixels/tone_table.h"

#include <algorithm>

#include "core/numbers.h"

namespace tq::pixels {
namespace {

constexpr int kTop = 510;  // twice the highest level, so that there is a number between two levels

// Natural logarithms of 1 .. kTop in units of 2^-50, off by less than 2^-36: sums of
// ln((n + 1) / n) = 2 (t + t^3 / 3 + t^5 / 5 + ...), t = 1 / (2 n + 1).
constexpr auto kLogarithms = [] {
  std::array<std::int64_t, kTop + 1> logs{};
  for (std::int64_t n = 1; n < kTop; ++n) {
    const std::int64_t odd = 2 * n + 1;
    std::int64_t sum = 0;
    std::int64_t power = (std::int64_t{1} << 51) / odd;
    for (std::int64_t k = 1; power > 0; k += 2, power /= odd * odd) sum += power / k;
    logs[static_cast<std::size_t>(n + 1)] = logs[static_cast<std::size_t>(n)] + sum;
  }
  return logs;
}();

// How far below the top a number lies.
std::int64_t depth_of(int n) {
  return kLogarithms[kTop] - kLogarithms[static_cast<std::size_t>(n)];
}

int toned(int v, int brightness, int contrast) {
  const int from_middle = v - 128;
  int d = from_middle < 0 ? -128 : 127;
  if (contrast <= 0) {
    d = from_middle * (100 + contrast) / 100;
  } else if (contrast < 100) {
    d = from_middle * 100 / (100 - contrast);
  }
  return std::clamp(128 + d + 255 * brightness / 100, 0, 255);
}

// 255 (v / 255)^(100 / gamma), to the nearest. A result is never half way between two levels: with
// r - 1/2 for it, ((2 r - 1) / 510)^gamma = (2 v / 510)^100 has another power of 2 on either side.
std::array<std::uint8_t, 256> gamma_table(int gamma) {
  std::array<std::uint8_t, 256> table{};
  int r = 0;
  for (int v = 1; v < 256; ++v) {
    while (r < 255 && gamma * depth_of(2 * r + 1) >= 100 * depth_of(2 * v)) ++r;
    table[static_cast<std::size_t>(v)] = byte(r);
  }
  return table;
}

}  // namespace

std::array<std::uint8_t, 256> tone_table(int brightness, int contrast, int gamma) {
  const std::array<std::uint8_t, 256> powers = gamma_table(gamma);
  std::array<std::uint8_t, 256> table{};
  for (int v = 0; v < 256; ++v) {
    table[static_cast<std::size_t>(v)] =
        powers[static_cast<std::size_t>(toned(v, brightness, contrast))];
  }
  return table;
}

}  // namespace tq::pixels
