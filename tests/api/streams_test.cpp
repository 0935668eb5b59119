// The shared library over files, memory, and functions of the caller.
#include <algorithm>
#include <functional>

#include "api_support.h"

namespace tq::api_test {
namespace {

class Streams : public ApiTest {};

// A file of the caller's own, and what else happens while it is used.
struct OwnFile {
  Bytes bytes = {};
  std::int64_t position = 0;
  std::int32_t stream = 0;                // as the functions were given it
  std::int32_t calls = 0, last_call = 0;  // the last call that works; 0: all do

  bool fails() { return ++calls > last_call && last_call != 0; }
};
OwnFile own_file;

std::int32_t IMG_CB_C own_read(std::int32_t stream, void* buffer, std::int32_t count) {
  own_file.stream = stream;
  if (own_file.fails()) return -1;
  const auto size = static_cast<std::int64_t>(own_file.bytes.size());
  const std::int64_t got = std::clamp<std::int64_t>(size - own_file.position, 0, count);
  std::copy_n(own_file.bytes.data() + std::min(own_file.position, size), got,
              static_cast<std::uint8_t*>(buffer));
  own_file.position += got;
  return static_cast<std::int32_t>(got);
}

std::int32_t IMG_CB_C own_write(std::int32_t stream, void* buffer, std::int32_t count) {
  own_file.stream = stream;
  if (own_file.fails()) return 0;
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

TEST_F(Streams, CallersReadAndWriteWhateverTheirStreamsAre) {
  const Picture picture = make_picture(33, 9, 8);
  own_file = {.bytes = bmp_file(picture)};
  own_file.bytes.insert(own_file.bytes.begin(), 100, 0xEE);
  ASSERT_EQ(IMGLOW_set_fileio(own_read, own_write, own_seek), IMG_OK);
  const std::int32_t image = IMG_decompress_bitmap_fd(-4711, 100, 0);
  ASSERT_EQ(image, 0);
  EXPECT_EQ(own_file.stream, -4711);
  expect_same(picture_of(image), picture);
  own_file.position = 100;
  EXPECT_EQ(IMGLOW_get_filetype_fd(12), IMG_TYPE_BMP);
  EXPECT_EQ(own_file.position, 100);
  EXPECT_EQ(IMGLOW_get_pages_fd(12), 1);

  own_file = {};
  ASSERT_EQ(IMG_save_bitmap_fd(image, 999, IMG_TYPE_BMP), IMG_OK);
  EXPECT_EQ(own_file.stream, 999);
  EXPECT_EQ(own_file.bytes, bmp_file(picture));
  // Whatever call fails, the save says so and the image stays.
  const std::int32_t calls = own_file.calls;
  for (std::int32_t last = 1; last < calls; ++last) {
    own_file = {.last_call = last};
    ASSERT_EQ(IMG_save_bitmap_fd(image, 999, IMG_TYPE_BMP), IMG_WRITE_FAILED) << last;
  }
  expect_same(picture_of(image), picture);
}

TEST_F(Streams, MemoryIsNeverTouchedBeyondItsSize) {
  for (const std::int32_t bits : {1, 8, 24}) {
    const Picture picture = make_picture(32, 6, bits);
    const Bytes whole = bmp_file(picture);
    const std::int32_t image = load(whole);
    ASSERT_GE(image, 0);
    for (const std::size_t room :
         {whole.size(), whole.size() - 1, whole.size() / 2, std::size_t{0}}) {
      Bytes block(whole.size() + 16, 0x77);
      const std::int32_t saved = IMG_save_bitmap_block(image, block.data(), room, IMG_TYPE_BMP);
      EXPECT_EQ(saved, room == whole.size() ? static_cast<std::int32_t>(room) : IMG_WRITE_FAILED);
      EXPECT_TRUE(std::all_of(block.begin() + static_cast<std::ptrdiff_t>(room), block.end(),
                              [](std::uint8_t byte) { return byte == 0x77; }));
      if (saved >= 0) {
        EXPECT_TRUE(std::equal(whole.begin(), whole.end(), block.begin()));
      }
    }
    // An image that was cut off has the rows that were there; the first in the file is the last.
    const auto row = static_cast<std::size_t>(picture.rows[0].size());
    const Bytes cut_off(whole.begin(), whole.end() - static_cast<std::ptrdiff_t>(2 * row));
    const Picture rest = picture_of(load(cut_off));
    EXPECT_EQ(rest.rows[2], picture.rows[2]);
    EXPECT_EQ(rest.rows[1], Bytes(row, 0));
  }
}

TEST_F(Streams, ScrambledFilesComeBackWithTheirKeyOnly) {
  const Picture picture = make_picture(10, 4, 24);
  const std::int32_t image = load(bmp_file(picture));
  IMG_set_encrypt(1, 0x01020304);
  ASSERT_EQ(IMG_save_bitmap(image, file("s.bmp").c_str(), IMG_TYPE_BMP), IMG_OK);
  Bytes plain = content(file("s.bmp"));
  for (std::uint8_t& byte : plain) byte ^= 0x0A;
  EXPECT_EQ(plain, bmp_file(picture));
  expect_same(picture_of(IMG_decompress_bitmap(file("s.bmp").c_str())), picture);
  IMG_set_encrypt(1, 5);
  EXPECT_EQ(IMG_decompress_bitmap(file("s.bmp").c_str()), IMG_UNSUPPORTED);
}

std::int32_t rows_until_abort = 0;
std::int32_t IMG_CB_STD abort_later(std::intptr_t, std::int32_t) {
  return --rows_until_abort == 0 ? -4321 : 0;
}

TEST_F(Streams, AnAbortLeavesNeitherImageNorFile) {
  const Bytes picture = bmp_file(make_picture(20, 8, 8));
  const std::int32_t image = load(picture);
  IMG_set_statusbar(0, abort_later, 1);
  for (const std::int32_t row : {1, 3, 8}) {
    rows_until_abort = row;
    EXPECT_EQ(load(picture), -4321);
    EXPECT_EQ(IMG_delete_bitmap(1), IMG_BAD_HANDLE);
    rows_until_abort = row;
    EXPECT_EQ(IMG_save_bitmap(image, file("half.bmp").c_str(), IMG_TYPE_BMP), -4321);
    EXPECT_FALSE(std::filesystem::exists(file("half.bmp")));
  }
  rows_until_abort = 9;
  EXPECT_EQ(load(picture), 1);
}

// What callbacks do to the library that calls them.
std::function<void()> meddle;
std::int32_t IMG_CB_STD meddle_once(std::intptr_t, std::int32_t) {
  const auto action = std::exchange(meddle, nullptr);
  if (action) action();
  return 0;
}
std::int32_t IMG_CB_C supply_nines(void*, void* dest, std::int32_t, std::int32_t bytes) {
  std::fill_n(static_cast<std::uint8_t*>(dest), bytes, std::uint8_t{9});
  return meddle_once(0, 0);
}

TEST_F(Streams, ACallbackMayDeleteTheImageAtWork) {
  const Bytes picture = bmp_file(make_picture(20, 8, 8));
  IMG_set_statusbar(0, meddle_once, 1);
  meddle = [] { IMG_delete_bitmap(0); };
  EXPECT_EQ(load(picture), IMG_BAD_HANDLE);
  const std::int32_t image = load(picture);
  Bytes block(4000);
  meddle = [&] { IMG_delete_bitmap(image); };
  EXPECT_EQ(IMG_save_bitmap_block(image, block.data(), block.size(), 1), IMG_BAD_HANDLE);
}

TEST_F(Streams, CallbacksMayUseMemoryWhileMemoryIsReadAndWritten) {
  const Picture small = make_picture(4, 3, 24), picture = make_picture(20, 8, 8);
  const Bytes icon = bmp_file(small), whole = bmp_file(picture);
  Bytes seen;
  const auto look_at_icon = [&] {
    Bytes gone = icon;
    expect_same(picture_of(load(gone)), small);
    EXPECT_EQ(IMGLOW_get_filetype_block(gone.data(), gone.size()), IMG_TYPE_BMP);
    seen = gone;
    std::fill(gone.begin(), gone.end(), std::uint8_t{0});
  };
  IMG_set_statusbar(0, meddle_once, 1);
  for (const bool scrambled : {false, true}) {
    SCOPED_TRACE(scrambled);
    IMG_set_encrypt(scrambled ? 1 : 0, 0);
    Bytes stored = whole;
    if (scrambled) {
      for (std::uint8_t& byte : stored) byte ^= 0xAA;
    }
    meddle = [&] {
      IMG_set_encrypt(0, 0);
      look_at_icon();
      IMG_set_encrypt(scrambled ? 1 : 0, 0);
    };
    const std::int32_t image = load(stored);
    ASSERT_GE(image, 0);
    expect_same(picture_of(image), picture);
    IMG_set_encrypt(0, 0);
    Bytes block(whole.size(), 0);
    meddle = look_at_icon;
    EXPECT_EQ(IMG_save_bitmap_block(image, block.data(), block.size(), 1),
              static_cast<std::int32_t>(whole.size()));
    EXPECT_EQ(block, whole);
    EXPECT_EQ(seen, icon);  // nothing was saved over it
  }
  Bytes header = header_and_palette(make_picture(4, 3, 24)), block(200);
  header.resize(IMG_HEADER_BLOCK_BYTES);
  meddle = look_at_icon;
  ASSERT_EQ(IMGLOW_save_bitmap_mem(block.data(), header.data(), 48, supply_nines, nullptr), 76);
  EXPECT_EQ(Bytes(block.begin() + 40, block.begin() + 76), Bytes(36, 9));
}

}  // namespace
}  // namespace tq::api_test
