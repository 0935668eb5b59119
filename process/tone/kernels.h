// The row kernels of tables and filters: plain functions over one row. The portable ones are the
// reference, faster ones for some processors give the same bytes. A row is `count` levels or channels
// in turn; of pixels of `size` channels those beside one are as far away.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/cpu.h"

namespace tq::process {

inline constexpr int kSharpenBits = 11;

struct ToneKernels {
  // Each byte by a table of 256.
  void (*map_bytes)(const std::uint8_t* from, const std::uint8_t* table, std::uint8_t* to,
                    std::ptrdiff_t count);

  // Weights of the middle and of both sides, 14 bits in all, and one more that is 0. Along a row of
  // bytes, to 6 bits of fraction; down columns of these from
  // the first one on, to bytes. `rows` is the middle one.
  void (*smooth_along)(const std::uint8_t* from, int size, const std::int16_t* weights, int radius,
                       std::int16_t* to, std::ptrdiff_t count);
  void (*smooth_down)(const std::int16_t* const* rows, std::ptrdiff_t first,
                      const std::int16_t* weights, int radius, std::uint8_t* to,
                      std::ptrdiff_t count);

  // Adds what `smooth` lacks, times amount in units of 2^-kSharpenBits, to `from`: in place of it.
  void (*sharpen)(const std::uint8_t* from, int amount, std::uint8_t* smooth, std::ptrdiff_t count);

  // The larger of the slopes to the right and downwards, by Sobel's weights; three rows.
  void (*find_edges)(const std::uint8_t* const* rows, int size, std::uint8_t* to,
                     std::ptrdiff_t count);

  void (*median_of_nine)(const std::uint8_t* const* rows, int size, std::uint8_t* to,
                         std::ptrdiff_t count);
  void (*lesser)(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* to,
                 std::ptrdiff_t count);
  void (*greater)(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* to,
                  std::ptrdiff_t count);
};

extern const ToneKernels kPortableToneKernels;
void add_avx2_kernels(ToneKernels& kernels);

// The fastest for this processor, less what is masked.
ToneKernels tone_kernels();

}  // namespace tq::process
