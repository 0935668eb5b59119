// The process-wide settings as callers set and see them.
#include "core/settings.h"

#include <gmock/gmock.h>

#include <climits>

#include "core/licence.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

class SettingsExports : public LibraryTest {};

TEST_F(SettingsExports, DetectionSwitchesAreSharedByVariants) {
  for (std::int32_t code = 0; code <= 66; ++code) {
    EXPECT_EQ(IMGLOW_get_auto_detect(code), code == 38 || code == 66 ? 0 : 1) << code;
  }
  for (const std::int32_t code : {-1, 67, 1000, INT_MIN, INT_MAX}) {
    EXPECT_EQ(IMGLOW_get_auto_detect(code), -7);
    EXPECT_EQ(IMGLOW_set_auto_detect(code), -7);
    EXPECT_EQ(IMGLOW_unset_auto_detect(code), -7);
  }
  struct Group {
    std::int32_t base;
    std::vector<std::int32_t> variants;
  };
  for (const Group& group : std::vector<Group>{
           {0, {7, 8, 9, 10, 16, 17, 40}}, {1, {12}}, {44, {}}, {46, {}}, {66, {}}}) {
    for (std::int32_t code = 0; code <= 66; ++code) IMGLOW_set_auto_detect(code);
    EXPECT_EQ(IMGLOW_unset_auto_detect(group.base), 1);
    EXPECT_EQ(IMGLOW_unset_auto_detect(group.base), 0) << "the previous value";
    for (std::int32_t code = 0; code <= 66; ++code) {
      const bool shared =
          code == group.base || testing::Matches(testing::Contains(code))(group.variants);
      EXPECT_EQ(IMGLOW_get_auto_detect(code), shared ? 0 : 1) << group.base << ' ' << code;
    }
    for (const std::int32_t variant : group.variants) {
      EXPECT_EQ(IMGLOW_set_auto_detect(variant), 0);
      EXPECT_EQ(IMGLOW_get_auto_detect(group.base), 1);
      EXPECT_EQ(IMGLOW_unset_auto_detect(variant), 1);
    }
  }
}

TEST_F(SettingsExports, DecodeRectangleKeepsAllButNegativeOffsets) {
  EXPECT_EQ(IMGLOW_set_decomp_rect(-5, INT_MIN, 10, 10), 0);
  const Rect& rect = settings().decomp_rect;
  EXPECT_THAT((std::array{rect.x, rect.y, rect.width, rect.height}),
              testing::ElementsAre(0, 0, 10, 10));
  EXPECT_EQ(IMGLOW_set_decomp_rect(3, 4, -10, INT_MIN), 0);
  EXPECT_THAT((std::array{rect.x, rect.y, rect.width, rect.height}),
              testing::ElementsAre(3, 4, -10, INT_MIN));
}

std::vector<std::pair<std::intptr_t, std::int32_t>> reports;
std::int32_t answer = 0;
std::int32_t IMG_CB_STD on_progress(std::intptr_t context, std::int32_t value) {
  reports.emplace_back(context, value);
  return answer;
}

TEST_F(SettingsExports, ProgressIsReportedWhileItIsOn) {
  reports.clear();
  const auto report = [](std::int32_t answered) {
    answer = answered;
    return report_progress(42).raw();
  };
  EXPECT_EQ(report(-5), 0) << "off at first";
  EXPECT_EQ(IMG_set_statusbar(1, nullptr, 1), 0);
  EXPECT_EQ(report(-5), 0) << "nobody to call";
  EXPECT_EQ(IMG_set_statusbar(2, on_progress, 0), 0);
  EXPECT_EQ(report(-5), 0);
  EXPECT_TRUE(reports.empty());
  EXPECT_EQ(IMG_set_statusbar(INTPTR_MIN, on_progress, -1), 0);
  EXPECT_EQ(report(-5), -5);
  EXPECT_EQ(report(7), 0) << "a positive answer goes on";
  EXPECT_EQ(report(0), 0);
  EXPECT_EQ(IMG_set_statusbar(3, nullptr, 1), 0);
  EXPECT_EQ(report(-5), 0);
  EXPECT_EQ(reports, (decltype(reports){{INTPTR_MIN, 42}, {INTPTR_MIN, 42}, {INTPTR_MIN, 42}}));
}

}  // namespace
}  // namespace tq::test
