// What is told of files that are not whole, and what limits leave of hostile ones.
#include <algorithm>
#include <array>
#include <cstring>

#include "tests/support/corpus.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"
#include "tests/sweep/watched_images.h"

namespace tq::test {
namespace {

class Damage : public LibraryTest {
 protected:
  Damage() { IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 1); }
  ~Damage() override {
    for (const std::int32_t option :
         {IMG_OPTION_EXTENDED_FORMATS, IMG_OPTION_STRICT, IMG_OPTION_MAX_PIXELS,
          IMG_OPTION_MAX_KBYTES, IMG_OPTION_MAX_PAGES, IMG_OPTION_READING}) {
      IMG_set_option(option, 0);
    }
  }
};

struct Seen {
  std::int32_t image = 0, damaged = 0, rows = 0, reason = 0, first = 0, last = 0;
  std::vector<Bytes> pixels{};
};

Seen decode(const Bytes& file, std::int32_t page = 0) {
  Seen seen{.image = IMG_decompress_bitmap_block(file.data(), file.size(), page)};
  seen.damaged = IMG_get_damage(-1, &seen.rows, &seen.reason);
  EXPECT_EQ(IMG_get_damaged_rows(-1, &seen.first, &seen.last, nullptr), seen.damaged);
  if (seen.image < 0) return seen;
  Seen own;
  EXPECT_EQ(IMG_get_damage(seen.image, &own.rows, &own.reason), seen.damaged);
  EXPECT_EQ(own.rows, seen.rows);
  EXPECT_EQ(own.reason, seen.reason);
  EXPECT_EQ(IMG_get_damaged_rows(seen.image, &own.first, &own.last, nullptr), seen.damaged);
  EXPECT_TRUE(own.first == seen.first && own.last == seen.last);
  const Image image(seen.image);
  seen.pixels = rows_of_image(image);
  return seen;
}

TEST_F(Damage, WholeFilesHaveNone) {
  IMG_set_option(IMG_OPTION_STRICT, 1);
  for (const CorpusFile& file : corpus_files()) {
    for (std::int32_t page = 0; file.decoded && page < file.pages; ++page) {
      for (const int reading : {0, 1}) {
        IMG_set_option(IMG_OPTION_READING, reading);
        const Seen seen = decode(file.bytes, page);
        EXPECT_EQ(seen.damaged, 0) << file.name << ", page " << page << ": " << seen.reason;
      }
    }
  }
}

// What stands behind the pixels may be lost unseen.
TEST_F(Damage, FilesThatAreCutOffSayThatTheyAreUnlessTheirPixelsAreWhole) {
  for (const CorpusFile& file : corpus_files()) {
    if (!file.decoded) continue;
    const std::string_view name = file.name;
    IMG_set_option(IMG_OPTION_READING, name.starts_with("bmp/") || name.starts_with("pcx/"));
    const Seen whole = decode(file.bytes);
    for (int part = 1; part < 20; ++part) {
      const std::size_t bytes = file.bytes.size() * static_cast<std::size_t>(part) / 20;
      SCOPED_TRACE(testing::Message() << file.name << ", " << bytes << " bytes");
      const Bytes cut(file.bytes.begin(), file.bytes.begin() + static_cast<std::ptrdiff_t>(bytes));
      const Seen seen = decode(cut);
      IMG_set_option(IMG_OPTION_STRICT, 1);
      const Seen strict = decode(cut);
      IMG_set_option(IMG_OPTION_STRICT, 0);
      if (seen.image < 0 || seen.damaged != 0) {
        EXPECT_EQ(strict.image, seen.image < 0 ? seen.image : seen.reason);
      }
      if (seen.image < 0) continue;
      if (seen.damaged == 0) {
        EXPECT_TRUE(seen.pixels == whole.pixels);
      } else if (seen.pixels.size() == whole.pixels.size()) {
        int intact = 0;
        for (std::int32_t y = 0; y < std::ssize(whole.pixels); ++y) {
          const bool same =
              seen.pixels[static_cast<std::size_t>(y)] == whole.pixels[static_cast<std::size_t>(y)];
          intact += same ? 1 : 0;
          EXPECT_TRUE(same || (y >= seen.first && y <= seen.last)) << y;
        }
        EXPECT_LE(seen.rows, intact);
      }
    }
  }
}

// Rows that have gone missing, and ones that make no sense: what is left of them, and why.
TEST_F(Damage, TheReasonIsThatOfTheFirstRow) {
  Bytes runs = file_content("corpus/bmp/colours-rle8.bmp");
  runs.resize(runs.size() / 2);
  EXPECT_EQ(decode(runs).reason, IMG_READ_FAILED);
  EXPECT_GT(decode(runs).rows, 0);
  Bytes fax = file_content("corpus/cals/page-gm.cal");
  const auto rows = fax.begin() + 2048;
  std::fill(rows + (fax.end() - rows) / 4, rows + (fax.end() - rows) / 2, std::uint8_t{0});
  EXPECT_EQ(decode(fax).reason, IMG_BAD_IMAGE);
  EXPECT_EQ(IMG_get_damage(77, nullptr, nullptr), IMG_BAD_HANDLE);
  EXPECT_EQ(IMG_get_damaged_rows(77, nullptr, nullptr, nullptr), IMG_BAD_HANDLE);
  // Rows that come from the bottom are missing at the top.
  Bytes bottom_up = file_content("corpus/bmp/rgb24.bmp");
  bottom_up.resize(bottom_up.size() / 2);
  const Seen cut = decode(bottom_up);
  std::int32_t first = 0, last = 0, height = 0;
  EXPECT_EQ(IMG_get_damaged_rows(-1, &first, &last, &height), 1);
  EXPECT_TRUE(first == 0 && last == height - 1 - cut.rows && height == std::ssize(cut.pixels));
}

TEST_F(Damage, PicturesBeyondALimitTakeNoMemory) {
  // A few bytes that claim any size.
  Bytes bomb = file_content("corpus/targa/grey.tga");
  for (const int at : {12, 13, 14, 15}) bomb[static_cast<std::size_t>(at)] = 0x7F;
  Bytes tiles = file_content("corpus/fpx/flat.fpx");
  const Bytes sides = {70, 0, 0, 0, 66, 0, 0, 0}, huge = {255, 127, 0, 0, 255, 127, 0, 0};
  const auto found = std::search(tiles.begin(), tiles.end(), sides.begin(), sides.end());
  ASSERT_NE(found, tiles.end());
  std::ranges::copy(huge, found);
  const Bytes page = file_content("corpus/tiff/pages.tif");
  const Seen whole = decode(page);
  std::array<std::uint8_t, IMG_HEADER_BLOCK_BYTES> header{};
  IMG_set_option(IMG_OPTION_MAX_PIXELS, 1 << 20);
  memory_probe::refuse_above(1 << 20);
  EXPECT_EQ(decode(bomb).image, IMG_OUT_OF_MEMORY);
  EXPECT_EQ(decode(tiles).image, IMG_OUT_OF_MEMORY);
  EXPECT_EQ(IMGLOW_get_fileinfo_block(bomb.data(), bomb.size(), header.data()), 0);
  memory_probe::refuse_above(kLargestBlock);
  EXPECT_EQ(decode(page).pixels, whole.pixels);
  IMG_set_option(IMG_OPTION_MAX_PIXELS, 10);
  EXPECT_EQ(decode(page).image, IMG_OUT_OF_MEMORY);
  EXPECT_EQ(IMG_create_handle_shell(plain_file(20, 3, 8).data() + 14), IMG_OUT_OF_MEMORY);
  IMG_set_option(IMG_OPTION_MAX_PIXELS, 0);

  IMG_set_option(IMG_OPTION_MAX_KBYTES, 2);
  EXPECT_EQ(decode(page).image, IMG_OUT_OF_MEMORY);
  IMG_set_option(IMG_OPTION_MAX_KBYTES, 4000);
  EXPECT_EQ(decode(page).pixels, whole.pixels);
  IMG_set_option(IMG_OPTION_MAX_KBYTES, 0);

  ASSERT_EQ(IMGLOW_get_pages_block(page.data(), page.size()), 2);
  EXPECT_GE(decode(page, 1).image, 0);
  IMG_set_option(IMG_OPTION_MAX_PAGES, 1);
  EXPECT_EQ(IMGLOW_get_pages_block(page.data(), page.size()), 1);
  EXPECT_EQ(decode(page).pixels, whole.pixels);
  EXPECT_EQ(decode(page, 1).image, IMG_PAGE_PAST_END);
}

TEST_F(Damage, ResolutionsAreKeptToTheThousandthUntilTheHeaderIsChanged) {
  const Image image(IMG_create_handle_shell(plain_file(20, 3, 8).data() + 14));
  ASSERT_EQ(IMG_set_resolution(image, 203200, 97790), 0);
  EXPECT_EQ(header_of_image(image).biXPelsPerMeter, 203);
  EXPECT_EQ(header_of_image(image).biYPelsPerMeter, 98);
  EXPECT_EQ(IMG_set_resolution(image, -1, 0), IMG_UNSUPPORTED);
  for (const std::int32_t code : {IMG_TYPE_PNG, IMG_TYPE_TIFF_PACKBITS, IMG_TYPE_BMP}) {
    for (const bool exactly : {false, true}) {
      SCOPED_TRACE(testing::Message() << code << ", " << exactly);
      Bytes file(5000);
      IMG_set_option(IMG_OPTION_READING, exactly);
      const std::int32_t bytes = IMG_save_bitmap_block(image, file.data(), file.size(), code);
      ASSERT_GT(bytes, 0);
      const Image read(
          IMG_decompress_bitmap_block(file.data(), static_cast<std::size_t>(bytes), 0));
      IMG_set_option(IMG_OPTION_READING, 0);
      std::int32_t x = 0, y = 0;
      ASSERT_EQ(IMG_get_resolution(read, &x, &y), 0);
      const std::int32_t unit = code == IMG_TYPE_TIFF_PACKBITS ? 0 : 13;  // half a pixel per metre
      EXPECT_LE(std::abs(x - (exactly ? 203200 : 203000)), unit);
      EXPECT_LE(std::abs(y - (exactly ? 97790 : 98000)), unit);
      BitmapInfoHeader changed = header_of_image(read);
      changed.biXPelsPerMeter = 300;
      std::int32_t width = 0, height = 0, bits = 0;
      std::memcpy(reinterpret_cast<void*>(IMG_bitmap_info(read, &width, &height, &bits)), &changed,
                  sizeof changed);
      ASSERT_EQ(IMG_get_resolution(read, &x, nullptr), 0);
      EXPECT_EQ(x, 300000);
    }
  }
}

}  // namespace
}  // namespace tq::test
