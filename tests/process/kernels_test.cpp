// Faster kernels against the portable ones: by themselves, and inside whole operations.
#include "process/kernels.h"

#include <gtest/gtest.h>

#include "include/tarnquill.h"
#include "platform/cpu.h"
#include "tests/process/generated_image.h"
#include "tests/support/guarded_block.h"

namespace tq::process {
namespace {

using test::Bytes;
using test::GuardedBlock;

constexpr platform::CpuFeatures kAll{true, true, true, true, true};

template <class Run>
Bytes with_features(const platform::CpuFeatures& features, Run&& run) {
  platform::mask_cpu_features(features);
  Bytes result = run();
  platform::mask_cpu_features(kAll);
  return result;
}

// The input ends at an unmapped page, the output at bytes that must stay.
template <class Kernel>
Bytes run_kernel(Kernel kernel, const Bytes& input, std::size_t output_bytes) {
  constexpr std::uint8_t kGuard = 0xA5;
  const GuardedBlock in(input);
  Bytes out(output_bytes + 32, kGuard);
  kernel(in.data(), out.data());
  for (std::size_t i = output_bytes; i < out.size(); ++i) EXPECT_EQ(out[i], kGuard) << i;
  return out;
}

TEST(RowKernels, EqualThePortableOnesAtEveryWidth) {
  const LeastWhite least{{5, 129, 33, 161, 9, 253, 0, 169}};
  std::uint32_t state = 1;
  for (std::int32_t width = 0; width <= 200; ++width) {
    Bytes pixels(static_cast<std::size_t>(3 * width));
    for (auto& byte : pixels) {
      state = state * 1664525 + 1013904223;
      byte = static_cast<std::uint8_t>(state >> 24);
    }
    if (width % 5 == 0) std::fill(pixels.begin(), pixels.end(), std::uint8_t{255});
    const Bytes levels(pixels.begin(), pixels.begin() + width);
    const auto w = static_cast<std::size_t>(width);
    const auto all = [&] {
      const Kernels& k = kernels();
      Bytes joined;
      const auto add = [&](const Bytes& part) {
        joined.insert(joined.end(), part.begin(), part.end());
      };
      add(run_kernel([&](auto* in, auto* out) { k.brightness_24(in, out, width); }, pixels, w));
      add(run_kernel([&](auto* in, auto* out) { k.luma_24(in, out, width); }, pixels, w));
      add(run_kernel(
          [&](auto* in, auto* out) { k.widen_24(in, reinterpret_cast<Rgb*>(out), width); }, pixels,
          4 * w));
      add(run_kernel([&](auto* in, auto* out) { k.widen_24_reversed(in, out, width); }, pixels,
                     4 * w));
      add(run_kernel([&](auto* in, auto* out) { k.at_least(in, least, out, width); }, levels,
                     (w + 7) / 8));
      return joined;
    };
    EXPECT_EQ(with_features(kAll, all), with_features({}, all)) << width;
  }
}

// Wide rows take ways of their own.
TEST(WideRows, OperationsEqualThePortableOnes) {
  for (const int width : {1023, 1024, 1279, 1280, 1281, 2480, 4001}) {
    for (int pattern = 0; pattern < 4; ++pattern) {
      for (const test::NamedOperation& operation : test::all_operations()) {
        const int bits =
            std::string(operation.name) == "diffusion_mono" && pattern % 2 == 0 ? 8 : 24;
        const auto run = [&] {
          const test::KeptImage image({bits, 0, width, 7}, pattern);
          if (operation.run(image.handle()) < 0) return Bytes{};
          Bytes joined;
          const test::Snapshot result = test::snapshot(image.handle());
          for (const Bytes& row : result.rows) joined.insert(joined.end(), row.begin(), row.end());
          return joined;
        };
        EXPECT_EQ(with_features(kAll, run), with_features({}, run))
            << operation.name << " " << width << " " << pattern;
      }
    }
  }
  IMGLOW_set_dithermode(1);
}

}  // namespace
}  // namespace tq::process
