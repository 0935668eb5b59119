// Pages of TIFF files as callers add them, ask about them, and lose none.
#include <cstring>

#include "tests/support/fed_sink.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

class TiffPages : public LibraryTest {
 protected:
  ScratchFolder folder;
  const std::string name = folder.file("pages.tif");

  // A page whose width says which one it is.
  std::int32_t add(std::int32_t number, std::int32_t code) {
    const Image page = make_image(10 + number, 1, Rows(3, Bytes(stride(10 + number, 1), 0x5A)));
    auto* const header = reinterpret_cast<BitmapInfoHeader*>(page.record().dib);
    header->biXPelsPerMeter = 300;  // dots per inch, inside the library
    header->biYPelsPerMeter = 200;
    return IMG_save_bitmap(page, name.c_str(), code);
  }
  std::vector<std::uint16_t> shorts(std::int32_t page, std::int32_t tag) {
    std::int32_t type = 0, count = 0;
    std::array<std::uint16_t, 4> values{};
    const std::int32_t bytes =
        IMGLOW_get_tiff_tag(name.c_str(), page, tag, &type, &count, values.data(), sizeof values);
    EXPECT_EQ(bytes, 2 * count);
    EXPECT_EQ(type, 3);
    return {values.begin(), values.begin() + count};
  }
};

TEST_F(TiffPages, TagsAndHeadersOfAnyPageInEitherOrder) {
  for (const std::int32_t order : {0, 1}) {
    std::filesystem::remove(name);
    EXPECT_EQ(IMG_set_option(IMG_OPTION_TIFF_BYTE_ORDER, order), 0);
    EXPECT_EQ(add(0, IMG_TYPE_TIFF), 0);
    EXPECT_EQ(IMG_set_option(IMG_OPTION_TIFF_BYTE_ORDER, 0), order);  // of new files alone
    EXPECT_EQ(add(1, IMG_TYPE_TIFF_G4), 0);
    EXPECT_EQ(file_content(name)[0], order == 1 ? 'M' : 'I');
    EXPECT_EQ(IMGLOW_get_pages(name.c_str()), 2);
    EXPECT_EQ(shorts(1, 297), (std::vector<std::uint16_t>{1, 0}));
    EXPECT_EQ(shorts(1, 259), (std::vector<std::uint16_t>{4}));
    std::array<std::uint32_t, 3> dpi{0, 0, 7};
    EXPECT_EQ(IMGLOW_get_tiff_tag(name.c_str(), 0, 282, nullptr, nullptr, dpi.data(), 8), 8);
    EXPECT_EQ(dpi, (std::array<std::uint32_t, 3>{300, 1, 7}));
    char text[4] = {};
    EXPECT_EQ(IMGLOW_get_tiff_tag(name.c_str(), 1, 305, nullptr, nullptr, text, 3), 10);
    EXPECT_STREQ(text, "Tar");
    const auto tag = [&](std::int32_t page, std::int32_t number) {
      return IMGLOW_get_tiff_tag(name.c_str(), page, number, nullptr, nullptr, nullptr, 0);
    };
    EXPECT_EQ(tag(1, 324), IMG_NOT_TILED);
    EXPECT_EQ(tag(1, 999), IMG_UNSUPPORTED);
    EXPECT_EQ(tag(2, 256), IMG_PAGE_PAST_END);
    EXPECT_EQ(tag(-1, 256), IMG_PAGE_PAST_END);
    BitmapInfoHeader header{};
    EXPECT_EQ(IMGLOW_get_fileinfo_page(name.c_str(), 1, &header), 0);
    EXPECT_EQ(header.biWidth, 11);
    EXPECT_EQ(IMGLOW_get_fileinfo_page(name.c_str(), 2, &header), IMG_PAGE_PAST_END);
    EXPECT_EQ(IMGLOW_get_image_orientation(name.c_str()), 1);
  }
}

TEST_F(TiffPages, FailedAdditionTakesTheFileOrLeavesItAsItWas) {
  for (const auto& [safe, code] : {std::pair{1, IMG_TYPE_TIFF_PACKBITS},
                                   {1, IMG_TYPE_PDF},
                                   {1, IMG_TYPE_DCX},
                                   {0, IMG_TYPE_TIFF_PACKBITS},
                                   {0, IMG_TYPE_PDF}}) {
    ASSERT_GE(IMG_set_option(IMG_OPTION_SAFE_SAVING, safe), 0);
    ASSERT_EQ(add(0, code), 0);
    const Bytes before = file_content(name);
    {
      const OnProgress progress([](std::int32_t) { return -77; });
      EXPECT_EQ(add(1, code), -77);
    }
    EXPECT_EQ(file_content(name), safe == 1 ? before : Bytes());
    EXPECT_EQ(std::filesystem::exists(name), safe == 1);
    std::filesystem::remove(name);
  }
}

TEST_F(TiffPages, OptionsHaveRangesAndChangeWhatIsWritten) {
  const auto accepted = [](std::int32_t option, std::int32_t value) {
    return IMG_set_option(option, value) >= 0;
  };
  for (const auto& [option, value] : {std::pair{IMG_OPTION_TIFF_G3_K, 3},
                                      {IMG_OPTION_TIFF_G3_K, 5},
                                      {IMG_OPTION_TIFF_STRIP_BYTES, 4095},
                                      {IMG_OPTION_TIFF_JPEG, 6},
                                      {IMG_OPTION_TIFF_BYTE_ORDER, -1}}) {
    EXPECT_FALSE(accepted(option, value)) << option;
  }
  EXPECT_EQ(IMG_get_option(0), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_get_option(64), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_set_option(1 << 30, 0), IMG_UNSUPPORTED);
  EXPECT_TRUE(accepted(IMG_OPTION_TIFF_G3_K, 4) && accepted(IMG_OPTION_TIFF_G3_FILL, 1));
  EXPECT_TRUE(accepted(IMG_OPTION_TIFF_PHOTOMETRIC, 1));
  ASSERT_EQ(add(0, IMG_TYPE_TIFF_G3), 0);
  ASSERT_EQ(add(1, IMG_TYPE_TIFF), 0);
  std::uint32_t t4_options = 0;
  EXPECT_EQ(IMGLOW_get_tiff_tag(name.c_str(), 0, 292, nullptr, nullptr, &t4_options, 4), 4);
  EXPECT_EQ(t4_options, 5u);
  EXPECT_EQ(shorts(1, 262), (std::vector<std::uint16_t>{0}));
  for (const std::int32_t page : {0, 1}) {
    const Bytes file = file_content(name);
    const Image image(IMG_decompress_bitmap_block(file.data(), file.size(), page));
    EXPECT_EQ(unpack(rows_of_image(image)[2], 10 + page, 1),
              unpack(Bytes(stride(10 + page, 1), 0x5A), 10 + page, 1));
  }
}

}  // namespace
}  // namespace tq::test
