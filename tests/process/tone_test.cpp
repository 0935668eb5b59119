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
  };
  for (const Case& c : cases) {
    const KeptImage image({c.bits}, 20, 9, 3);
    const Snapshot before = snapshot(image.handle());
    EXPECT_EQ(c.run(image.handle()), c.status) << &c - cases;
    EXPECT_TRUE(snapshot(image.handle()) == before);
  }
}

}  // namespace
}  // namespace tq::test
