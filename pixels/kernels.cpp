// The portable row kernels, and the choice.
#include "pixels/kernels.h"

#include <cstring>

#include "pixels/colours.h"

namespace tq::pixels {
namespace {

void widen_24(const std::uint8_t* bgr, Rgb* colours, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) colours[x] = {bgr[0], bgr[1], bgr[2], 0};
}

void swap_24(const std::uint8_t* bgr, std::uint8_t* rgb, int width) {
  for (int x = 0; x < width; ++x, bgr += 3, rgb += 3) {
    rgb[0] = bgr[2];
    rgb[1] = bgr[1];
    rgb[2] = bgr[0];
  }
}

void mirror_24(const std::uint8_t* from, std::uint8_t* to, int width) {
  from += std::ptrdiff_t{3} * width;
  for (int x = 0; x < width; ++x, to += 3) std::memcpy(to, from -= 3, 3);
}

void widen_24_reversed(const std::uint8_t* bgr, std::uint8_t* out, int width) {
  for (int x = 0; x < width; ++x, bgr += 3, out += 4) {
    out[0] = 0;
    out[1] = bgr[2];
    out[2] = bgr[1];
    out[3] = bgr[0];
  }
}

void merge_planes(const std::uint8_t* blue, const std::uint8_t* green, const std::uint8_t* red,
                  std::uint8_t* bgr, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) {
    bgr[0] = blue[x];
    bgr[1] = green[x];
    bgr[2] = red[x];
  }
}

void split_planes(const std::uint8_t* bgr, std::uint8_t* blue, std::uint8_t* green,
                  std::uint8_t* red, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) {
    blue[x] = bgr[0];
    green[x] = bgr[1];
    red[x] = bgr[2];
  }
}

template <int (*kGrey)(Rgb)>
void weigh_24(const std::uint8_t* bgr, std::uint8_t* grey, int width) {
  for (int x = 0; x < width; ++x, bgr += 3) grey[x] = byte(kGrey({bgr[0], bgr[1], bgr[2], 0}));
}

}  // namespace

constexpr Kernels kPortableKernels{.widen_24 = widen_24,
                                   .swap_24 = swap_24,
                                   .mirror_24 = mirror_24,
                                   .widen_24_reversed = widen_24_reversed,
                                   .merge_planes = merge_planes,
                                   .split_planes = split_planes,
                                   .brightness_24 = weigh_24<brightness>,
                                   .luma_24 = weigh_24<luma>};

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  Kernels kernels = kPortableKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (features.ssse3) add_ssse3_kernels(kernels);
#endif
  return kernels;
}

}  // namespace tq::pixels
