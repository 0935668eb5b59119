// What is found on pages whose truth is known, in every form of a page.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>

#include "core/image_table.h"
#include "core/run_storage.h"
#include "include/tarnquill.h"
#include "process/cleanup/ink.h"
#include "tests/process/generated_image.h"
#include "tests/process/page.h"

namespace tq::test {
namespace {

using Image = std::int32_t;
using Box = std::array<std::int32_t, 4>;

// A page of 1 bit as it is, in run lists, in colour and in grey.
template <class Check>
void for_each_form(const Page& page, Check&& check) {
  for (const int form : {0, 1, 24, 8}) {
    SCOPED_TRACE(testing::Message() << "form " << form);
    const KeptImage image(page.dib());
    const Image i = image.handle();
    if (form == 1) IMG_dib_to_runs(i);
    if (form >= 8) IMG_promote_24(i);
    if (form == 8) IMG_color_gray(i);
    check(i);
  }
}

Image find(Image(IMG_CALL* search)(Image, Image*, Image*, Image*, Image*), Image image, Box& box) {
  return search(image, &box[0], &box[1], &box[2], &box[3]);
}

void write_text(Page& page, int left, int top, int right, int bottom) {
  for (int y = top; y + 12 <= bottom; y += 20) {
    for (int x = left, i = y; x + 7 <= right; x += 10, ++i) {
      page.draw(x, y, 2, 12), page.draw(x, y + 5 * (i % 3), 7, 2), page.draw(x + 5, y + 4, 2, 8);
    }
  }
}

// Dark around a sheet of 700 x 900 at (70, 60) that lies askew by `slope` per row and column.
Page surrounded(double slope, bool with_text) {
  Page page(820, 1040);
  for (int y = 0; y < 1040; ++y) {
    for (int x = 0; x < 820; ++x) {
      const double u = x - 70 - slope * (y - 60), v = y - 60 + slope * (x - 70);
      if (u < 0 || v < 0 || u >= 700 || v >= 900) page.draw(x, y, 1, 1);
    }
  }
  if (with_text) write_text(page, 200, 220, 600, 800);
  return page;
}

TEST(FindContent, IsTheBoxOfAllThatIsNoSpeckAndNoSurround) {
  Page page(900, 1100);
  write_text(page, 123, 200, 700, 900);
  Box expected{123, 200, 0, 0};
  for (int y = 0; y < 1100; ++y) {
    for (int x = 0; x < 900; ++x) {
      if (!page.at(x, y)) continue;
      expected[2] = std::max(expected[2], x + 1 - 123),
      expected[3] = std::max(expected[3], y + 1 - 200);
    }
  }
  page.draw(20, 20, 2, 2), page.draw(800, 1000, 3, 1), page.draw(850, 30, 1, 1);
  const Page no_surround = page;
  page.draw(0, 0, 12, 1100), page.draw(0, 1090, 900, 10);
  for (const Page* p : {&no_surround, static_cast<const Page*>(&page)}) {
    const bool dark = p == &page;
    for_each_form(*p, [&](Image i) {
      Box box{};
      EXPECT_EQ(find(IMG_find_content, i, box), 1);
      EXPECT_EQ(box, expected) << dark;
    });
  }
  for_each_form(no_surround, [&](Image i) {
    ASSERT_EQ(IMG_autocrop_bitmap(i, 30), 1);
    Box crop{};
    IMG_get_croprect(i, &crop[0], &crop[1], &crop[2], &crop[3]);
    EXPECT_EQ(crop, (Box{0, 0, expected[2] + 60, expected[3] + 60}));
    Box box{};
    find(IMG_find_content, i, box);
    EXPECT_EQ(box, (Box{30, 30, expected[2], expected[3]}));
    EXPECT_EQ(IMG_autocrop_bitmap(i, 30), 0);
  });
  for_each_form(Page(300, 200), [](Image i) {
    Box box{1, 1, 1, 1};
    EXPECT_EQ(find(IMG_find_content, i, box), 0);
    EXPECT_EQ(box, Box{});
    EXPECT_EQ(IMG_autocrop_bitmap(i, 0), 0);
  });
}

TEST(FindPaper, IsTheSheetInItsSurround) {
  for (const double slope : {0.0, 0.03, -0.05}) {
    const Page page = surrounded(slope, true);
    int left = 820, top = 1040, right = 0, bottom = 0;
    const Page bare = surrounded(slope, false);
    for (int y = 0; y < 1040; ++y) {
      for (int x = 0; x < 820; ++x) {
        if (bare.at(x, y)) continue;
        left = std::min(left, x), right = std::max(right, x + 1);
        top = std::min(top, y), bottom = std::max(bottom, y + 1);
      }
    }
    for_each_form(page, [&](Image i) {
      Box box{};
      EXPECT_EQ(find(IMG_find_paper, i, box), 1);
      EXPECT_NEAR(box[0], left, 6);
      EXPECT_NEAR(box[1], top, 6);
      EXPECT_NEAR(box[0] + box[2], right, 6);
      EXPECT_NEAR(box[1] + box[3], bottom, 6);
    });
  }
  Page text(500, 700), black(400, 300);
  write_text(text, 0, 0, 500, 700);
  black.draw(0, 0, 400, 300);
  for (const Page& page : {text, black, Page(90, 90), Page(1, 300), Page(300, 1)}) {
    for_each_form(page, [&](Image i) {
      Box box{};
      EXPECT_EQ(find(IMG_find_paper, i, box), 0);
      EXPECT_EQ(box, (Box{0, 0, page.width(), page.height()}));
    });
  }
}

TEST(RemoveBorder, PaintsTheSurroundAndNotWhatTouchesIt) {
  Page page = surrounded(0.03, true);
  page.draw(60, 500, 90, 3);  // a line that runs into it
  for_each_form(page, [&](Image i) {
    const Image painted = IMG_remove_border(i, -1);
    EXPECT_EQ(painted, 1);
    IMG_thresh_mono(i, 128);
    const Page left = Page::of(i);
    Page inner(820, 1040);
    write_text(inner, 200, 220, 600, 800);
    inner.draw(100, 500, 50, 3);
    int lost = 0, added = 0;
    for (int y = 0; y < 1040; ++y) {
      for (int x = 0; x < 820; ++x) {
        lost += inner.at(x, y) && !left.at(x, y);
        added += left.at(x, y) && !inner.at(x, y);
      }
    }
    EXPECT_EQ(lost, 0);
    EXPECT_LT(added, 100) << "the rest of the line that runs into it";
    EXPECT_EQ(IMG_remove_border(i, -1), 0);
  });
}

TEST(IsBlank, DustHolesAndShadowsAreNothingAndOneWordIsSomething) {
  Page empty(827, 1169);
  for (int i = 0; i < 40; ++i) empty.draw(i * 641 % 800, i * 977 % 1150, 1 + i % 2, 1);
  empty.draw(0, 0, 9, 1169);
  for (const int top : {380, 700}) {
    for (int y = -12; y <= 12; ++y) {
      for (int x = -12; x <= 12; ++x) {
        if (x * x + y * y <= 144) empty.draw(45 + x, top + y, 1, 1);
      }
    }
  }
  Page number = empty, word = empty, signature = empty, faint(827, 1169);
  number.draw(400, 1125, 2, 9), number.draw(405, 1125, 6, 9);
  write_text(word, 300, 300, 330, 330);
  for (int i = 0; i < 90; ++i) signature.draw(500 + i, 900 + i * i % 23, 2, 2);
  for (int y = 200; y < 900; y += 20) {
    for (int x = 100; x < 700; x += 7) faint.draw(x + y % 3, y + x % 2, 2, 2);
  }
  for_each_form(empty, [](Image i) {
    EXPECT_EQ(IMG_is_blank(i, 0), 1);
    EXPECT_EQ(IMG_is_blank(i, 100), 1);
  });
  for_each_form(Page(1, 1), [](Image i) { EXPECT_EQ(IMG_is_blank(i, 0), 1); });
  for (const Page* page : {&number, &word, &signature, &faint}) {
    SCOPED_TRACE(testing::Message() << (page == &number) << (page == &word) << (page == &faint));
    for_each_form(*page, [](Image i) { EXPECT_EQ(IMG_is_blank(i, 0), 0); });
  }
  const KeptImage one_word(word.dib());
  EXPECT_EQ(IMG_is_blank(one_word.handle(), 100), 1) << "letters of 12 pixels are 3 mm";
}

// What shines through from the back counts where there is no darker ink.
TEST(IsBlank, GreyWritingIsWritingUnlessThereIsDarker) {
  const auto grey = [](int level, bool with_word, bool& blank) {
    Page page(827, 1169);
    write_text(page, 100, 100, 700, 1000);
    const KeptImage image(page.dib());
    IMG_promote_24(image.handle());
    IMG_color_gray(image.handle());
    std::vector<std::uint8_t> row(828);
    for (int y = 0; y < 1169; ++y) {
      IMGLOW_get_raster(image.handle(), row.data(), y, 0);
      for (auto& v : row) v = static_cast<std::uint8_t>(v == 0 ? level : 255);
      if (with_word && y > 1020 && y < 1040) std::fill_n(row.begin() + 300, 30, std::uint8_t{10});
      IMGLOW_put_raster(image.handle(), row.data(), y, 0);
    }
    blank = IMG_is_blank(image.handle(), 0) == 1;
  };
  bool blank = true;
  grey(170, false, blank);
  EXPECT_FALSE(blank);
  grey(250, false, blank);
  EXPECT_TRUE(blank) << "less than the grain of paper";
  grey(170, true, blank);
  EXPECT_FALSE(blank);
}

// Dots on the left, strokes on the right, and something of each block's size at the edges.
Page dotted(int width, int height) {
  Page page(width, height);
  std::uint32_t state = 1;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      state = state * 1664525 + 1013904223;
      const bool stroke = (y / 50 + x / 5) % 7 == 0 && y % 300 > 90;
      if (x < width / 2 ? state >> 31 != 0 : stroke != (state >> 26 == 0)) page.at(x, y) = 1;
    }
  }
  return page;
}

