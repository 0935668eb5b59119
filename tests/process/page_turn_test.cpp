// What is found about a page, and what is made of it: turned rightly or not at all.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "include/tarnquill.h"
#include "tests/process/generated_image.h"
#include "tests/process/page.h"

namespace tq::test {
namespace {

using Handle = std::int32_t;

class Image {
 public:
  explicit Image(Handle handle) : handle_(handle) {}
  explicit Image(const Bytes& file) : Image(IMG_create_handle_block(file.data(), file.size())) {}
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image() { IMG_delete_bitmap(handle_); }
  Handle get() const { return handle_; }

 private:
  Handle handle_;
};

using Words = std::vector<std::string>;
const Words kWords = {"the",       "old",   "library", "holds", "all",      "of",    "them",
                      "but",       "third", "shelf",   "that",  "children", "would", "behold",
                      "different", "by",    "lamps",   "and",   "until",    "doubt"};
// Of which the same share rises above small letters everywhere.
const Words kEvenWords = {"the",  "then", "that",  "with",  "find", "held",  "also", "note",
                          "line", "some", "other", "until", "tent", "there", "third"};

// Text as a page of letter paper at 200 dots per inch, 1 bit in run lists.
Handle text_page(int lines, int first_line = 0, const Words& words = kWords) {
  std::string text(static_cast<std::size_t>(first_line), '\n');
  std::uint32_t state = 1;
  for (int line = 0; line < lines; ++line) {
    std::string row;
    for (;;) {
      state = state * 1664525 + 1013904223;
      const std::string& word = words[(state >> 16) % words.size()];
      if (row.size() + word.size() > 74) break;
      row += word + " ";
    }
    text += row + "\n";
  }
  IMGLOW_set_auto_detect(IMG_TYPE_TEXT);
  const Handle page = IMG_decompress_bitmap_block(text.data(), text.size(), 0);
  IMGLOW_unset_auto_detect(IMG_TYPE_TEXT);
  return page;
}

struct Found {
  std::int32_t status, angle = 7777, confidence = 7777;
};
Found find_skew(Handle image, std::int32_t range = 0) {
  Found found{};
  found.status = IMG_find_skew(image, range, &found.angle, &found.confidence);
  return found;
}
Found find_orientation(Handle image) {
  Found found{};
  found.status = IMG_find_orientation(image, &found.angle, &found.confidence);
  return found;
}

TEST(Skew, IsUndoneToATenthOfADegreeInEveryFormOfAnImage) {
  for (const int angle : {0, 37, -130, 490, -1123, 1500}) {
    SCOPED_TRACE(angle);
    const Image page(text_page(60));
    ASSERT_EQ(IMG_rotate_bitmap(page.get(), angle, -1, 1), IMG_OK);
    const Found runs = find_skew(page.get());
    EXPECT_EQ(runs.status, 1);
    EXPECT_NEAR(runs.angle, -angle, 5);
    EXPECT_GE(runs.confidence, 400);
    ASSERT_EQ(IMG_runs_to_dib(page.get()), IMG_OK);
    const Found plain = find_skew(page.get());
    EXPECT_EQ(plain.angle, runs.angle);
    EXPECT_EQ(plain.confidence, runs.confidence);
    ASSERT_EQ(IMG_promote_24(page.get()), IMG_OK);
    EXPECT_NEAR(find_skew(page.get()).angle, runs.angle, 1);
    ASSERT_EQ(IMG_color_gray(page.get()), IMG_OK);
    EXPECT_NEAR(find_skew(page.get()).angle, runs.angle, 1);

    std::int32_t turned = 0;
    EXPECT_EQ(IMG_deskew_bitmap(page.get(), 0, -1, -1, &turned), std::abs(runs.angle) >= 5 ? 1 : 0);
    EXPECT_NEAR(turned, -angle, 5);
    EXPECT_NEAR(find_skew(page.get()).angle, 0, 5);
    std::int32_t width = 0, height = 0;
    IMG_bitmap_info(page.get(), &width, &height, nullptr);
    EXPECT_EQ(std::pair(width, height), std::pair(1700, 2200));
  }
}

TEST(Skew, WhatLiesBeyondTheRangeIsNotTurned) {
  const Image page(text_page(60));
  ASSERT_EQ(IMG_rotate_bitmap(page.get(), 900, -1, 1), IMG_OK);
  EXPECT_NEAR(find_skew(page.get(), 900).angle, -900, 5);
  EXPECT_NEAR(find_skew(page.get(), 4500).angle, -900, 5);
  for (const int range : {800, 500, 100, 1}) {
    const Found found = find_skew(page.get(), range);
    EXPECT_EQ(found.status, 0) << range;
    EXPECT_EQ(found.angle, 0);
    EXPECT_EQ(found.confidence, 0);
  }
}

// The text in three columns, the second and the third so many pixels lower.
Page columns_page(int second, int third) {
  constexpr int kColumn = 567, kGap = 40;
  const Image text(text_page(60));
  const Page page = Page::of(text.get());
  Page columns(page.width(), page.height());
  for (int y = 0; y < page.height(); ++y) {
    for (int x = 0; x < page.width(); ++x) {
      const int column = x / kColumn, to = y + (column == 0 ? 0 : column == 1 ? second : third);
      if (x % kColumn >= kGap && to >= 0 && to < page.height()) columns.at(x, to) = page.at(x, y);
    }
  }
  return columns;
}

TEST(Skew, IsThatOfLinesWhichDoNotMeetThoseOfTheNextColumn) {
  for (const auto& [second, third] : {std::pair(6, -4), std::pair(-9, 5), std::pair(4, 12)}) {
    for (const int angle : {0, 300, -720}) {
      const Image page(columns_page(second, third).dib());
      ASSERT_EQ(IMG_rotate_bitmap(page.get(), angle, -1, 1), IMG_OK);
      EXPECT_NEAR(find_skew(page.get()).angle, -angle, 5)
          << second << ", " << third << ", " << angle;
    }
  }
}

TEST(Skew, IsThatOfTheSheetWherePixelsAreNotSquare) {
  const Image page(text_page(60));
  ASSERT_EQ(IMG_resize_bitmap(page.get(), 1734, 1078, 5), IMG_OK);
  IMG_set_resolution(page.get(), 204000, 98000);
  ASSERT_EQ(IMG_rotate_bitmap(page.get(), 800, -1, 1), IMG_OK);
  EXPECT_NEAR(find_skew(page.get()).angle, -800, 8);
}

TEST(Skew, IsNotToldOfPixelsThatNoScannerHas) {
  const Image page(text_page(60));
  for (const auto& [x, y] : {std::pair(65535000, 1000), std::pair(1000, 65535000)}) {
    IMG_set_resolution(page.get(), x, y);
    EXPECT_EQ(find_skew(page.get()).status, 0);
    EXPECT_EQ(find_orientation(page.get()).status, 0);
  }
}

TEST(Skew, FewLinesInACornerAreFoundOrLeft) {
  for (const int lines : {1, 2, 5}) {
    for (const int first_line : {3, 58}) {
      const Image page(text_page(lines, first_line));
      ASSERT_EQ(IMG_rotate_bitmap(page.get(), 200, -1, 1), IMG_OK);
      const Found found = find_skew(page.get());
      if (found.confidence >= 300) {
        EXPECT_NEAR(found.angle, -200, 10) << lines << " " << first_line;
      }
    }
  }
}

// Pages of 8 bits: `level(x, y)` is a pixel's.
template <class Level>
Bytes grey_page(int width, int height, Level&& level) {
  Bytes dib = generate_dib({8}, width, height, 3);
  const auto stride = static_cast<std::size_t>(row_bytes(width, 8));
  for (int y = 0; y < height; ++y) {
    std::uint8_t* const row = &dib[1064 + static_cast<std::size_t>(height - 1 - y) * stride];
    for (int x = 0; x < width; ++x) row[x] = static_cast<std::uint8_t>(level(x, y));
  }
  return dib;
}

struct Noise {
  std::uint32_t state = 1;
  int below(int most) {
    state = state * 1664525 + 1013904223;
    return static_cast<int>((state >> 16) % static_cast<std::uint32_t>(most));
  }
};

TEST(PageSearch, WhatIsNoTextIsLeftAlone) {
  Noise noise;
  const auto screen = [](double degrees) {
    return
        [cosine = std::cos(degrees / 57.29578), sine = std::sin(degrees / 57.29578)](int x, int y) {
          if (x < 150 || x > 1500 || y < 150 || y > 1800) return 255;
          const double u = x * cosine - y * sine, v = x * sine + y * cosine;
          const double tone = 128 + 90 * std::sin(x / 170.0) * std::cos(y / 230.0);
          return 63.75 * (std::cos(u * 2.4) + std::cos(v * 2.4)) + 127.5 < tone ? 255 : 0;
        };
  };
  const std::pair<const char*, Bytes> cases[] = {
      {"white", grey_page(800, 1100, [](int, int) { return 255; })},
      {"black", grey_page(800, 1100, [](int, int) { return 0; })},
      {"grain", grey_page(800, 1100, [&](int, int) { return 200 + noise.below(40); })},
      {"specks", grey_page(800, 1100, [&](int, int) { return noise.below(900) == 0 ? 0 : 250; })},
      {"screen 0", grey_page(1700, 2200, screen(0))},
      {"screen 15", grey_page(1700, 2200, screen(15))},
      {"screen 45", grey_page(1700, 2200, screen(45))},
      {"waves", grey_page(800, 1100,
                          [](int x, int y) {
                            return 128 + static_cast<int>(60 * std::sin(x / 37.0 + y / 91.0) +
                                                          60 * std::cos(y / 23.0 - x / 53.0));
                          })},
      {"one pixel", grey_page(1, 1, [](int, int) { return 0; })},
      {"one row", grey_page(9000, 1, [](int x, int) { return x % 7 * 40; })},
      {"one column", grey_page(1, 9000, [](int, int y) { return y % 7 * 40; })},
  };
  for (const auto& [name, dib] : cases) {
    for (const bool mono : {false, true}) {
      SCOPED_TRACE(name + std::string(mono ? ", 1 bit" : ""));
      const KeptImage image(dib);
      if (mono) {
        ASSERT_EQ(IMG_thresh_mono(image.handle(), 127), IMG_OK);
      }
      const Snapshot before = snapshot(image.handle());
      std::int32_t angle = 99;
      EXPECT_EQ(IMG_deskew_bitmap(image.handle(), 0, -1, -1, &angle), 0);
      EXPECT_EQ(angle, 0);
      angle = 99;
      EXPECT_EQ(IMG_auto_orient_bitmap(image.handle(), -1, &angle), 0);
      EXPECT_EQ(angle, 0);
      EXPECT_TRUE(snapshot(image.handle()) == before);
    }
  }
}

// The sheet lies otherwise on the scanner's dark lid than the text on the sheet.
TEST(Skew, IsThatOfTheTextAndNotOfTheSheet) {
  const Image text(text_page(60));
  ASSERT_EQ(IMG_rotate_bitmap(text.get(), 300, -1, 1), IMG_OK);
  const Page page = Page::of(text.get());
  Noise noise;
  const Bytes dib = grey_page(1900, 2400, [&](int x, int y) {
    const double slope = std::tan(-2 / 57.29578);
    const double u = x - 100 - slope * (y - 1200), v = y - 100 + slope * (x - 950);
    const bool on_sheet = u > 20 && u < 1680 && v > 20 && v < 2180;
    if (!on_sheet) return 30 + noise.below(12);
    const int i = x - 100, j = y - 100;
    const bool ink = i >= 0 && j >= 0 && i < 1700 && j < 2200 && page.at(i, j) != 0;
    return (ink ? 60 : 215) + noise.below(12);
  });
  const KeptImage image(dib);
  EXPECT_NEAR(find_skew(image.handle()).angle, -300, 8);
}

TEST(PageOrientation, IsToldOfATextPageAndItsTurns) {
  for (const int tilt : {0, 150, -800}) {
    for (int quarter = 0; quarter < 4; ++quarter) {
      SCOPED_TRACE(testing::Message() << quarter << " quarters and " << tilt);
      const Image page(text_page(60, 0, quarter % 2 == 0 ? kEvenWords : kWords));
      ASSERT_EQ(IMG_rotate_bitmap(page.get(), tilt, -1, 1), IMG_OK);
      ASSERT_EQ(IMG_rotate_bitmap(page.get(), 9000 * quarter, -1, 0), IMG_OK);
      const int expected = (4 - quarter) % 4 * 9000;
      const Found found = find_orientation(page.get());
      EXPECT_EQ(found.status, 1);
      EXPECT_EQ(found.angle, expected);
      EXPECT_GE(found.confidence, 500);
      std::int32_t angle = -1;
      EXPECT_EQ(IMG_auto_orient_bitmap(page.get(), -1, &angle), quarter == 0 ? 0 : 1);
      EXPECT_EQ(angle, expected);
      EXPECT_EQ(find_orientation(page.get()).angle, 0);
    }
  }
}

// Letters of a script between y and y + 9, each as long as n and u.
struct Script {
  const char* name;
  bool tells;  // which way up it is
  void (*add)(Page& page, int x, int y, int number);
};

constexpr auto kRising = [](Page& page, int x, int y, int number) {
  if (number % 4 == 0) page.draw(x, y - 5, 2, 5);
};
constexpr auto kDots = [](Page& page, int x, int y, int number) {
  if (number % 6 == 1) page.draw(x + 2, y - 5, 3, 3);
};
const Script kScripts[] = {
    {"plain", false, [](Page&, int, int, int) {}},
    {"rising", false, kRising},
    {"dots", true, kDots},
    {"rising and dots", true,
     [](Page& page, int x, int y, int number) {
       kRising(page, x, y, number), kDots(page, x, y, number);
     }},
    {"hanging, few dots", false,
     [](Page& page, int x, int y, int number) {
       if (number % 4 == 0) page.draw(x, y + 9, 2, 5);
       if (number % 97 == 1) page.draw(x + 2, y - 5, 3, 3);
     }},
    {"as many dots above as below", false,
     [](Page& page, int x, int y, int number) {
       kDots(page, x, y, number);
       if (number % 6 == 2) page.draw(x + 2, y + 11, 3, 3);
     }},
    {"full stops", true,
     [](Page& page, int x, int y, int number) {
       if (number % 11 == 9) page.draw(x + 10, y + 7, 2, 2);
     }},
};

TEST(PageOrientation, IsToldByMarksAndNotByWhatDiffersBetweenScripts) {
  for (const Script& script : kScripts) {
    Page page(827, 1169);
    Noise noise;
    for (int y = 90, number = 0; y < 1080; y += 24) {
      for (int x = 80 + noise.below(5); x < 730; x += 9, ++number) {
        page.draw(x, y, 2, 9), page.draw(x + 5, y, 2, 9);
        page.draw(x, y + noise.below(2) * 7, 7, 2);
        script.add(page, x, y, number);
        if (number % 11 == 9 || noise.below(7) == 0) x += 8 + noise.below(6);
      }
    }
    for (int quarter = 0; quarter < 4; ++quarter) {
      SCOPED_TRACE(testing::Message() << script.name << ", " << quarter);
      const KeptImage image(page.dib());
      ASSERT_EQ(IMG_rotate_bitmap(image.handle(), 9000 * quarter, -1, 0), IMG_OK);
      const Found found = find_orientation(image.handle());
      EXPECT_EQ(found.status, script.tells ? 1 : 0);
      EXPECT_EQ(found.angle, script.tells ? (4 - quarter) % 4 * 9000 : 0);
    }
  }
}

// Neither rule knows rows from columns.
TEST(Binarisation, OfATransposedPageIsTransposed) {
  for (const int number : {2, 3}) {
    for (const auto run : {+[](Handle i) { return IMG_adaptive_mono(i, 1, 0, 0); },
                           +[](Handle i) { return IMG_adaptive_mono(i, 2, 0, 0); },
                           +[](Handle i) { return IMG_level_background(i); }}) {
      const KeptImage one({8}, 211, 330, 3 * number), other({8}, 211, 330, 3 * number);
      ASSERT_EQ(run(one.handle()), IMG_OK);
      ASSERT_EQ(IMG_orient_bitmap(other.handle(), 5), IMG_OK);
      ASSERT_EQ(run(other.handle()), IMG_OK);
      ASSERT_EQ(IMG_orient_bitmap(other.handle(), 5), IMG_OK);
      EXPECT_TRUE(snapshot(one.handle()).rows == snapshot(other.handle()).rows);
    }
  }
}

// Light that falls by two fifths, writing of two thirds of the paper's level.
TEST(Binarisation, WritingIsFoundInUnevenLightAndPaperStaysWhite) {
  const auto ink = [](int x, int y) { return x % 40 < 5 && y % 30 < 20 && x > 40 && y > 40; };
  const Bytes dib = grey_page(
      640, 640, [&](int x, int y) { return (240 - x * 100 / 640) * (ink(x, y) ? 2 : 3) / 3; });
  for (const int method : {1, 2}) {
    const KeptImage image(dib);
    ASSERT_EQ(IMG_adaptive_mono(image.handle(), method, 0, 0), IMG_OK);
    const Page page = Page::of(image.handle());
    int wrong = 0;
    for (int y = 0; y < 640; ++y) {
      for (int x = 0; x < 640; ++x) wrong += (page.at(x, y) != 0) != ink(x, y);
    }
    EXPECT_LT(wrong, 640 * 640 / 100) << "method " << method;
  }
  const KeptImage even(dib);
  ASSERT_EQ(IMG_level_background(even.handle()), IMG_OK);
  const Snapshot levels = snapshot(even.handle());
  for (int x = 0; x < 640; ++x) {
    EXPECT_NEAR(levels.rows[30][static_cast<std::size_t>(x)], 230, 12) << x;
  }
}

// Answers with -55 at the last call that it has been told of.
struct Abort {
  int calls = 0, most = INT_MAX;
  static std::int32_t IMG_CB_STD report(std::intptr_t context, std::int32_t) {
    auto& self = *reinterpret_cast<Abort*>(context);
    return ++self.calls >= self.most ? -55 : 0;
  }
  std::int32_t run(std::int32_t (*operation)(Handle), Handle image) {
    IMG_set_statusbar(reinterpret_cast<std::intptr_t>(this), report, 1);
    const std::int32_t status = operation(image);
    IMG_set_statusbar(0, nullptr, 0);
    return status;
  }
};

TEST(PageSearch, ReportsEachRowOnceAndEndsWithTheAnswer) {
  std::int32_t (*const operations[])(Handle) = {
      [](Handle i) { return IMG_find_skew(i, 0, nullptr, nullptr); },
      [](Handle i) { return IMG_find_orientation(i, nullptr, nullptr); },
      [](Handle i) { return IMG_deskew_bitmap(i, 0, -1, -1, nullptr); },
      [](Handle i) { return IMG_auto_orient_bitmap(i, -1, nullptr); }};
  for (const auto operation : operations) {
    for (const bool grey : {false, true}) {
      const Image page(text_page(60, 0, kEvenWords));
      ASSERT_EQ(IMG_rotate_bitmap(page.get(), 18150, -1, 1), IMG_OK);
      if (grey) {
        ASSERT_EQ(IMG_promote_24(page.get()), IMG_OK);
      }
      const Snapshot before = snapshot(page.get());
      for (const int most : {1, 900, 2200}) {
        Abort abort{.most = most};
        EXPECT_EQ(abort.run(operation, page.get()), -55);
        EXPECT_EQ(abort.calls, most);
        EXPECT_TRUE(snapshot(page.get()) == before);
      }
      Abort none;
      EXPECT_EQ(none.run(operation, page.get()), 1);
      EXPECT_EQ(none.calls, 2200);
    }
  }
}

TEST(PageSearch, ArgumentsOutsideTheirSetLeaveTheImage) {
  std::int32_t out = 7;
  static std::int32_t* const kNone = nullptr;
  const struct {
    int bits;
    std::int32_t (*run)(Handle, std::int32_t* out);
    std::int32_t status = IMG_UNSUPPORTED;
  } cases[] = {
      {8, [](Handle i, std::int32_t* o) { return IMG_find_skew(i, -1, o, o); }},
      {8, [](Handle i, std::int32_t* o) { return IMG_find_skew(i, 4501, o, o); }},
      {8, [](Handle i, std::int32_t* o) { return IMG_find_skew(i, INT_MIN, o, o); }},
      {16, [](Handle i, std::int32_t* o) { return IMG_find_skew(i, 0, o, o); }, IMG_WRONG_DEPTH},
      {24, [](Handle i, std::int32_t* o) { return IMG_deskew_bitmap(i, -1, -1, -1, o); }},
      {24, [](Handle i, std::int32_t* o) { return IMG_deskew_bitmap(i, 0, -2, -1, o); }},
      {24, [](Handle i, std::int32_t* o) { return IMG_deskew_bitmap(i, 0, -1, 0x1000000, o); }},
      {24, [](Handle i, std::int32_t* o) { return IMG_auto_orient_bitmap(i, -2, o); }},
      {8, [](Handle i, std::int32_t*) { return IMG_adaptive_mono(i, -1, 0, 0); }},
      {8, [](Handle i, std::int32_t*) { return IMG_adaptive_mono(i, 3, 0, 0); }},
      {8, [](Handle i, std::int32_t*) { return IMG_adaptive_mono(i, 1, 2, 0); }},
      {8, [](Handle i, std::int32_t*) { return IMG_adaptive_mono(i, 1, 4, 0); }},
      {8, [](Handle i, std::int32_t*) { return IMG_adaptive_mono(i, 1, 257, 0); }},
      {8, [](Handle i, std::int32_t*) { return IMG_adaptive_mono(i, 1, 0, -1); }},
      {8, [](Handle i, std::int32_t*) { return IMG_adaptive_mono(i, 1, 0, 101); }},
      {1, [](Handle i, std::int32_t*) { return IMG_level_background(i); }, IMG_WRONG_DEPTH},
      {8, [](Handle i, std::int32_t*) { return IMG_find_skew(i, 0, kNone, kNone); }, 0},
      {8, [](Handle i, std::int32_t*) { return IMG_find_orientation(i, kNone, kNone); }, 0},
      {8, [](Handle i, std::int32_t*) { return IMG_deskew_bitmap(i, 0, 0, -1, kNone); }, 0},
      {8, [](Handle i, std::int32_t*) { return IMG_auto_orient_bitmap(i, 0, kNone); }, 0},
  };
  for (const auto& c : cases) {
    const KeptImage image({c.bits}, 20, 9, 3);
    const Snapshot before = snapshot(image.handle());
    EXPECT_EQ(c.run(image.handle(), &out), c.status) << &c - cases;
    EXPECT_EQ(out, 7);
    EXPECT_TRUE(snapshot(image.handle()) == before);
  }
  const KeptImage colours({8}, 20, 9, 4);
  EXPECT_EQ(IMG_level_background(colours.handle()), IMG_NOT_GREY);
}

}  // namespace
}  // namespace tq::test
