// The shared library as its callers use it: images from files and memory, looked at and saved.
#include <algorithm>
#include <map>
#include <random>

#include "api_support.h"
#include "c_caller.h"

namespace tq::api_test {
namespace {

class Images : public ApiTest {};

TEST_F(Images, EveryDepthIsLoadedCroppedSavedAndLoadedAgain) {
  for (const std::int32_t bits : {1, 4, 8, 24, 32}) {
    SCOPED_TRACE(bits);
    const Picture picture = make_picture(37, 11, bits);
    write(file("in.bmp"), bmp_file(picture));
    const std::int32_t image = IMG_decompress_bitmap(file("in.bmp").c_str());
    ASSERT_EQ(image, 0);
    expect_same(picture_of(image), picture);
    Bytes header(IMG_HEADER_BLOCK_BYTES);
    ASSERT_EQ(IMGLOW_get_bitmap_header(image, header.data()), IMG_OK);
    EXPECT_EQ(word(header, 16), bits == 1 ? 99u : bits == 32 ? 200u : 0u);

    ASSERT_EQ(IMG_set_croprect(image, 8, 2, 21, 5), IMG_OK);
    const Picture part = cut(picture, 8, 2, 21, 5);
    ASSERT_EQ(IMG_save_bitmap(image, file("out.bmp").c_str(), IMG_TYPE_BY_NAME), IMG_OK);
    EXPECT_EQ(content(file("out.bmp")).size(), bmp_file(part).size());
    const std::int32_t again = IMG_decompress_bitmap(file("out.bmp").c_str());
    ASSERT_EQ(again, 1);
    expect_same(picture_of(again), part);

    Bytes block(4000);
    const std::int32_t dib_size =
        IMG_save_bitmap_block(again, block.data(), block.size(), IMG_TYPE_DIB);
    ASSERT_EQ(dib_size, static_cast<std::int32_t>(packed_dib(part).size()));
    block.resize(static_cast<std::size_t>(dib_size));
    const std::int32_t from_dib = load(block);
    ASSERT_EQ(from_dib, 2);
    expect_same(picture_of(from_dib), part);

    const std::int32_t coded = IMG_save_bitmap(again, file("c.bmp").c_str(), IMG_TYPE_BMP_RLE);
    if (bits == 4 || bits == 8) {
      ASSERT_EQ(coded, IMG_OK);
      EXPECT_EQ(IMGLOW_get_filetype(file("c.bmp").c_str()), IMG_TYPE_BMP_RLE);
      expect_same(picture_of(IMG_decompress_bitmap(file("c.bmp").c_str())), part);
    } else if (bits != 32) {
      EXPECT_EQ(coded, IMG_WRONG_DEPTH);
      EXPECT_FALSE(std::filesystem::exists(file("c.bmp")));
    }
    for (const std::int32_t handle : {3, 2, 1, 0}) IMG_delete_bitmap(handle);
    EXPECT_EQ(IMG_bitmap_info(0, nullptr, nullptr, nullptr), IMG_BAD_HANDLE);
  }
}

TEST_F(Images, FaultsAreAnsweredByTheirCode) {
  const Bytes mono = bmp_file(make_picture(9, 3, 1)), colour = bmp_file(make_picture(9, 3, 24));
  const std::int32_t one = load(mono), deep = load(colour);
  Bytes flat = colour, empty = Bytes(100, 0xEE), gif = {'G', 'I', 'F', '8', '9', 'a', 0, 0, 0, 0};
  flat[18] = flat[19] = flat[20] = flat[21] = 0;  // no width
  Bytes out(4000);
  const std::string missing = file("nowhere/x.bmp"), there = file("there.gif");
  write(there, empty);
  const struct {
    const char* what;
    std::int32_t got, wanted;
  } cases[] = {
      {"no file", IMG_decompress_bitmap(missing.c_str()), IMG_CANNOT_OPEN},
      {"null name", IMG_decompress_bitmap(nullptr), IMG_CANNOT_OPEN},
      {"null block", IMG_decompress_bitmap_mem(nullptr, 0), IMG_UNSUPPORTED},
      {"null DIB", IMG_create_handle_keep(nullptr), IMG_BAD_IMAGE},
      {"nothing known", load(empty), IMG_UNSUPPORTED},
      {"nothing at all", load({}), IMG_UNSUPPORTED},
      {"no width", load(flat), IMG_BAD_IMAGE},
      {"module missing", load(gif), IMG_NO_LZW_MODULE},
      {"no folder", IMG_save_bitmap(one, missing.c_str(), IMG_TYPE_BMP), IMG_CANNOT_CREATE},
      {"no such code", IMG_save_bitmap(one, there.c_str(), 66), IMG_UNSUPPORTED},
      {"unknown name", IMG_save_bitmap(one, file("a.imt").c_str(), -1), IMG_UNSUPPORTED},
      {"no module to save", IMG_save_bitmap(one, there.c_str(), -1), IMG_NO_LZW_MODULE},
      {"room too small", IMG_save_bitmap_block(deep, out.data(), 60, 1), IMG_WRITE_FAILED},
      {"bad handle", IMG_save_bitmap_block(77, out.data(), 60, 1), IMG_BAD_HANDLE},
      {"negative handle", IMG_delete_bitmap(-1), IMG_BAD_HANDLE},
      {"row below", IMGLOW_get_raster(deep, out.data(), 3, 0), IMG_UNSUPPORTED},
      {"row above", IMGLOW_put_raster(deep, out.data(), -1, 0), IMG_UNSUPPORTED},
      {"negative count", IMGLOW_get_raster(deep, out.data(), 0, -1), IMG_UNSUPPORTED},
      {"angle", IMG_set_display_angle(deep, 45), IMG_UNSUPPORTED},
      {"not 1 bit", IMG_dib_to_runs(deep), IMG_WRONG_DEPTH},
      {"no transparency", IMGLOW_get_transp_color(deep), IMG_NO_TRANSPARENCY},
      {"switch", IMGLOW_get_auto_detect(67), IMG_UNSUPPORTED},
  };
  for (const auto& fault : cases) EXPECT_EQ(fault.got, fault.wanted) << fault.what;
  EXPECT_EQ(content(there), empty);  // refused before it was touched
  ASSERT_EQ(IMG_set_croprect(deep, 8, 0, 1, 1), IMG_OK);
  EXPECT_EQ(IMG_save_bitmap_block(deep, out.data(), out.size(), 1), IMG_BAD_IMAGE);
}

TEST_F(Images, RowsAndPalettesAreReadAndWritten) {
  for (const std::int32_t bits : {1, 4, 8, 24, 32}) {
    SCOPED_TRACE(bits);
    Picture picture = make_picture(19, 4, bits);
    const std::int32_t image = IMG_create_handle_shell(header_and_palette(picture).data());
    ASSERT_EQ(image, 0);
    for (std::int32_t y = 0; y < 4; ++y) {
      Bytes row(picture.rows[0].size(), 0xFF);
      ASSERT_EQ(IMGLOW_get_raster(image, row.data(), y, 0), IMG_OK);
      EXPECT_EQ(row, Bytes(row.size(), 0));
      ASSERT_EQ(IMGLOW_put_raster(image, picture.rows[static_cast<std::size_t>(y)].data(), y, 0),
                IMG_OK);
    }
    // Two bytes of a row, the others stay.
    const Bytes two = {0x12, 0x34};
    ASSERT_EQ(IMGLOW_put_raster(image, two.data(), 2, 2), IMG_OK);
    std::copy(two.begin(), two.end(), picture.rows[2].begin());
    if (bits == 1) {
      ASSERT_EQ(IMG_dib_to_runs(image), IMG_OK);
      expect_same(picture_of(image), picture);
      ASSERT_EQ(IMGLOW_put_raster(image, picture.rows[3].data(), 1, 2), IMG_OK);
      std::copy_n(picture.rows[3].begin(), 2, picture.rows[1].begin());
      ASSERT_EQ(IMG_runs_to_dib(image), IMG_OK);
    }
    std::reverse(picture.palette.begin(), picture.palette.end());
    ASSERT_EQ(IMGLOW_put_palette(image, picture.palette.data()), IMG_OK);
    expect_same(picture_of(image), picture);
    ASSERT_EQ(IMG_delete_bitmap(image), IMG_OK);
  }
}

TEST_F(Images, ARegisteredDibStaysWithItsCaller) {
  Bytes dib = packed_dib(make_picture(5, 2, 24));
  const Bytes before = dib;
  const std::int32_t image = IMG_create_handle_keep(dib.data());
  ASSERT_EQ(image, 0);
  EXPECT_EQ(IMG_bitmap_info(image, nullptr, nullptr, nullptr),
            reinterpret_cast<std::intptr_t>(dib.data()));
  const Bytes row(15, 0xAB);
  ASSERT_EQ(IMGLOW_put_raster(image, row.data(), 1, 15), IMG_OK);  // the lower row comes first
  EXPECT_TRUE(std::equal(row.begin(), row.end(), dib.begin() + 40));
  EXPECT_TRUE(std::equal(before.begin() + 56, before.end(), dib.begin() + 56));
  EXPECT_EQ(IMG_delete_bitmap_keep(image), IMG_OK);
  EXPECT_EQ(dib[40], 0xAB);
}

TEST_F(Images, SettingsChangeWhatIsDecoded) {
  const Bytes picture = bmp_file(make_picture(40, 20, 24));
  const auto shape = [&] {
    std::int32_t width = 0, height = 0, bits = 0;
    const std::int32_t image = load(picture);
    EXPECT_NE(IMG_bitmap_info(image, &width, &height, &bits), IMG_BAD_HANDLE);
    IMG_delete_bitmap(image);
    return std::vector<std::int32_t>{width, height, bits};
  };
  EXPECT_THAT(shape(), testing::ElementsAre(40, 20, 24));
  for (const std::int32_t bits : {8, 4, 1}) {
    IMGLOW_set_decomp_reduction(bits);
    EXPECT_THAT(shape(), testing::ElementsAre(40, 20, bits));
  }
  IMGLOW_set_decomp_reduction(0);
  IMGLOW_set_decompsize(10, 30);  // not smaller in both directions
  EXPECT_THAT(shape(), testing::ElementsAre(40, 20, 24));
  IMGLOW_set_decompsize(10, 7);
  IMGLOW_set_decomp_rect(2, 2, 6, 6);  // does not count now
  EXPECT_THAT(shape(), testing::ElementsAre(10, 7, 24));
  IMGLOW_set_decompsize(0, 0);
  const std::int32_t part = load(picture);
  const Picture wanted = cut(make_picture(40, 20, 24), 2, 2, 6, 6);
  expect_same(picture_of(part), wanted);
}

TEST_F(Images, TenThousandLiveAndTheLowestFreeHandleIsNext) {
  const Bytes header = header_and_palette(make_picture(1, 1, 24));
  for (std::int32_t i = 0; i < 10000; ++i) ASSERT_EQ(IMG_create_handle_shell(header.data()), i);
  EXPECT_EQ(IMG_create_handle_shell(header.data()), IMG_OUT_OF_MEMORY);
  EXPECT_EQ(load(bmp_file(make_picture(2, 2, 8))), IMG_OUT_OF_MEMORY);
  std::mt19937 random(1);
  std::map<std::int32_t, bool> free_handles;
  for (int i = 0; i < 20000; ++i) {
    const auto handle = static_cast<std::int32_t>(random() % 10000);
    if (IMG_delete_bitmap(handle) == IMG_OK) {
      free_handles[handle] = true;
    } else {
      const std::int32_t lowest = free_handles.begin()->first;
      ASSERT_EQ(IMG_create_handle_shell(header.data()), lowest);
      free_handles.erase(lowest);
    }
  }
}

TEST_F(Images, TheInterfaceIsPlainC) {
  EXPECT_STREQ(call_from_c(), nullptr);
}

}  // namespace
}  // namespace tq::api_test
