// Every variant of a kernel gives the numbers of the portable one; quantisation is what its
// definition says.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "formats/jpeg/dsp/kernels.h"

namespace tq::test {
namespace {

using namespace jpeg;

std::vector<platform::CpuFeatures> feature_sets() {
  const platform::CpuFeatures all = platform::cpu_features();
  std::vector<platform::CpuFeatures> sets;
  platform::CpuFeatures some;
  for (bool platform::CpuFeatures::*feature :
       {&platform::CpuFeatures::sse2, &platform::CpuFeatures::ssse3, &platform::CpuFeatures::sse41,
        &platform::CpuFeatures::avx2}) {
    if (!(all.*feature)) continue;
    some.*feature = true;
    sets.push_back(some);
  }
  return sets;
}

// Every set of both accuracies, with the portable one of its accuracy.
struct KernelPair {
  Kernels kernels, portable;
};
std::vector<KernelPair> kernel_pairs() {
  std::vector<KernelPair> pairs;
  for (const Accuracy accuracy : {Accuracy::coarse, Accuracy::exact}) {
    for (const auto& features : feature_sets()) {
      pairs.push_back({select_kernels(features, accuracy), select_kernels({}, accuracy)});
    }
  }
  return pairs;
}

class JpegKernelsTest : public testing::Test {
 protected:
  int below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }
  std::mt19937 random{1};
};

TEST_F(JpegKernelsTest, InverseTransformsAgreeUpToTheirBound) {
  for (const auto& [kernels, portable] : kernel_pairs()) {
    for (int round = 0; round < 20000; ++round) {
      DequantiseTable table;
      alignas(32) std::int16_t blocks[2][kBlock] = {};
      for (std::uint16_t& step : table.steps) step = static_cast<std::uint16_t>(1 + below(99));
      for (auto& block : blocks) {
        // As large as the bound allows, on few places or many, with the signs that add up.
        const int count = 1 + below(64);
        int left = static_cast<int>(portable.small_below) - 1;
        for (int i = 0; i < count; ++i) {
          const int place = below(64);
          if (block[place] != 0) continue;
          const int most = left / table.steps[place] / (i + 1 == count ? 1 : 1 + below(3));
          block[place] = static_cast<std::int16_t>(below(2) != 0 ? most : -most);
          left -= most * table.steps[place];
        }
      }
      // The first block alone, then both beside each other.
      std::uint8_t expected[16 * 8] = {}, single[16 * 8] = {}, pair[16 * 8] = {};
      portable.inverse(blocks[0], table, expected, 16);
      kernels.inverse_small(blocks[0], table, single, 16);
      ASSERT_TRUE(std::equal(expected, expected + 128, single)) << round;
      portable.inverse(blocks[1], table, expected + 8, 16);
      kernels.inverse_small_pair({blocks[0], blocks[1]}, table, {pair, pair + 8}, 16);
      ASSERT_TRUE(std::equal(expected, expected + 128, pair)) << round;
      ASSERT_EQ(kernels.magnitude(blocks[0], table), portable.magnitude(blocks[0], table));
    }
  }
}

double basis(int x, int u) {
  return (u == 0 ? std::sqrt(0.125) : 0.5) * std::cos((2 * x + 1) * u * std::numbers::pi / 16);
}

// Samples from whole coefficients, and back: as exact arithmetic would, but for one in a thousand.
TEST_F(JpegKernelsTest, ExactTransformsAreWithinOne) {
  constexpr int kRounds = 2000;
  const Kernels kernels = select_kernels({}, Accuracy::exact);
  DequantiseTable ones;
  std::fill_n(ones.steps, kBlock, std::uint16_t{1});
  std::array<std::uint8_t, kBlock> steps;
  steps.fill(1);
  const QuantiseTable table = quantise_table(steps, Accuracy::exact);
  int far = 0;
  for (int round = 0; round < kRounds; ++round) {
    std::int16_t samples[kBlock], block[kBlock];
    for (std::int16_t& sample : samples) sample = static_cast<std::int16_t>(below(256) - 128);
    QuantisedBlock found;
    kernels.forward(samples, 8, 1, table, &found);
    for (int v = 0; v < 8; ++v) {
      for (int u = 0; u < 8; ++u) {
        double sum = 0;
        for (int i = 0; i < kBlock; ++i) sum += samples[i] * basis(i % 8, u) * basis(i / 8, v);
        far += std::abs(found.values[8 * v + u] - sum) > 0.6;
        block[8 * u + v] = found.values[8 * v + u];  // column by column
      }
    }
    std::uint8_t back[kBlock];
    kernels.inverse(block, ones, back, 8);
    for (int i = 0; i < kBlock; ++i) {
      double sum = 128;
      for (int k = 0; k < kBlock; ++k) sum += block[k] * basis(i % 8, k / 8) * basis(i / 8, k % 8);
      far += std::abs(back[i] - std::clamp(sum, 0.0, 255.0)) > 0.6;
    }
  }
  EXPECT_LT(far, 2 * kRounds * kBlock / 1000);
}

TEST_F(JpegKernelsTest, QuantisationIsTheDivisionByDefinition) {
  for (int n = 0; n < 2 * 255; ++n) {
    const int step = 1 + n / 2;
    const bool coarse = n % 2 == 0;
    std::array<std::uint8_t, kBlock> steps;
    steps.fill(static_cast<std::uint8_t>(step));
    const QuantiseTable table = quantise_table(steps, coarse ? Accuracy::coarse : Accuracy::exact);
    for (int from = -8448; from < 8448; from += kBlock) {
      std::int16_t coefficients[kBlock];
      QuantisedBlock found;
      for (int i = 0; i < kBlock; ++i)
        coefficients[kZigzag[i]] = static_cast<std::int16_t>(from + i);
      quantise(coefficients, table, found);
      for (int i = 0; i < kBlock; ++i) {
        const int value = from + i, amount = std::abs(value);
        const int result = coarse ? step == 1 ? amount / 4 : (amount + 2 * step) / (4 * step)
                                  : (amount + 4 * step) / (8 * step);
        ASSERT_EQ(found.values[kZigzag[i]], value < 0 ? -result : result) << step << " " << value;
        ASSERT_EQ(found.present >> i & 1, result != 0);
      }
    }
  }
}

// Blocks of samples up to the largest, in the patterns that make single coefficients as large as
// they can be, with every step.
TEST_F(JpegKernelsTest, QuantisedBlocksAgree) {
  constexpr int kBlocks = 7, kStride = 8 * kBlocks + 8;
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::int16_t> samples(8 * kStride);
    const int kind = below(3), u = below(8), v = below(8), period = 1 + below(9);
    for (int i = 0; i < 8 * kStride; ++i) {
      const int x = i % kStride % 8, y = i / kStride;
      const bool bright = kind == 0 ? std::cos((2 * x + 1) * u * std::numbers::pi / 16) *
                                              std::cos((2 * y + 1) * v * std::numbers::pi / 16) >
                                          0
                          : kind == 1 ? i % period < 3
                                      : below(2) != 0;
      samples[i] = static_cast<std::int16_t>(below(8) == 0 && kind != 0 ? below(258) - 129
                                             : bright                   ? 128
                                                                        : -129);
    }
    std::vector<std::int16_t> levels = samples;  // the exact ones never leave -128 .. 127
    for (std::int16_t& level : levels) level = std::clamp<std::int16_t>(level, -128, 127);
    std::array<std::uint8_t, kBlock> steps;
    for (auto& step : steps) step = static_cast<std::uint8_t>(1 + (round + below(4)) % 255);
    for (const auto& [kernels, portable] : kernel_pairs()) {
      const std::int16_t* from = (kernels.accuracy == Accuracy::coarse ? samples : levels).data();
      const QuantiseTable table = quantise_table(steps, kernels.accuracy);
      QuantisedBlock expected[kBlocks], found[kBlocks + 1];
      portable.forward(from, kStride, kBlocks, table, expected);
      kernels.forward(from, kStride, kBlocks, table, found);
      for (int i = 0; i < kBlocks; ++i) {
        ASSERT_EQ(found[i].present, expected[i].present) << round;
        ASSERT_TRUE(std::equal(found[i].values, found[i].values + kBlock, expected[i].values));
      }
    }
  }
}

