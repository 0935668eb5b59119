// Row kernels: plain functions over one row, without state. The portable ones are the reference;
// faster ones for some processors give the same bytes.
#pragma once

#include <cstdint>

#include "core/dib.h"
#include "platform/cpu.h"

namespace tq::pixels {

// Ordered dithers, by x & 7: a level above its entry is on, and the colour full if its brightness is.
struct OrderedLimits {
  std::uint8_t channel[8];
  std::uint8_t full[8];
};
// Those of row y. A brightness that is lowered by `darker_by` needs 40 more than a channel.
OrderedLimits ordered_limits(int y, int darker_by);

// `bgr` are 3 * width bytes; not one more is read or written.
struct Kernels {
  // Blue, green, red to blue, green, red, 0.
  void (*widen_24)(const std::uint8_t* bgr, Rgb* colours, int width);

  // To red, green, blue, or back.
  void (*swap_24)(const std::uint8_t* bgr, std::uint8_t* rgb, int width);

  // The last pixel first.
  void (*mirror_24)(const std::uint8_t* from, std::uint8_t* to, int width);

  // The same of 1 or 4 bits; bits behind the last are not looked at, and 0 in the last byte afterwards.
  void (*mirror_part_bytes)(const std::uint8_t* from, std::int64_t width, int bits,
                            std::uint8_t* to);

  // Blue, green, red to 0, red, green, blue.
  void (*widen_24_reversed)(const std::uint8_t* bgr, std::uint8_t* out, int width);

  void (*merge_planes)(const std::uint8_t* blue, const std::uint8_t* green, const std::uint8_t* red,
                       std::uint8_t* bgr, int width);
  void (*split_planes)(const std::uint8_t* bgr, std::uint8_t* blue, std::uint8_t* green,
                       std::uint8_t* red, int width);

  // One byte of grey per pixel, see colours.h.
  void (*brightness_24)(const std::uint8_t* bgr, std::uint8_t* grey, int width);
  void (*luma_24)(const std::uint8_t* bgr, std::uint8_t* grey, int width);

  // Rows of 8 bits, three of them red, three green, by the thresholds of `limits.channel`; of 4, the 16
  // fixed colours; and of 1: white where luma is above.
  void (*order_to_8)(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out, int width);
  void (*order_to_4)(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out, int width);
  void (*order_to_1)(const Rgb* colours, const OrderedLimits& limits, std::uint8_t* out, int width);
};

extern const Kernels kPortableKernels;
void add_ssse3_kernels(Kernels& kernels);

// The fastest for a processor, and for this one, less what is masked.
Kernels select_kernels(const platform::CpuFeatures& features);
inline Kernels kernels() {
  return select_kernels(platform::cpu_features());
}

}  // namespace tq::pixels
