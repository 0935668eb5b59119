// tarnquill.hpp over the shared library: what is freed, moved, thrown and seen.
#include "tarnquill.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

namespace {

const char* const kPage = "corpus/tiff/g4.tif";

// The lowest free handle is the next one given out.
std::int32_t lowest_free_handle() {
  return tq::Image::open(kPage).handle();
}

TEST(CppImage, IsDeletedOnceWhereverItWasMoved) {
  const std::int32_t lowest = lowest_free_handle();
  {
    tq::Image first = tq::Image::open(kPage), second = std::move(first), third;
    third = std::move(second);
    EXPECT_EQ(third.handle(), lowest);
    third = tq::Image::open(kPage);
  }
  EXPECT_EQ(lowest_free_handle(), lowest);
  tq::Image taken = tq::Image::open(kPage);
  EXPECT_EQ(IMG_delete_bitmap(taken.release()), IMG_OK);
  EXPECT_EQ(lowest_free_handle(), lowest);
}

TEST(CppImage, RowsAreItsMemoryFromTheTop) {
  tq::Image image = tq::Image::open("corpus/pcx/rgb24.pcx");
  const tq::Pixels pixels = image.pixels();
  std::vector<std::uint8_t> row(static_cast<std::size_t>(-pixels.stride));
  for (const std::int32_t y : {0, pixels.height - 1}) {
    ASSERT_EQ(IMGLOW_get_raster(image.handle(), row.data(), y, 0), IMG_OK);
    EXPECT_TRUE(std::equal(row.begin(), row.end(), pixels.row(y))) << y;
  }
  const std::uint8_t blue = pixels.row(0)[0];
  EXPECT_EQ(image.invert().pixels().row(0)[0], 255 - blue);
  tq::Image page = tq::Image::open(kPage);  // run lists become pixels
  ASSERT_EQ(IMGLOW_get_raster(page.handle(), row.data(), 0, 4), IMG_OK);
  EXPECT_TRUE(std::equal(row.begin(), row.begin() + 4, page.pixels().row(0)));
}

TEST(CppImage, ThrowsTheStatus) {
  const auto status = [](auto&& call) {
    try {
      call();
      return std::int32_t{IMG_OK};
    } catch (const tq::Error& error) {
      EXPECT_NE(std::string(error.what()).find(IMG_status_text(error.status())), std::string::npos);
      return error.status();
    }
  };
  EXPECT_EQ(status([] { tq::Image::open("missing.tif"); }), IMG_CANNOT_OPEN);
  EXPECT_EQ(status([] { tq::Image::open(kPage, 1); }), IMG_PAGE_PAST_END);
  EXPECT_EQ(status([] { tq::Image().width(); }), IMG_BAD_HANDLE);
  EXPECT_EQ(status([] { tq::Image::open("corpus/pcx/rgb24.pcx").despeckle(); }), IMG_WRONG_DEPTH);
}

TEST(CppImage, SavesAndOpensPagesAgain) {
  const std::string name = testing::TempDir() + "cpp_test.tif";
  std::remove(name.c_str());
  tq::Image page = tq::Image::open(kPage);
  page.save(name, IMG_TYPE_TIFF_G4);
  tq::Image::open("corpus/pcx/rgb24.pcx").save(name);
  EXPECT_EQ(tq::Image::pages(name), 2);
  EXPECT_EQ(tq::Image::open(name, 1).bits(), 24);
  const std::vector<std::uint8_t> bytes =
      page.save_to_memory(IMG_TYPE_XPM);  // more than its pixels
  EXPECT_EQ(tq::Image::from_memory(bytes.data(), bytes.size()).width(), page.width());
  std::remove(name.c_str());
}

TEST(CppContext, KeepsImagesOfThreadsApart) {
  const tq::Image here = tq::Image::open(kPage);
  std::int32_t there = -1;
  std::thread([&there] {
    const tq::Context context;
    there = tq::Image::open(kPage).rotate(9000).handle();
  }).join();
  EXPECT_EQ(there, 0);
  EXPECT_GT(here.width(), 0);
}

}  // namespace