bool is_black(const Page& page, int x, int y) {
  return x >= 0 && x < page.width() && page.at(x, y) != 0;
}

bool model_is_screened(const Page& page, int left, int top, int width, int height) {
  const int bottom = std::min(top + height, page.height());
  int busy = 0;
  for (int y = top; y < bottom; ++y) {
    int ends = 0;  // of runs
    for (int x = left; x < std::min(left + width, page.width()); ++x) {
      if (!is_black(page, x, y)) continue;
      ends += (is_black(page, x - 1, y) ? 0 : 1) + (is_black(page, x + 1, y) ? 0 : 1);
    }
    busy += ends >= 8 ? 1 : 0;
  }
  return 8 * busy >= 7 * (bottom - top);
}

void expect_ink(const process::InkPage& ink, const Page& page, bool knows_tiles) {
  const int wide = ink.block_width(), high = ink.block_height();
  for (int y = 0; y < ink.height(); ++y) {
    for (int x = 0; x < ink.width(); ++x) {
      int black = 0, pixels = 0;
      for (int j = y * high; j < std::min((y + 1) * high, page.height()); ++j) {
        for (int i = x * wide; i < std::min((x + 1) * wide, page.width()); ++i) {
          black += page.at(i, j), ++pixels;
        }
      }
      ASSERT_EQ(ink.has_ink(x, y), 2 * black >= pixels) << x << " " << y;
    }
    const process::Row row = ink.row(y);
    for (int x = ink.width(); x < 8 * std::ssize(row); ++x) ASSERT_FALSE(ink.has_ink(x, y));
  }
  for (int y = 0; knows_tiles && y < ink.tile_rows(); ++y) {
    for (int x = 0; x < ink.tile_columns(); ++x) {
      const int side = process::InkPage::kTile;
      ASSERT_EQ(ink.is_screened(x, y),
                model_is_screened(page, x * side * wide, y * side * high, side * wide, side * high))
          << x << " " << y;
    }
  }
}

