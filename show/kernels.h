// What takes the time of a reduction, as plain functions over a row. The portable ones are the
// reference; faster ones give the same sums.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/cpu.h"

namespace tq::show {

struct Kernels {
  // The most rows that are weighed together, and the most that a row weighs.
  static constexpr int kRows = 8;
  static constexpr std::uint32_t kMostWeight = 1 << 12;

  // Makes of `count` samples of each row their sums by weight, or adds them to the sums.
  void (*weigh_rows)(const std::uint8_t* const* rows, const std::uint16_t* weights, int row_count,
                     std::uint32_t* sums, std::ptrdiff_t count, bool add);

  // Blue, green, red to the same and 255.
  void (*widen)(const std::uint8_t* bgr, std::uint8_t* bgrx, std::ptrdiff_t count);
};

extern const Kernels kPortableKernels;
void add_ssse3_kernels(Kernels& kernels);

Kernels select_kernels(const platform::CpuFeatures& features);
inline Kernels kernels() {
  return select_kernels(platform::cpu_features());
}

}  // namespace tq::show
