// The shared library as its callers use it: images loaded, saved, aborted. What else it does is
// tested where it is done.
#include <gmock/gmock.h>
#include <tarnquill.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "../support/scratch_folder.h"
#include "c_caller.h"

namespace tq::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

void put(Bytes& bytes, std::size_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
}

// As the library writes it, with rows that differ; the width is a multiple of 32: no padding.
Bytes bmp_file(std::size_t width, std::size_t height, std::size_t bits) {
  const std::size_t colours = bits <= 8 ? std::size_t{1} << bits : 0;
  const std::size_t pixels = width * bits / 8 * height, front = 54 + 4 * colours;
  Bytes file = {'B', 'M'};
  for (const std::size_t field : {front + pixels, std::size_t{0}, front, std::size_t{40}, width,
                                  height, 1 | bits << 16, std::size_t{0}, pixels}) {
    put(file, field, 4);
  }
  file.resize(54);
  for (std::size_t i = 0; i < colours; ++i) put(file, i * 255 / (colours - 1) * 0x010101, 4);
  for (std::size_t i = 0; i < pixels; ++i) put(file, i * 37 + i / 50, 1);
  return file;
}

std::int32_t load(const Bytes& file) {
  return IMG_decompress_bitmap_block(file.data(), file.size(), 0);
}

class Interface : public testing::Test {
 protected:
  ~Interface() override {
    IMG_set_statusbar(0, nullptr, 0);
    for (std::int32_t image = 0; image < 10; ++image) IMG_delete_bitmap(image);
  }
  std::string file(const char* name) const { return folder_.file(name); }

 private:
  ScratchFolder folder_;
};

TEST_F(Interface, EveryDepthIsLoadedAndSaved) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    SCOPED_TRACE(bits);
    const Bytes whole = bmp_file(32, 11, static_cast<std::size_t>(bits));
    write_file(file("in.bmp"), whole);
    const std::int32_t image = IMG_decompress_bitmap(file("in.bmp").c_str());
    ASSERT_EQ(image, 0);
    ASSERT_EQ(IMG_save_bitmap(image, file("out.bmp").c_str(), IMG_TYPE_BY_NAME), IMG_OK);
    EXPECT_EQ(file_content(file("out.bmp")), whole);

    IMG_delete_bitmap(image);
    EXPECT_EQ(IMG_bitmap_info(image, nullptr, nullptr, nullptr), IMG_BAD_HANDLE);
  }
}

std::int32_t rows_until_abort = 0;
std::int32_t IMG_CB_STD abort_later(std::intptr_t, std::int32_t) {
  return --rows_until_abort == 0 ? -4321 : 0;
}

TEST_F(Interface, AnAbortLeavesNeitherImageNorFile) {
  const Bytes whole = bmp_file(32, 8, 8);
  const std::int32_t image = load(whole);
  IMG_set_statusbar(0, abort_later, 1);
  for (const std::int32_t row : {1, 3, 8}) {
    rows_until_abort = row;
    EXPECT_EQ(load(whole), -4321);
    EXPECT_EQ(IMG_delete_bitmap(1), IMG_BAD_HANDLE);
    rows_until_abort = row;
    EXPECT_EQ(IMG_save_bitmap(image, file("half.bmp").c_str(), IMG_TYPE_BMP), -4321);
    EXPECT_FALSE(std::filesystem::exists(file("half.bmp")));
  }
  rows_until_abort = 9;
  EXPECT_EQ(load(whole), 1);
}

TEST_F(Interface, IsPlainC) {
  EXPECT_STREQ(call_from_c(), nullptr);
}

}  // namespace
}  // namespace tq::test
