// Operations that move pixels: every size against the place that each pixel comes from, and what
// becomes of the rest of an image.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <utility>

#include "core/dib.h"
#include "core/memory.h"
#include "core/numbers.h"
#include "core/run_storage.h"
#include "include/tarnquill.h"
#include "tests/process/generated_image.h"

namespace tq::test {
namespace {

using Image = std::int32_t;

// An image by its pixels, each by the bytes that it has.
struct Grid {
  int width, height, bits;
  std::vector<std::uint32_t> pixels;
  std::uint32_t& at(int x, int y) { return pixels[static_cast<std::size_t>(y) * width + x]; }
  friend bool operator==(const Grid&, const Grid&) = default;
};

Grid read_grid(Image image) {
  const Snapshot seen = snapshot(image);
  Grid grid{};
  IMG_bitmap_info(image, &grid.width, &grid.height, &grid.bits);
  for (const Bytes& row : seen.rows) {
    for (int x = 0; x < grid.width; ++x) {
      std::uint32_t pixel = 0;
      if (grid.bits < 8) {
        pixel =
            row[x * grid.bits / 8] >> (8 - grid.bits - x * grid.bits % 8) & ((1 << grid.bits) - 1);
      } else {
        std::memcpy(&pixel, &row[x * grid.bits / 8], static_cast<std::size_t>(grid.bits) / 8);
      }
      grid.pixels.push_back(pixel);
    }
  }
  return grid;
}

struct Place {
  int x, y;
};

// `from` tells where a pixel of the result comes from; what lies outside is 0.
struct Move {
  const char* name;
  Image (*run)(Image image, int width, int height);
  Place (*size)(int w, int h);
  Place (*from)(int x, int y, int w, int h);
};
Place same(int w, int h) {
  return {w, h};
}
Place swapped(int w, int h) {
  return {h, w};
}

constexpr Move kMoves[] = {
    {"flip", [](Image i, int, int) { return IMG_flip_bitmap(i); }, same,
     [](int x, int y, int, int h) {
       return Place{x, h - 1 - y};
     }},
    {"mirror", [](Image i, int, int) { return IMG_mirror_bitmap(i); }, same,
     [](int x, int y, int w, int) {
       return Place{w - 1 - x, y};
     }},
    {"turn 180", [](Image i, int, int) { return IMG_orient_bitmap(i, 3); }, same,
     [](int x, int y, int w, int h) {
       return Place{w - 1 - x, h - 1 - y};
     }},
    {"transpose", [](Image i, int, int) { return IMG_orient_bitmap(i, 5); }, swapped,
     [](int x, int y, int, int) {
       return Place{y, x};
     }},
    {"turn 90", [](Image i, int, int) { return IMG_orient_bitmap(i, 6); }, swapped,
     [](int x, int y, int, int h) {
       return Place{y, h - 1 - x};
     }},
    {"transverse", [](Image i, int, int) { return IMG_orient_bitmap(i, 7); }, swapped,
     [](int x, int y, int w, int h) {
       return Place{w - 1 - y, h - 1 - x};
     }},
    {"turn 270", [](Image i, int, int) { return IMG_orient_bitmap(i, 8); }, swapped,
     [](int x, int y, int w, int) {
       return Place{w - 1 - y, x};
     }},
    {"crop",
     [](Image i, int w, int h) { return IMG_crop_bitmap(i, w / 3, h / 4, w - w / 2, h - h / 3); },
     [](int w, int h) {
       return Place{w - w / 2, h - h / 3};
     },
     [](int x, int y, int w, int h) {
       return Place{x + w / 3, y + h / 4};
     }},
    {"extend", [](Image i, int w, int) { return IMG_extend_bitmap(i, w % 9, 1, w % 5, 2, 0); },
     [](int w, int h) {
       return Place{w + w % 9 + w % 5, h + 3};
     },
     [](int x, int y, int w, int) {
       return Place{x - w % 9, y - 1};
     }},
    {"shift", [](Image i, int w, int) { return IMG_extend_bitmap(i, w % 7, 3, -w / 2, -2, 0); },
     [](int w, int h) {
       return Place{w + w % 7 - w / 2, h + 1};
     },
     [](int x, int y, int w, int) {
       return Place{x - w % 7, y - 3};
     }},
    {"slide", [](Image i, int w, int h) { return IMG_extend_bitmap(i, -w, h, w, -h, 0); }, same,
     [](int, int, int, int) {
       return Place{-1, -1};
     }},
};

// Each size with one move and each width and height with all of them, in every form.
TEST(MovedPixels, AreWhereTheyShouldBeAtEverySize) {
  int number = 0;
  for (int w = 1; w <= 67; ++w) {
    for (int h = 1; h <= 67; ++h, ++number) {
      const Move& move = kMoves[number % std::size(kMoves)];
      for (const Depth& depth : kDepths) {
        SCOPED_TRACE(testing::Message() << move.name << ", " << w << " x " << h << ", "
                                        << depth.bits << " bits, runs " << depth.in_runs);
        // Pattern 0 is noise, of which rows are kept as bits; 2 has runs.
        const KeptImage image(depth, w, h, 4 * number + number % 2 * 2);
        Grid before = read_grid(image.handle());
        ASSERT_EQ(move.run(image.handle(), w, h), IMG_OK);
        const Place size = move.size(w, h);
        Grid expected{size.x, size.y, before.bits, {}};
        for (int y = 0; y < size.y; ++y) {
          for (int x = 0; x < size.x; ++x) {
            const Place p = move.from(x, y, w, h);
            const bool inside = p.x >= 0 && p.x < w && p.y >= 0 && p.y < h;
            const std::uint32_t fill = depth.bits == 32 && depth.compression == 0 ? 0xFFFFFF : 0;
            expected.pixels.push_back(inside ? before.at(p.x, p.y) : fill);
          }
        }
        ASSERT_TRUE(read_grid(image.handle()) == expected);
      }
    }
  }
}

// Run lists by themselves: pages with white rows, rows of dots, wider than one block of columns.
TEST(MovedPixels, RunListsBecomeWhatPlainPixelsDo) {
  for (const auto& [w, h] : {std::pair(4200, 90), std::pair(700, 200)}) {
    for (const Move& move : kMoves) {
      Bytes dib = generate_dib({1}, w, h, 3);
      const auto row = static_cast<std::ptrdiff_t>(row_bytes(w, 1));
      std::fill_n(dib.end() - 30 * row, 20 * row, std::uint8_t{255});
      std::fill_n(dib.end() - 60 * row, 20 * row, std::uint8_t{0x55});
      const KeptImage plain(dib), runs(dib);
      ASSERT_EQ(IMG_dib_to_runs(runs.handle()), IMG_OK);
      EXPECT_EQ(move.run(plain.handle(), w, h), IMG_OK);
      EXPECT_EQ(move.run(runs.handle(), w, h), IMG_OK);
      EXPECT_EQ(snapshot(runs.handle()).front[16], 99);
      EXPECT_TRUE(read_grid(plain.handle()) == read_grid(runs.handle())) << move.name;
    }
  }
}

// All that an image is beside its pixels.
struct Record {
  explicit Record(Image image) : front(snapshot(image).front) {
    IMG_get_croprect(image, &crop[0], &crop[1], &crop[2], &crop[3]);
    IMG_get_resolution(image, &resolution[0], &resolution[1]);
    transparent = IMGLOW_get_transp_color(image);
  }
  Bytes front;
  std::array<std::int32_t, 4> crop{};
  std::array<std::int32_t, 2> resolution{};
  std::int32_t transparent;
};

// A constant stays, a frame of one pixel stays on all sides, and what is turned to both sides is
// the mirrored picture.
TEST(ResampledPixels, NeitherDriftNorLeanNorLoseAnEdge) {
  for (const int bits : {8, 24, 32}) {
    for (const int level : {0, 77, 255}) {
      Bytes dib = generate_dib({bits}, 61, 47, 3);
      std::fill_n(dib.rbegin(), 47 * row_bytes(61, bits), static_cast<std::uint8_t>(level));
      for (int method = 0; method <= 4; ++method) {
        for (const auto& [w, h] : {std::pair(7, 5), std::pair(15, 90), std::pair(140, 46)}) {
          const KeptImage image(dib);
          ASSERT_EQ(IMG_resize_bitmap(image.handle(), w, h, method), IMG_OK);
          Grid expected{w, h, bits, {}};
          const std::uint32_t pixel = 0x01010101u * static_cast<std::uint32_t>(level);
          expected.pixels.assign(static_cast<std::size_t>(w * h),
                                 bits == 32 ? pixel : pixel & ((1u << bits) - 1));
          EXPECT_TRUE(read_grid(image.handle()) == expected) << bits << " " << method << " " << w;
        }
      }
    }
  }
  Bytes dib = generate_dib({8}, 40, 30, 3);
  std::fill_n(dib.rbegin(), 40 * 30, std::uint8_t{255});
  for (int i = 0; i < 40 * 30; ++i) {
    const int x = i % 40, y = i / 40;
    if (x == 0 || x == 39 || y == 0 || y == 29)
      dib[dib.size() - 1200 + static_cast<std::size_t>(i)] = 0;
  }
  for (int method = 1; method <= 4; ++method) {
    const KeptImage image(dib);
    ASSERT_EQ(IMG_resize_bitmap(image.handle(), 20, 15, method), IMG_OK);
    Grid frame = read_grid(image.handle());
    for (int x = 0; x < 20; ++x) {
      EXPECT_LT(frame.at(x, 0), 160u);
      EXPECT_EQ(frame.at(x, 0), frame.at(x, 14));
      EXPECT_EQ(frame.at(x, 7), frame.at(19 - x, 7));
      EXPECT_TRUE(x <= 2 || x >= 17 || frame.at(x, 7) > 240) << x;
    }
  }
  const KeptImage left({24}, 50, 31, 3), right({24}, 50, 31, 3);
  IMG_mirror_bitmap(right.handle());
  ASSERT_EQ(IMG_rotate_bitmap(left.handle(), 700, -1, 0), IMG_OK);
  ASSERT_EQ(IMG_rotate_bitmap(right.handle(), -700, -1, 0), IMG_OK);
  IMG_mirror_bitmap(right.handle());
  Grid a = read_grid(left.handle()), b = read_grid(right.handle());
  ASSERT_EQ(a.width, b.width);
  int differ = 0;
  for (std::size_t i = 0; i < a.pixels.size(); ++i) {
    differ +=
        std::abs(static_cast<int>(a.pixels[i] & 255) - static_cast<int>(b.pixels[i] & 255)) > 2;
  }
  EXPECT_EQ(differ, 0);
}

// Where a clock's hand at twelve would be, ten degrees on; pixels twice as high as wide.
TEST(ResampledPixels, AMarkTurnsClockwiseOnTheSheet) {
  Bytes dib = generate_dib({1}, 401, 201, 0);
  std::fill_n(dib.rbegin(), 201 * row_bytes(401, 1), std::uint8_t{255});
  const KeptImage image(std::move(dib));
  Bytes row(52, 255);
  row[25] = 0x00;  // pixels 200 to 207
  for (const int y : {20, 21, 22, 23}) IMGLOW_put_raster(image.handle(), row.data(), y, 0);
  IMG_set_resolution(image.handle(), 200000, 100000);
  ASSERT_EQ(IMG_rotate_bitmap(image.handle(), 1000, -1, 1), IMG_OK);
  Grid turned = read_grid(image.handle());
  double x = 0, y = 0, count = 0;
  for (int j = 0; j < turned.height; ++j) {
    for (int i = 0; i < turned.width; ++i) {
      if (turned.at(i, j) != 0) continue;
      x += i + 0.5, y += j + 0.5, ++count;
    }
  }
  ASSERT_GT(count, 20);
  // From the centre the mark lies 3.5 to the right and 157 up, in units of the narrower side.
  EXPECT_NEAR(x / count - 200.5, 3.5 * 0.98481 + 157 * 0.17365, 0.5);
  EXPECT_NEAR(y / count - 100.5, (3.5 * 0.17365 - 157 * 0.98481) / 2, 0.5);
}

// Blocks of the result lie beside a picture of few pixels, or one that is stretched by its resolution.
TEST(ResampledPixels, SmallPaperStaysPaperAtAnyAngle) {
  for (int width = 1; width <= 130; width += width < 20 ? 1 : 37) {
    for (int height = 1; height <= 20; height += 6) {
      for (const int dpi : {0, 100, 10000}) {
        Bytes dib = generate_dib({1}, width, height, 0);
        std::fill_n(dib.rbegin(), height * row_bytes(width, 1), std::uint8_t{255});
        for (int angle = 1; angle < 36000; angle += 3011) {
          const KeptImage image(dib);
          IMG_set_resolution(image.handle(), 1000, dpi);
          ASSERT_EQ(IMG_rotate_bitmap(image.handle(), angle, -1, angle % 2), IMG_OK);
          for (const std::uint32_t pixel : read_grid(image.handle()).pixels) ASSERT_EQ(pixel, 1u);
        }
      }
    }
  }
}

// Bits are counted, or changes of lists; levels are added up.
TEST(ResampledPixels, MeansOfBitsAreThoseOfLevels) {
  for (const int wide : {2, 3, 4, 8}) {
    for (const int high : {1, 2, 4, 31, 64, 130}) {
      for (int width = 1; width <= 70; width += 23) {
        const int height = width % 3 + 1;
        const KeptImage bits({1}, width * wide, height * high, 3);
        const KeptImage lists({1}, width * wide, height * high, 3);
        const KeptImage levels({1}, width * wide, height * high, 3);
        ASSERT_EQ(IMG_resize_bitmap(levels.handle(), width * wide, height * high, 1), IMG_OK);
        if (high % 2 == 0) {
          ASSERT_EQ(IMG_dib_to_runs(lists.handle()), IMG_OK);
        } else {  // rows that wait
          IMG_resize_bitmap(lists.handle(), width * wide, height * high, 1);
          ASSERT_EQ(IMG_thresh_mono(lists.handle(), 127), IMG_OK);
        }
        const int method = width % 2 == 0 ? 1 : 5;
        for (const Image image : {bits.handle(), lists.handle(), levels.handle()}) {
          ASSERT_EQ(IMG_resize_bitmap(image, width, height, method), IMG_OK);
        }
        const Grid expected = read_grid(levels.handle());
        EXPECT_TRUE(read_grid(bits.handle()).pixels == expected.pixels) << wide << " " << high;
        EXPECT_TRUE(read_grid(lists.handle()).pixels == expected.pixels) << wide << " " << high;
      }
    }
  }
}

// Bits of a row are copied together, bytes one by one.
TEST(ResampledPixels, TurnedBitsAreTheTurnedLevels) {
  for (int width = 1; width <= 600; width += width < 70 ? 2 : 131) {
    const int height = 1 + width % 83;
    for (const int dpi : {0, 1100, 700}) {
      for (const int angle : {1, 35, 130, 1001, 3900, 32400, 35870, 35999}) {
        const KeptImage bits({1}, width, height, 3), levels({1}, width, height, 3);
        ASSERT_EQ(IMG_resize_bitmap(levels.handle(), width, height, 1), IMG_OK);
        const bool keeps = angle % 2 != 0, white = width % 2 != 0, smooth = width % 3 == 0;
        const int mode = (keeps ? 1 : 0) + (smooth ? 0 : 2);
        for (const Image image : {bits.handle(), levels.handle()}) {
          IMG_set_resolution(image, 1000, dpi);
          const int colour = !white ? 0 : image == bits.handle() ? 1 : 255;
          ASSERT_EQ(IMG_rotate_bitmap(image, angle, colour, mode), IMG_OK);
        }
        Grid expected = read_grid(levels.handle());
        for (std::uint32_t& level : expected.pixels) level /= 128;
        ASSERT_TRUE(read_grid(bits.handle()).pixels == expected.pixels)
            << width << " " << dpi << " " << angle;
      }
    }
  }
}

TEST(ResampledPixels, TheSheetKeepsItsSize) {
  const KeptImage image({24}, 408, 98, 3);
  IMG_set_resolution(image.handle(), 204000, 98000);
  IMG_set_croprect(image.handle(), 3, 4, 10, 10);
  ASSERT_EQ(IMG_resize_bitmap(image.handle(), 204, 196, 1), IMG_OK);
  EXPECT_EQ(Record(image.handle()).resolution, (std::array{102000, 196000}));
  EXPECT_EQ(Record(image.handle()).crop, (std::array{0, 0, 204, 196}));
  ASSERT_EQ(IMG_resample_bitmap(image.handle(), 204, 204, 0), IMG_OK);
  EXPECT_EQ(Record(image.handle()).resolution, (std::array{204000, 204000}));
  EXPECT_EQ(Record(image.handle()).crop, (std::array{0, 0, 408, 204}));
}

TEST(MovedPixels, TwiceAndBackAreTheSameImageAndRecord) {
  using Steps = std::vector<Image (*)(Image)>;
  const auto turn = [](Image i) { return IMG_orient_bitmap(i, 6); };
  const Steps chains[] = {
      {[](Image i) { return IMG_flip_bitmap(i); }, [](Image i) { return IMG_flip_bitmap(i); }},
      {[](Image i) { return IMG_mirror_bitmap(i); }, [](Image i) { return IMG_mirror_bitmap(i); }},
      {turn, turn, turn, turn},
      {turn, [](Image i) { return IMG_orient_bitmap(i, 8); }},
      {[](Image i) { return IMG_orient_bitmap(i, 7); },
       [](Image i) { return IMG_orient_bitmap(i, 7); }},
      {[](Image i) { return IMG_extend_bitmap(i, 3, 2, 1, 9, 1); },
       [](Image i) { return IMG_crop_bitmap(i, 3, 2, 45, 23); }},
      {[](Image i) { return IMG_invert_bitmap(i); }, [](Image i) { return IMG_invert_bitmap(i); }},
  };
  for (const Depth& depth : kDepths) {
    for (const int number : {3, 4}) {  // a grey palette, one in colours
      for (const Steps& chain : chains) {
        const KeptImage image(depth, 45, 23, number);
        IMG_set_resolution(image.handle(), 203200, 97790);
        IMGLOW_set_transp_color(image.handle(), 3);
        const Record before(image.handle());
        const Grid pixels = read_grid(image.handle());
        const bool inverts = &chain == &chains[6];
        IMG_set_croprect(image.handle(), 3, 4, 10, 10);
        for (const auto step : chain) ASSERT_EQ(step(image.handle()), IMG_OK);
        const Record after(image.handle());
        EXPECT_EQ(after.front, before.front);
        EXPECT_EQ(after.crop, inverts ? (std::array{3, 4, 10, 10}) : before.crop);
        EXPECT_EQ(after.resolution, before.resolution);
        EXPECT_EQ(after.transparent, 3);
        EXPECT_TRUE(read_grid(image.handle()) == pixels);
      }
    }
  }
}

TEST(MovedPixels, SidesThatRunListsCannotHoldBecomePlain) {
  const KeptImage high({1}, 40, 65534, 3);
  ASSERT_EQ(IMG_dib_to_runs(high.handle()), IMG_OK);
  const Grid before = read_grid(high.handle());
  ASSERT_EQ(IMG_orient_bitmap(high.handle(), 6), IMG_OK);
  EXPECT_EQ(snapshot(high.handle()).front[16], 0);
  ASSERT_EQ(IMG_orient_bitmap(high.handle(), 8), IMG_OK);
  EXPECT_TRUE(read_grid(high.handle()) == before);
}

TEST(MovedPixels, ArgumentsOutsideTheirSetLeaveTheImage) {
  struct Case {
    int bits;
    Image (*run)(Image);
    std::int32_t status = IMG_UNSUPPORTED;
  };
  const Case cases[] = {
      {8, [](Image i) { return IMG_orient_bitmap(i, 0); }},
      {8, [](Image i) { return IMG_orient_bitmap(i, 9); }},
      {24, [](Image i) { return IMG_crop_bitmap(i, -1, 0, 4, 4); }},
      {24, [](Image i) { return IMG_crop_bitmap(i, 0, 0, 21, 4); }},
      {24, [](Image i) { return IMG_crop_bitmap(i, 1, 1, 4, INT_MAX); }},
      {24, [](Image i) { return IMG_crop_bitmap(i, INT_MAX, 0, INT_MAX, 1); }},
      {24, [](Image i) { return IMG_crop_bitmap(i, INT_MIN, 0, 1, 1); }},
      {24, [](Image i) { return IMG_crop_bitmap(i, 0, 0, 0, 1); }},
      {1, [](Image i) { return IMG_extend_bitmap(i, -10, 0, -10, 0, -1); }},
      {1, [](Image i) { return IMG_extend_bitmap(i, 0, INT_MIN, 0, INT_MIN, -1); }},
      {1, [](Image i) { return IMG_extend_bitmap(i, INT_MAX, 0, INT_MAX, 0, -1); },
       IMG_OUT_OF_MEMORY},
      {1, [](Image i) { return IMG_extend_bitmap(i, 1, 1, 1, 1, 2); }},
      {1, [](Image i) { return IMG_extend_bitmap(i, 0, 0, 0, 0, -2); }},
      {4, [](Image i) { return IMG_extend_bitmap(i, 1, 1, 1, 1, 16); }},
      {16, [](Image i) { return IMG_extend_bitmap(i, 1, 1, 1, 1, 65536); }},
      {24, [](Image i) { return IMG_extend_bitmap(i, 1, 1, 1, 1, 0x1000000); }},
      {24, [](Image i) { return IMG_rotate_bitmap(i, 1, -1, 4); }},
      {24, [](Image i) { return IMG_rotate_bitmap(i, INT_MIN, -2, 0); }},
      {16, [](Image i) { return IMG_rotate_bitmap(i, INT_MIN, -1, 1); }, IMG_WRONG_DEPTH},
      {24, [](Image i) { return IMG_resize_bitmap(i, 0, 5, 1); }},
      {24, [](Image i) { return IMG_resize_bitmap(i, 5, 5, 6); }},
      {24, [](Image i) { return IMG_resize_bitmap(i, 5, 5, 5); }, IMG_WRONG_DEPTH},
      {24, [](Image i) { return IMG_resize_bitmap(i, INT_MAX, INT_MAX, 1); }, IMG_OUT_OF_MEMORY},
      {24, [](Image i) { return IMG_resample_bitmap(i, 100, 100, 1); }},
      {16, [](Image i) { return IMG_rotate_bitmap(i, 0, -9, 77); }, IMG_OK},
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
