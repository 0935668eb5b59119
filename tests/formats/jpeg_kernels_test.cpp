// Every variant of a kernel gives the numbers of the portable one; the portable ones are what the
// definitions say.
#include <gmock/gmock.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "formats/jpeg/kernels.h"

namespace tq::test {
namespace {

using namespace formats;

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

class JpegKernelsTest : public testing::Test {
 protected:
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
  std::mt19937 random_{1};
};

TEST_F(JpegKernelsTest, InverseTransformsAgreeUpToTheirBound) {
  for (const auto& features : feature_sets()) {
    const JpegKernels kernels = select_kernels(features);
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
      inverse_transform(blocks[0], table, expected, 16);
      kernels.inverse_small(blocks[0], table, single, 16);
      ASSERT_TRUE(std::equal(expected, expected + 128, single)) << round;
      inverse_transform(blocks[1], table, expected + 8, 16);
      kernels.inverse_small_pair({blocks[0], blocks[1]}, table, {pair, pair + 8}, 16);
      ASSERT_TRUE(std::equal(expected, expected + 128, pair)) << round;
      ASSERT_EQ(kernels.ac_magnitude(blocks[0], table), ac_magnitude(blocks[0], table));
    }
  }
}

TEST_F(JpegKernelsTest, ForwardTransformsAgreeAndAreFourTimesOrthonormal) {
  double worst = 0;
  for (int round = 0; round < 5000; ++round) {
    std::int16_t samples[kBlock], expected[kBlock], found[kBlock];
    const int kind = below(4);
    for (int i = 0; i < kBlock; ++i) {
      const int extreme = below(2) != 0 ? 128 : -128;
      samples[i] = static_cast<std::int16_t>(kind == 0 ? extreme : below(257) - 128);
      if (kind == 1) samples[i] = static_cast<std::int16_t>(i % (1 + round % 9) < 3 ? 128 : -128);
      if (kind == 2) samples[i] = static_cast<std::int16_t>(round % 257 - 128);
    }
    forward_transform(samples, 8, expected);
    for (const auto& features : feature_sets()) {
      select_kernels(features).forward(samples, 8, found);
      ASSERT_TRUE(std::equal(expected, expected + kBlock, found)) << round;
    }
    if (round > 200) continue;
    for (int u = 0; u < 8; ++u) {
      for (int v = 0; v < 8; ++v) {
        double sum = 0;
        for (int i = 0; i < kBlock; ++i) {
          sum += samples[i] * std::cos((2 * (i % 8) + 1) * u * std::numbers::pi / 16) *
                 std::cos((2 * (i / 8) + 1) * v * std::numbers::pi / 16);
        }
        if (u == 0) sum /= std::numbers::sqrt2;
        if (v == 0) sum /= std::numbers::sqrt2;
        worst = std::max(worst, std::abs(sum - expected[8 * v + u]));
      }
    }
  }
  // The factors have 10 bits; these are the largest samples, and values 4 times the coefficients.
  EXPECT_LT(worst, 10);
}

TEST_F(JpegKernelsTest, QuantisationIsTheDivisionByDefinition) {
  for (int step = 1; step <= 255; ++step) {
    std::array<std::uint8_t, kBlock> steps;
    steps.fill(static_cast<std::uint8_t>(step));
    const QuantiseTable table = quantise_table(steps);
    for (int from = -4224; from < 4224; from += kBlock) {
      std::int16_t coefficients[kBlock];
      QuantisedBlock expected, found;
      for (int i = 0; i < kBlock; ++i)
        coefficients[kZigzag[i]] = static_cast<std::int16_t>(from + i);
      quantise(coefficients, table, expected);
      for (int i = 0; i < kBlock; ++i) {
        const int value = from + i, amount = std::abs(value);
        const int result = step == 1 ? amount / 4 : (amount + 2 * step) / (4 * step);
        ASSERT_EQ(expected.values[i], value < 0 ? -result : result) << step << " " << value;
        ASSERT_EQ(expected.present >> i & 1, result != 0);
      }
      for (const auto& features : feature_sets()) {
        select_kernels(features).quantise(coefficients, table, found);
        ASSERT_EQ(found.present, expected.present);
        for (int i = 0; i < kBlock; ++i) {
          if (i == 0 || (expected.present >> i & 1) != 0) {
            ASSERT_EQ(found.values[i], expected.values[i]);
          }
        }
      }
    }
  }
}

TEST_F(JpegKernelsTest, ColoursAgreeOnAllWidths) {
  // All pairs of chroma values first, then all widths.
  std::vector<std::uint8_t> y(66000), cb(66000), cr(66000);
  for (std::size_t i = 0; i < y.size(); ++i) {
    cb[i] = static_cast<std::uint8_t>(i);
    cr[i] = static_cast<std::uint8_t>(i >> 8);
    y[i] = static_cast<std::uint8_t>(below(256));
  }
  const auto convert = [&](const JpegKernels& k, bool halved, int at, int width) {
    std::vector<std::uint8_t> bgr(static_cast<std::size_t>(3 * (width + kKernelMargin)), 0x77);
    (halved ? k.ycc_to_bgr_halved : k.ycc_to_bgr)(&y[at], &cb[at], &cr[at], bgr.data(), width);
    bgr.resize(static_cast<std::size_t>(3 * width));
    return bgr;
  };
  const JpegKernels portable = select_kernels({});
  for (const auto& features : feature_sets()) {
    const JpegKernels kernels = select_kernels(features);
    for (const bool halved : {false, true}) {
      EXPECT_EQ(convert(kernels, halved, 0, 65536), convert(portable, halved, 0, 65536));
      for (int width = 0; width <= 200; ++width) {
        ASSERT_EQ(convert(kernels, halved, width, width), convert(portable, halved, width, width));
      }
    }
  }
  // 100 + 225, 100 - (43 - 91), 100 - 179
  const std::uint8_t middle = 100, low = 0, high = 255;
  std::uint8_t bgr[3];
  ycc_to_bgr(&middle, &high, &low, bgr, 1);
  EXPECT_THAT(bgr, testing::ElementsAre(255, 148, 0));
}

TEST_F(JpegKernelsTest, EncoderColoursAgreeOnAllWidthsAndSteps) {
  std::vector<std::uint8_t> bgr(3 * 5000);
  for (std::size_t i = 0; i < bgr.size(); ++i) {
    bgr[i] = static_cast<std::uint8_t>(below(4) == 0 ? 255 * below(2) : below(256));
  }
  const JpegKernels portable = select_kernels({});
  for (const auto& features : feature_sets()) {
    const JpegKernels kernels = select_kernels(features);
    for (int width = 0; width <= 200; ++width) {
      for (int step = 1; step <= 4; ++step) {
        std::vector<std::int16_t> rows[2][3];
        for (int i = 0; i < 2; ++i) {
          const JpegKernels& k = i == 0 ? kernels : portable;
          for (auto& row : rows[i]) row.assign(static_cast<std::size_t>(width + kKernelMargin), 0);
          const std::uint8_t* from = &bgr[static_cast<std::size_t>(3 * width + step)];
          k.bgr_to_luma(from, rows[i][0].data(), width);
          k.bgr_to_chroma(from, step, rows[i][1].data(), rows[i][2].data(), width);
          rows[i][0].resize(static_cast<std::size_t>(width));
          for (int c = 1; c < 3; ++c) {
            rows[i][c].resize(static_cast<std::size_t>((width + step - 1) / step));
          }
        }
        for (int c = 0; c < 3; ++c) ASSERT_EQ(rows[0][c], rows[1][c]) << width << " " << step;
      }
    }
  }
}

}  // namespace
}  // namespace tq::test