TEST_F(JpegKernelsTest, ColoursOfAllChromaValuesAgree) {
  constexpr int kCount = 65536;
  std::vector<std::uint8_t> y(kCount), cb(kCount + kKernelMargin), cr(kCount + kKernelMargin);
  for (std::size_t i = 0; i < y.size(); ++i) {
    cb[i] = static_cast<std::uint8_t>(i);
    cr[i] = static_cast<std::uint8_t>(i >> 8);
    y[i] = static_cast<std::uint8_t>(below(256));
  }
  y.resize(kCount + kKernelMargin);
  const auto convert = [&](const Kernels& k, bool halved) {
    std::vector<std::uint8_t> bgr(3 * (kCount + kKernelMargin));
    (halved ? k.ycc_to_bgr_halved : k.ycc_to_bgr)(y.data(), cb.data(), cr.data(), bgr.data(),
                                                  kCount);
    bgr.resize(3 * kCount);
    return bgr;
  };
  for (const auto& [kernels, portable] : kernel_pairs()) {
    for (const bool halved : {false, true}) {
      EXPECT_EQ(convert(kernels, halved), convert(portable, halved));
    }
  }
}

// Of all values beside each other, in rows of all lengths: what widens and what narrows.
TEST_F(JpegKernelsTest, RowsOfEveryLengthAgree) {
  constexpr int kMost = 200;
  std::vector<std::uint8_t> rows(2 * (kMost + 2 * kKernelMargin) * 3);
  for (auto& sample : rows) sample = static_cast<std::uint8_t>(below(4) == 0 ? 255 : below(256));
  const std::uint8_t* const near = rows.data() + kKernelMargin;
  const std::uint8_t* const far = near + 3 * kMost;
  std::vector<std::int16_t> levels(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    levels[i] = static_cast<std::int16_t>(rows[i] - 128);
  for (const auto& [kernels, portable] : kernel_pairs()) {
    for (int count = 1; count <= kMost; ++count) {
      const auto widened = [&](const Kernels& k) {
        std::vector<std::uint8_t> out(4 * (2 * kMost + kKernelMargin));
        std::uint8_t* to = out.data();
        const auto next = [&](int made) {
          to += made;
          std::fill(to, out.data() + out.size(), std::uint8_t{0});
        };
        k.smooth_across(near, to, count), next(2 * count);
        k.smooth_down({near, far}, 1, to, count), next(count);
        k.smooth_down({near, far}, 2, to, count), next(count);
        k.smooth_both({near, far}, to, count), next(2 * count);
        return out;
      };
      ASSERT_EQ(widened(kernels), widened(portable)) << count;
      const auto narrowed = [&](const Kernels& k) {
        std::vector<std::int16_t> out(6 * (kMost + kKernelMargin));
        std::int16_t* to = out.data();
        const auto next = [&](int made) {
          to += made;
          std::fill(to, out.data() + out.size(), std::int16_t{0});
        };
        k.halve_across(levels.data(), to, count / 2), next(count / 2);
        k.halve_both(levels.data(), levels.data() + kMost, to, count / 2), next(count / 2);
        k.bgr_to_luma(near, to, count), next(count);
        k.bgr_to_ycc(near, 1, to, to + kMost + kKernelMargin, to + 2 * (kMost + kKernelMargin),
                     count);
        for (int i = 0; i < 3; ++i) {  // what is written behind the row may differ
          std::fill_n(to + i * (kMost + kKernelMargin) + count, kMost + kKernelMargin - count,
                      std::int16_t{0});
        }
        return out;
      };
      ASSERT_EQ(narrowed(kernels), narrowed(portable)) << count;
    }
  }
}

}  // namespace
}  // namespace tq::test
