// Pages cleaned: marks stay and specks go, wherever a page is cut into parts for it.
#include <gtest/gtest.h>

#include <climits>
#include <utility>

#include "include/tarnquill.h"
#include "tests/process/generated_image.h"
#include "tests/process/page.h"

namespace tq::test {
namespace {

using Image = std::int32_t;

// Letters of bars, with dots and specks about them, in lines.
Page noisy_page(int width, int height) {
  Page page(width, height);
  std::uint32_t state = 5;
  const auto below = [&](int most) {
    state = state * 1664525 + 1013904223;
    return static_cast<int>((state >> 16) % static_cast<std::uint32_t>(most));
  };
  for (int i = 0; i < width * height / 400; ++i) {
    page.draw(below(width), below(height), 1 + below(4), 1 + below(4));
  }
  for (int i = 0; i < width * height / 2500; ++i) {
    page.draw(below(width), below(height), 2 + below(20), 2 + below(40));
  }
  for (int i = 0; i < width * height / 200; ++i) {
    page.erase(below(width), below(height), 1 + below(3), 1 + below(3));
  }
  return page;
}

// The parts in which a page is worked on are not seen: it may begin and end anywhere.
TEST(Despeckle, TheSamePageFurtherDownIsCleanedAlike) {
  const Page content = noisy_page(300, 900);
  for (const int mode : {1, 2, 3, 5, 7}) {
    for (const auto& [width, height] : {std::pair(3, 4), std::pair(6, 2)}) {
      Page expected = content;
      const Image first =
          IMG_despeckle_bitmap(KeptImage(content.dib()).handle(), width, height, mode);
      for (const int above : {0, 61, 400}) {
        SCOPED_TRACE(testing::Message() << "mode " << mode << ", rows above " << above);
        Page page(300, 900 + above + above / 2);
        page.place(content, above);
        const KeptImage plain(page.dib()), runs(page.dib());
        ASSERT_EQ(IMG_dib_to_runs(runs.handle()), IMG_OK);
        ASSERT_GT(first, 20);
        // Holes at the edge are not enclosed; here they are not at the edge any more.
        const Image removed = IMG_despeckle_bitmap(plain.handle(), width, height, mode);
        EXPECT_TRUE(removed == first || (mode & 2) != 0);
        EXPECT_EQ(IMG_despeckle_bitmap(runs.handle(), width, height, mode), removed);
        const Page cleaned = Page::of(plain.handle());
        EXPECT_TRUE(Page::of(runs.handle()) == cleaned);
        if (above == 0) {
          expected = cleaned;
        } else {
          EXPECT_TRUE(cleaned.part(above + 9, 880) == expected.part(9, 880));
        }
      }
    }
  }
}

TEST(Despeckle, MarksOfTheWritingStayAndSpecksGo) {
  Page page(600, 700), marks(600, 700);
  const auto mark = [&](int x, int y, int w, int h) {
    page.draw(x, y, w, h);
    marks.draw(x, y, w, h);
  };
  mark(40, 60, 6, 30), mark(40, 48, 6, 6);                            // i
  mark(60, 60, 20, 30), mark(61, 46, 6, 6), mark(72, 46, 6, 6);       // an umlaut
  mark(100, 60, 20, 30), mark(124, 84, 6, 6);                         // a full stop
  mark(160, 60, 20, 30), mark(184, 84, 6, 6), mark(184, 64, 6, 6);    // a colon
  mark(300, 60, 60, 14), mark(320, 78, 6, 6), mark(330, 78, 6, 6);    // dots below a word
  mark(40, 150, 16, 30), mark(58, 174, 5, 6), mark(65, 150, 16, 30);  // a decimal point
  for (int i = 0; i < 12; ++i) mark(120 + 14 * i, 175, 4, 5);         // leaders
  page.draw(30, 300, 6, 6), page.draw(200, 310, 5, 6), page.draw(420, 330, 6, 4);
  page.draw(300, 420, 1, 6), page.draw(47, 100, 1, 1), page.draw(500, 62, 6, 6);
  page.draw(40, 640, 6, 6), page.draw(40, 655, 6, 6), page.draw(590, 694, 6, 6);
  for (const bool in_runs : {false, true}) {
    const KeptImage image(page.dib());
    if (in_runs) IMG_dib_to_runs(image.handle());
    EXPECT_EQ(IMG_despeckle_bitmap(image.handle(), 7, 7, 5), 9);
    EXPECT_TRUE(Page::of(image.handle()) == marks);
    EXPECT_GT(IMG_despeckle_bitmap(image.handle(), 7, 7, 1), 20) << "without 4 all go";
  }
}

// Wider than run lists can be, with small things at both ends.
TEST(Despeckle, RowsOfAnyWidth) {
  Page page(70001, 5);
  page.draw(0, 0, 2, 2), page.draw(69999, 3, 2, 2), page.draw(300, 1, 60000, 3);
  page.erase(65530, 2, 3, 1);
  const KeptImage image(page.dib());
  EXPECT_EQ(IMG_despeckle_bitmap(image.handle(), 3, 3, 3), 2);
  Page expected(70001, 5);
  expected.draw(300, 1, 60000, 3);
  EXPECT_TRUE(Page::of(image.handle()) == expected);
}

// A form: ruled lines, strokes through them, a word under a line of its own, a bar.
TEST(RemoveLines, WhatCrossesThemStaysWhole) {
  Page page(800, 600), writing(800, 600);
  const auto write = [&](int x, int y, int w, int h) {
    page.draw(x, y, w, h);
    writing.draw(x, y, w, h);
  };
  for (int i = 0; i < 40; ++i) write(300 + i, 80 + i, 3, 1);  // a stroke that slants
  for (int i = 0; i < 9; ++i) write(100 + 12 * i, 90 + i % 3, 3, 30);
  write(230, 280, 4, 40), write(500, 500, 40, 30);
  write(600, 450, 60, 2);                                       // a hyphen, too short
  for (int i = 0; i < 14; ++i) write(560 + 8 * i, 352, 4, 20);  // letters on a line of their own
  write(560, 350, 110, 2);
  for (int x = 40; x < 740; ++x) page.draw(x, 100 + (x - 40) / 90, 1, 3);  // slanting
  page.draw(40, 300, 700, 2), page.draw(400, 180, 3, 260), page.draw(200, 180, 2, 100);
  page.draw(200, 320, 2, 100);
  struct Case {
    int mode, lines;
  };
  for (const auto& [mode, lines] : {Case{1, 2}, Case{2, 3}, Case{3, 5}}) {
    SCOPED_TRACE(mode);
    const KeptImage plain(page.dib()), runs(page.dib());
    ASSERT_EQ(IMG_dib_to_runs(runs.handle()), IMG_OK);
    EXPECT_EQ(IMG_remove_lines(plain.handle(), 100, 5, mode), lines);
    EXPECT_EQ(IMG_remove_lines(runs.handle(), 100, 5, mode), lines);
    const Page left = Page::of(plain.handle());
    EXPECT_TRUE(Page::of(runs.handle()) == left);
    int lost = 0, line_ink = 0;
    for (int y = 0; y < 600; ++y) {
      for (int x = 0; x < 800; ++x) {
        lost += writing.at(x, y) && !left.at(x, y);
        line_ink += left.at(x, y) && !writing.at(x, y);
      }
    }
    EXPECT_LE(lost, 4);
    if (mode == 3) {
      EXPECT_LE(line_ink, 40);
    }
  }
}

TEST(Cleaning, ArgumentsOutsideTheirSetLeaveTheImage) {
  struct Case {
    int bits;
    Image (*run)(Image);
    std::int32_t status = IMG_UNSUPPORTED;
  };
  const Case cases[] = {
      {1, [](Image i) { return IMG_despeckle_bitmap(i, 0, 3, 1); }},
      {1, [](Image i) { return IMG_despeckle_bitmap(i, 3, INT_MIN, 1); }},
      {1, [](Image i) { return IMG_despeckle_bitmap(i, 3, 3, 0); }},
      {1, [](Image i) { return IMG_despeckle_bitmap(i, 3, 3, 4); }},
      {1, [](Image i) { return IMG_despeckle_bitmap(i, 3, 3, 8); }},
      {1, [](Image i) { return IMG_despeckle_bitmap(i, INT_MAX, INT_MAX, 2); }, IMG_OK},
      {8, [](Image i) { return IMG_despeckle_bitmap(i, 0, 3, 1); }, IMG_WRONG_DEPTH},
      {1, [](Image i) { return IMG_remove_lines(i, -1, 3, 1); }},
      {1, [](Image i) { return IMG_remove_lines(i, 3, INT_MIN, 1); }},
      {1, [](Image i) { return IMG_remove_lines(i, 3, 3, 0); }},
      {1, [](Image i) { return IMG_remove_lines(i, 3, 3, 4); }},
      {1, [](Image i) { return IMG_remove_lines(i, INT_MAX, INT_MAX, 3); }, IMG_OK},
      {24, [](Image i) { return IMG_remove_lines(i, 0, 0, 0); }, IMG_WRONG_DEPTH},
      {8, [](Image i) { return IMG_autocrop_bitmap(i, -1); }},
      {16, [](Image i) { return IMG_autocrop_bitmap(i, -1); }, IMG_WRONG_DEPTH},
      {4, [](Image i) { return IMG_remove_border(i, 16); }},
      {24, [](Image i) { return IMG_remove_border(i, -2); }},
      {16, [](Image i) { return IMG_remove_border(i, 0); }, IMG_WRONG_DEPTH},
      {1, [](Image i) { return IMG_is_blank(i, -1); }},
      {24, [](Image i) { return IMG_is_blank(i, 101); }},
      {16, [](Image i) { return IMG_is_blank(i, 0); }, IMG_WRONG_DEPTH},
      {16, [](Image i) { return IMG_find_paper(i, nullptr, nullptr, nullptr, nullptr); },
       IMG_WRONG_DEPTH},
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
