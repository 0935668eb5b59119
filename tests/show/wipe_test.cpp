// Effects uncover every pixel of a window exactly once.
#include "show/wipe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "include/tarnquill.h"

namespace tq::test {
namespace {

TEST(Wipe, UncoversEveryPixelOnce) {
  for (std::int32_t effect = 0; effect <= show::kLastEffect; ++effect) {
    for (const Size window : {Size{1, 1}, Size{17, 5}, Size{640, 480}}) {
      for (const std::int32_t steps : {1, 7, 64}) {
        SCOPED_TRACE(testing::Message() << effect << " in " << steps << ", " << window.width);
        std::vector<int> covered(static_cast<std::size_t>(window.width * window.height));
        int steps_with_any = 0;
        for (std::int32_t step = 0; step < steps; ++step) {
          const std::int32_t count =
              IMGLOW_wipe_rects(effect, step, steps, window.width, window.height, nullptr, 0);
          ASSERT_GE(count, 0);
          std::vector<Rect> rects(static_cast<std::size_t>(count) + 1, Rect{-9, -9, -9, -9});
          ASSERT_EQ(IMGLOW_wipe_rects(effect, step, steps, window.width, window.height, &rects[0].x,
                                      count),
                    count);
          EXPECT_EQ(rects.back().x, -9);
          rects.pop_back();
          steps_with_any += count > 0;
          for (const Rect& rect : rects) {
            ASSERT_TRUE(rect.x >= 0 && rect.y >= 0 && rect.width > 0 && rect.height > 0 &&
                        rect.x + rect.width <= window.width &&
                        rect.y + rect.height <= window.height);
            for (std::int32_t y = rect.y; y < rect.y + rect.height; ++y) {
              for (std::int32_t x = rect.x; x < rect.x + rect.width; ++x) {
                ++covered[static_cast<std::size_t>(y * window.width + x)];
              }
            }
          }
        }
        EXPECT_EQ(std::count(covered.begin(), covered.end(), 1), std::ssize(covered));
        if (effect > 0 && window.width == 640) {
          EXPECT_GE(steps_with_any, steps * 9 / 10);
        }
      }
    }
  }
}

TEST(Wipe, RefusesWhatIsUnknown) {
  std::int32_t rects[8] = {};
  EXPECT_EQ(IMGLOW_wipe_rects(16, 0, 1, 9, 9, rects, 2), IMG_UNSUPPORTED);
  EXPECT_EQ(IMGLOW_wipe_rects(1, 1, 1, 9, 9, rects, 2), IMG_UNSUPPORTED);
  EXPECT_EQ(IMGLOW_wipe_rects(1, 0, 0, 9, 9, rects, 2), IMG_UNSUPPORTED);
  EXPECT_EQ(IMGLOW_wipe_rects(1, 0, 1, 0, 9, rects, 2), IMG_EMPTY_DISPLAY_RECT);
  EXPECT_EQ(IMGLOW_wipe_rects(11, 0, 2, 99, 99, rects, 2), 8);
  EXPECT_EQ(rects[3], 0) << "nothing is written where the room is too small";
  EXPECT_GT(IMGLOW_wipe_rects(15, 0, 1, INT32_MAX, INT32_MAX, nullptr, 0), 10000);
}

}  // namespace
}  // namespace tq::test
