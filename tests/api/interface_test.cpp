// The shared library as its callers use it: images from files, memory and the caller's own streams,
// cropped, saved, aborted. What else it does is tested where it is done.
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

Bytes row_of(std::int32_t image, std::int32_t y) {
  Bytes row(200);
  EXPECT_EQ(IMGLOW_get_raster(image, row.data(), y, 0), IMG_OK);
  return row;
}

class Interface : public testing::Test {
 protected:
  ~Interface() override {
    IMG_set_statusbar(0, nullptr, 0);
    IMGLOW_set_fileio(nullptr, nullptr, nullptr);
    for (std::int32_t image = 0; image < 10; ++image) IMG_delete_bitmap(image);
  }
  std::string file(const char* name) const { return folder_.file(name); }

 private:
  ScratchFolder folder_;
};

TEST_F(Interface, EveryDepthIsLoadedCroppedSavedAndLoadedAgain) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    SCOPED_TRACE(bits);
    const Bytes whole = bmp_file(32, 11, static_cast<std::size_t>(bits));
    write_file(file("in.bmp"), whole);
    const std::int32_t image = IMG_decompress_bitmap(file("in.bmp").c_str());
    ASSERT_EQ(image, 0);
    ASSERT_EQ(IMG_save_bitmap(image, file("out.bmp").c_str(), IMG_TYPE_BY_NAME), IMG_OK);
    EXPECT_EQ(file_content(file("out.bmp")), whole);

    ASSERT_EQ(IMG_set_croprect(image, 8, 2, 16, 5), IMG_OK);
    Bytes block(4000);
    const std::int32_t size =
        IMG_save_bitmap_block(image, block.data(), block.size(), IMG_TYPE_DIB);
    ASSERT_GT(size, 0);
    block.resize(static_cast<std::size_t>(size));
    const std::int32_t part = load(block);
    ASSERT_EQ(part, 1);
    std::int32_t width = 0, height = 0;
    EXPECT_NE(IMG_bitmap_info(part, &width, &height, nullptr), IMG_BAD_HANDLE);
    EXPECT_EQ(width * 100 + height, 1605);
    for (std::int32_t y = 0; y < 5; ++y) {
      const Bytes from = row_of(image, 2 + y), got = row_of(part, y);
      EXPECT_TRUE(std::equal(from.begin() + bits, from.begin() + 3 * bits, got.begin())) << y;
    }
    IMG_delete_bitmap(part);
    IMG_delete_bitmap(image);
    EXPECT_EQ(IMG_bitmap_info(image, nullptr, nullptr, nullptr), IMG_BAD_HANDLE);
  }
}

// A file of the caller's own.
struct OwnFile {
  Bytes bytes = {};
  std::int64_t position = 0;
  std::int32_t stream = 0;  // as the functions were given it
};
OwnFile own_file;

std::int32_t IMG_CB_C own_read(std::int32_t stream, void* buffer, std::int32_t count) {
  own_file.stream = stream;
  const auto size = static_cast<std::int64_t>(own_file.bytes.size());
  const std::int64_t got = std::clamp<std::int64_t>(size - own_file.position, 0, count);
  std::copy_n(own_file.bytes.data() + std::min(own_file.position, size), got,
              static_cast<std::uint8_t*>(buffer));
  own_file.position += got;
  return static_cast<std::int32_t>(got);
}

std::int32_t IMG_CB_C own_write(std::int32_t stream, void* buffer, std::int32_t count) {
  own_file.stream = stream;
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  own_file.bytes.insert(own_file.bytes.end(), bytes, bytes + count);
  return count;
}

std::int32_t IMG_CB_C own_seek(std::int32_t stream, std::int32_t offset, std::int32_t origin) {
  own_file.stream = stream;
  const std::int64_t from[] = {0, own_file.position,
                               static_cast<std::int64_t>(own_file.bytes.size())};
  own_file.position = std::max<std::int64_t>(from[origin] + offset, 0);
  return static_cast<std::int32_t>(own_file.position);
}

TEST_F(Interface, CallersReadAndWriteWhateverTheirStreamsAre) {
  const Bytes whole = bmp_file(32, 9, 8);
  own_file = {.bytes = whole};
  own_file.bytes.insert(own_file.bytes.begin(), 100, 0xEE);
  ASSERT_EQ(IMGLOW_set_fileio(own_read, own_write, own_seek), IMG_OK);
  const std::int32_t image = IMG_decompress_bitmap_fd(-4711, 100, 0);
  ASSERT_EQ(image, 0);
  EXPECT_EQ(own_file.stream, -4711);
  own_file.position = 100;
  EXPECT_EQ(IMGLOW_get_filetype_fd(12), IMG_TYPE_BMP);
  EXPECT_EQ(own_file.position, 100);

  own_file = {};
  ASSERT_EQ(IMG_save_bitmap_fd(image, 999, IMG_TYPE_BMP), IMG_OK);
  EXPECT_EQ(own_file.stream, 999);
  EXPECT_EQ(own_file.bytes, whole);
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
