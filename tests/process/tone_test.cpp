// Operations on levels: what must stay, and arguments that are refused.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "core/dib.h"
#include "include/tarnquill.h"
#include "tests/process/generated_image.h"

namespace tq::test {
namespace {

using Image = std::int32_t;

constexpr std::int32_t kWeights[15] = {1 << 23, 1};

// An entry that comes twice keeps both its indices.
TEST(Tone, NothingToDoChangesNoPixel) {
  for (const int bits : {4, 8, 24, 32}) {
    Bytes dib = generate_dib({bits}, 33, 17, 0);
    if (bits <= 8) std::memcpy(&dib[kDibHeaderBytes + 4], &dib[kDibHeaderBytes + 8], 4);
    const KeptImage image(std::move(dib));
    const Snapshot before = snapshot(image.handle());
    ASSERT_EQ(IMG_tone_bitmap(image.handle(), 0, 0, 100), IMG_OK);
    EXPECT_TRUE(snapshot(image.handle()) == before) << bits;
  }
}

TEST(Tone, LevelsOfOneColourAreLeftAlone) {
  for (const auto adjust : {+[](Image i) { return IMG_auto_levels(i, 0); },
                            +[](Image i) { return IMG_equalize_bitmap(i); }}) {
    Bytes dib = generate_dib({24}, 20, 9, 3);
    std::fill_n(dib.rbegin(), 9 * row_bytes(20, 24), std::uint8_t{77});
    const KeptImage image(std::move(dib));
    const Snapshot before = snapshot(image.handle());
    ASSERT_EQ(adjust(image.handle()), IMG_OK);
    EXPECT_TRUE(snapshot(image.handle()).rows == before.rows);
  }
}

// Of any window, also one that is much larger than the image; and what is equal everywhere has no
// edges.
TEST(Filter, AConstantStays) {
  for (const int level : {0, 77, 255}) {
    Bytes dib = generate_dib({24}, 21, 13, 3);
    std::fill_n(dib.rbegin(), 13 * row_bytes(21, 24), static_cast<std::uint8_t>(level));
    for (int kind = 0; kind <= 5; ++kind) {
      const bool has_deviation = kind == 1 || kind == 5;
      for (const int radius : {1, 9, 127}) {
        const KeptImage image(dib);
        const Snapshot before = snapshot(image.handle());
        const int given = has_deviation ? radius * 78 : radius;
        ASSERT_EQ(IMG_filter_bitmap(image.handle(), kind, given, 300), IMG_OK);
        for (std::size_t y = 0; y < before.rows.size(); ++y) {
          ASSERT_TRUE(std::equal(before.rows[y].begin(), before.rows[y].begin() + 63,
                                 snapshot(image.handle()).rows[y].begin()))
              << kind << ", radius " << given << ", level " << level;
        }
      }
    }
  }
}

std::int32_t IMG_CB_STD paint(std::intptr_t image, std::int32_t) {
  static std::uint8_t level = 0;
  Bytes row(40, level = static_cast<std::uint8_t>(level + 51));
  for (int y = 0; y < 40; ++y) {
    IMGLOW_put_raster(static_cast<std::int32_t>(image), row.data(), y, 0);
  }
  return 0;
}

// The pixels may be others at the next row: what was counted before may then be what is not there.
TEST(Filter, PixelsThatChangeMeanwhileDoNoHarm) {
  for (const int kind : {0, 2}) {
    const KeptImage image({8}, 40, 40, 0);
    IMG_set_statusbar(image.handle(), paint, 1);
    EXPECT_EQ(IMG_filter_bitmap(image.handle(), kind, 5, 0), IMG_OK);
    IMG_set_statusbar(0, nullptr, 0);
  }
}

TEST(Tone, ArgumentsOutsideTheirSetLeaveTheImage) {
  struct Case {
    int bits;
    Image (*run)(Image);
    std::int32_t status = IMG_UNSUPPORTED;
  };
  const Case cases[] = {
      {24, [](Image i) { return IMG_tone_bitmap(i, 101, 0, 100); }},
      {24, [](Image i) { return IMG_tone_bitmap(i, 0, INT_MIN, 100); }},
      {8, [](Image i) { return IMG_tone_bitmap(i, 0, 0, 9); }},
      {8, [](Image i) { return IMG_tone_bitmap(i, 0, 0, 1001); }},
      {16, [](Image i) { return IMG_tone_bitmap(i, 101, 0, 100); }, IMG_WRONG_DEPTH},
      {24, [](Image i) { return IMG_tone_table(i, nullptr); }},
      {24, [](Image i) { return IMG_tone_table3(i, nullptr); }},
      {24, [](Image i) { return IMG_get_histogram(i, 4, nullptr); }},
      {24, [](Image i) { return IMG_get_histogram(i, -1, nullptr); }},
      {24, [](Image i) { return IMG_get_histogram(i, 3, nullptr); }, IMG_OK},
      {24, [](Image i) { return IMG_auto_levels(i, -2); }},
      {24, [](Image i) { return IMG_auto_levels(i, 5000); }},
      {1, [](Image i) { return IMG_auto_levels(i, 0); }, IMG_WRONG_DEPTH},
      {24, [](Image i) { return IMG_filter_bitmap(i, -1, 1, 0); }},
      {1, [](Image i) { return IMG_filter_bitmap(i, 7, 1, 0); }},
      {24, [](Image i) { return IMG_filter_bitmap(i, 1, 29, 0); }},
      {24, [](Image i) { return IMG_filter_bitmap(i, 5, 10001, 0); }},
      {24, [](Image i) { return IMG_filter_bitmap(i, 5, 100, 1001); }},
      {24, [](Image i) { return IMG_filter_bitmap(i, 2, 0, 0); }},
      {24, [](Image i) { return IMG_filter_bitmap(i, 0, 128, 0); }},
      {24, [](Image i) { return IMG_filter_bitmap(i, 6, 2, 0); }},
      {1, [](Image i) { return IMG_filter_bitmap(i, 1, 100, 0); }, IMG_WRONG_DEPTH},
      {16, [](Image i) { return IMG_filter_bitmap(i, 2, 1, 0); }, IMG_WRONG_DEPTH},
      {24, [](Image i) { return IMG_convolve_bitmap(i, nullptr, 1, 1, 1, 0); }},
      {24, [](Image i) { return IMG_convolve_bitmap(i, kWeights, 2, 1, 1, 0); }},
      {24, [](Image i) { return IMG_convolve_bitmap(i, kWeights, 1, 17, 1, 0); }},
      {24, [](Image i) { return IMG_convolve_bitmap(i, kWeights, 1, -1, 1, 0); }},
      {24, [](Image i) { return IMG_convolve_bitmap(i, kWeights, 1, 1, 0, 0); }},
      {24, [](Image i) { return IMG_convolve_bitmap(i, kWeights, 3, 1, 1, 0); }},
      {24, [](Image i) { return IMG_convolve_bitmap(i, kWeights, 1, 1, 1 << 23, 0); }, IMG_OK},
      {24, [](Image i) { return IMG_quantize_bitmap(i, 5, 16, 0); }},
      {24, [](Image i) { return IMG_quantize_bitmap(i, 4, 17, 0); }},
      {24, [](Image i) { return IMG_quantize_bitmap(i, 8, 1, 0); }},
      {24, [](Image i) { return IMG_quantize_bitmap(i, 8, 256, 2); }},
      {8, [](Image i) { return IMG_quantize_bitmap(i, 8, 256, 0); }, IMG_WRONG_DEPTH},
  };
  for (const Case& c : cases) {
    const KeptImage image({c.bits}, 20, 9, 3);
    const Snapshot before = snapshot(image.handle());
    EXPECT_EQ(c.run(image.handle()), c.status) << &c - cases;
    EXPECT_TRUE(snapshot(image.handle()) == before) << &c - cases;
  }
}

}  // namespace
}  // namespace tq::test