// Blocks of 1 to 5 pixels, as bits and as lists: the smaller ones are counted in another way.
TEST(InkPage, HasInkWhereHalfOfABlockIsBlack) {
  constexpr std::array<int, 2> kSides[] = {{1, 1},      {49, 900},   {2999, 130}, {64, 2350},
                                           {150, 3500}, {191, 3513}, {101, 4700}, {50, 5900}};
  for (const auto& [width, height] : kSides) {
    const Page page = dotted(width, height);
    for (const int form : {0, 1, 2}) {
      for (const bool fine : {false, true}) {
        const KeptImage image(page.dib());
        if (form > 0) IMG_dib_to_runs(image.handle());
        process::ImageSource source(ImageHandle{image.handle()});
        EXPECT_TRUE(form < 2 || list_waiting_rows(source.record()).ok());
        process::InkPage ink;
        ASSERT_TRUE(ink.find(source, process::InkPage::Reports::none, {.fine = fine}).ok());
        const int usual = std::max(1, static_cast<int>(std::max(width, height) / 1170.0 + 0.5));
        EXPECT_EQ(ink.block_width(), fine && usual > 1 ? usual / 2 : usual);
        SCOPED_TRACE(testing::Message() << height << " " << form << " " << fine);
        expect_ink(ink, page, !fine);
      }
    }
  }
}

TEST(InkPage, IsTurnedAndLevelledPixelByPixel) {
  for (const int width : {1, 63, 64, 130, 1000}) {
    const int height = 1065 - width;
    const Page page = dotted(width, height);
    const KeptImage image(page.dib());
    process::ImageSource source(ImageHandle{image.handle()});
    process::InkPage ink, turned, level;
    ASSERT_TRUE(ink.find(source, process::InkPage::Reports::none).ok());
    ASSERT_TRUE(turned.transpose(ink).ok());
    constexpr double kSlope = 0.037;
    ASSERT_TRUE(level.level(ink, kSlope).ok());
    for (int x = 0; x < width; ++x) {
      const int fall = static_cast<int>(std::lround(kSlope * (x - width / 2)));
      for (int y = 0; y < height; ++y) {
        ASSERT_EQ(turned.has_ink(y, x), ink.has_ink(x, y)) << x << " " << y;
        const int from = y + fall;
        ASSERT_EQ(level.has_ink(x, y), from >= 0 && from < height && ink.has_ink(x, from));
      }
      for (int y = height; y < 8 * std::ssize(turned.row(x)); ++y) {
        ASSERT_FALSE(turned.has_ink(y, x));
      }
    }
  }
}

}  // namespace
}  // namespace tq::test
