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

const Kernels kPortable = select_kernels({});

class JpegKernelsTest : public testing::Test {
 protected:
  int below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }
  std::mt19937 random{1};
};

TEST_F(JpegKernelsTest, InverseTransformsAgreeUpToTheirBound) {
  for (const auto& features : feature_sets()) {
    const Kernels kernels = select_kernels(features);
    for (int round = 0; round < 20000; ++round) {
      DequantiseTable table;
      alignas(32) std::int16_t blocks[2][kBlock] = {};
      for (std::uint16_t& step : table.steps) step = static_cast<std::uint16_t>(1 + below(99));
      for (auto& block : blocks) {
        // As large as the bound allows, on few places or many, with the signs that add up.
        const int count = 1 + below(64);
        int left = static_cast<int>(kMostFor16Bits) - 1;
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
      kPortable.inverse(blocks[0], table, expected, 16);
      kernels.inverse_small(blocks[0], table, single, 16);
      ASSERT_TRUE(std::equal(expected, expected + 128, single)) << round;
      kPortable.inverse(blocks[1], table, expected + 8, 16);
      kernels.inverse_small_pair({blocks[0], blocks[1]}, table, {pair, pair + 8}, 16);
      ASSERT_TRUE(std::equal(expected, expected + 128, pair)) << round;
      ASSERT_EQ(kernels.magnitude(blocks[0], table), kPortable.magnitude(blocks[0], table));
    }
  }
}

TEST_F(JpegKernelsTest, QuantisationIsTheDivisionByDefinition) {
  for (int step = 1; step <= 255; ++step) {
    std::array<std::uint8_t, kBlock> steps;
    steps.fill(static_cast<std::uint8_t>(step));
    const QuantiseTable table = quantise_table(steps);
    for (int from = -4224; from < 4224; from += kBlock) {
      std::int16_t coefficients[kBlock];
      QuantisedBlock found;
      for (int i = 0; i < kBlock; ++i)
        coefficients[kZigzag[i]] = static_cast<std::int16_t>(from + i);
      quantise(coefficients, table, found);
      for (int i = 0; i < kBlock; ++i) {
        const int value = from + i, amount = std::abs(value);
        const int result = step == 1 ? amount / 4 : (amount + 2 * step) / (4 * step);
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
    std::array<std::uint8_t, kBlock> steps;
    for (auto& step : steps) step = static_cast<std::uint8_t>(1 + (round + below(4)) % 255);
    const QuantiseTable table = quantise_table(steps);
    QuantisedBlock expected[kBlocks], found[kBlocks + 1];
    kPortable.forward(samples.data(), kStride, kBlocks, table, expected);
    for (const auto& features : feature_sets()) {
      select_kernels(features).forward(samples.data(), kStride, kBlocks, table, found);
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
  for (const auto& features : feature_sets()) {
    for (const bool halved : {false, true}) {
      EXPECT_EQ(convert(select_kernels(features), halved), convert(kPortable, halved));
    }
  }
}

}  // namespace
}  // namespace tq::test
