// The process-wide settings as callers set and see them.
#include "core/context.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <climits>
#include <map>

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
  for (const auto& [base, variants] : std::map<std::int32_t, std::vector<std::int32_t>>{
           {0, {7, 8, 9, 10, 16, 17, 40}}, {1, {12}}, {44, {}}, {46, {}}, {66, {}}}) {
    for (std::int32_t code = 0; code <= 66; ++code) IMGLOW_set_auto_detect(code);
    EXPECT_EQ(IMGLOW_unset_auto_detect(base), 1);
    EXPECT_EQ(IMGLOW_unset_auto_detect(base), 0) << "the previous value";
    for (std::int32_t code = 0; code <= 66; ++code) {
      const bool shared = code == base || testing::Matches(testing::Contains(code))(variants);
      EXPECT_EQ(IMGLOW_get_auto_detect(code), shared ? 0 : 1) << base << ' ' << code;
    }
    for (const std::int32_t variant : variants) {
      EXPECT_EQ(IMGLOW_set_auto_detect(variant), 0);
      EXPECT_EQ(IMGLOW_get_auto_detect(base), 1);
      EXPECT_EQ(IMGLOW_unset_auto_detect(variant), 1);
    }
  }
}

TEST_F(SettingsExports, DecodeRectangleBeginsInsideTheImage) {
  for (const auto& [x, y] : {std::pair{3, 4}, {-1, 4}, {3, -1}}) {
    EXPECT_EQ(IMGLOW_set_decomp_rect(x, y, -5, 6), 0);
    const Rect& rect = context().settings.decomp_rect;
    EXPECT_THAT((std::array{rect.x, rect.y, rect.width, rect.height}),
                testing::ElementsAre(std::max(x, 0), std::max(y, 0), -5, 6));
  }
}

std::vector<std::pair<std::intptr_t, std::int32_t>> reports;
std::int32_t answer = 0;
std::int32_t IMG_CB_STD on_progress(std::intptr_t context, std::int32_t value) {
  reports.emplace_back(context, value);
  return answer;
}

TEST_F(SettingsExports, ProgressIsReportedWhileItIsOn) {
  reports.clear();
  answer = -5;
  EXPECT_EQ(report_progress(42), kOk) << "off at first";
  EXPECT_EQ(IMG_set_statusbar(1, nullptr, 1), 0);
  EXPECT_EQ(report_progress(42), kOk) << "nobody to call";
  EXPECT_EQ(IMG_set_statusbar(2, on_progress, 0), 0);
  EXPECT_EQ(report_progress(42), kOk);
  EXPECT_EQ(IMG_set_statusbar(INTPTR_MIN, on_progress, -1), 0);
  EXPECT_EQ(report_progress(43).raw(), -5);
  answer = 7;
  EXPECT_EQ(report_progress(44), kOk) << "a positive answer goes on";
  EXPECT_EQ(reports, (decltype(reports){{INTPTR_MIN, 43}, {INTPTR_MIN, 44}}));
}

TEST_F(SettingsExports, EveryStatusHasATextAndTheLibraryAVersion) {
  for (std::int32_t status = 1; status > -60; --status) ASSERT_NE(IMG_status_text(status), nullptr);
  EXPECT_STREQ(IMG_status_text(IMG_PAGE_PAST_END), "page is beyond the last one");
  EXPECT_STREQ(IMG_status_text(-6000), "unknown status");
  EXPECT_EQ(IMG_library_version(), 10000 * TARNQUILL_VERSION_MAJOR + 100 * TARNQUILL_VERSION_MINOR +
                                       TARNQUILL_VERSION_PATCH);
}

}  // namespace
}  // namespace tq::test
