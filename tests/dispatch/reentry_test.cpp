// Callbacks that call the library while it decodes or saves.
#include <gtest/gtest.h>

#include "tests/support/bmp_file.h"
#include "tests/support/fed_sink.h"
#include "tests/support/guarded_block.h"
#include "tests/support/library_test.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

class Reentry : public LibraryTest {};

Bytes grey_bmp(std::int32_t width, std::int32_t height, std::uint8_t first) {
  Bytes pixels(stride(width, 8) * static_cast<std::size_t>(height));
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    pixels[i] = static_cast<std::uint8_t>(first + i / stride(width, 8));
  }
  return bmp_file({true, 40, width, height, 8, 0, grey_palette(256), pixels});
}

// Decodes another image from memory, as a program does that shows an icon meanwhile.
std::int32_t decode_icon(const Bytes& file) {
  const std::int32_t image = IMG_decompress_bitmap_block(file.data(), file.size(), 0);
  EXPECT_GE(image, 0);
  return IMG_delete_bitmap(image);
}

TEST_F(Reentry, OtherMemoryStreamDuringADecodeChangesNothing) {
  const Bytes file = grey_bmp(30, 40, 1), icon = grey_bmp(3, 3, 200);
  const Image expected(IMG_decompress_bitmap_block(file.data(), file.size(), 0));
  for (const std::uint8_t key : Bytes{0, 7}) {  // 0: not scrambled
    Bytes stored = file;
    for (std::uint8_t& byte : stored) byte ^= key;
    bool nested = false;
    const OnProgress progress([&](std::int32_t) {
      if (nested) return 0;
      nested = true;
      IMG_set_encrypt(0, 0);
      EXPECT_EQ(decode_icon(icon), 0);
      IMG_set_encrypt(key, key);
      nested = false;
      return 0;
    });
    IMG_set_encrypt(key, key);
    const Image image(IMG_decompress_bitmap_block(stored.data(), stored.size(), 0));
    IMG_set_encrypt(0, 0);
    EXPECT_EQ(rows_of_image(image), rows_of_image(expected)) << key;
  }
}

// The encoder must not go on writing into the memory that the callback has read.
TEST_F(Reentry, OtherMemoryStreamDuringASaveIsNotWrittenTo) {
  const Bytes file = grey_bmp(30, 40, 1), icon = grey_bmp(3, 3, 200);
  const Image image(IMG_decompress_bitmap_block(file.data(), file.size(), 0));
  Bytes expected(file.size()), out(file.size()), read = icon;
  const auto size = static_cast<std::int32_t>(file.size());
  ASSERT_EQ(IMG_save_bitmap_block(image, expected.data(), expected.size(), 1), size);
  {
    int depth = 0;
    const OnProgress progress([&](std::int32_t) {
      if (depth++ == 0) {
        EXPECT_EQ(decode_icon(read), 0);
      }
      --depth;
      return 0;
    });
    EXPECT_EQ(IMG_save_bitmap_block(image, out.data(), out.size(), 1), size);
    EXPECT_EQ(read, icon);
    EXPECT_EQ(out, expected);
  }
}

TEST_F(Reentry, ImageDeletedDuringASaveEndsIt) {
  const Bytes file = grey_bmp(30, 40, 1);
  for (const int row : {0, 20, 39}) {
    const std::int32_t image = IMG_decompress_bitmap_block(file.data(), file.size(), 0);
    Bytes out(file.size());
    int calls = 0;
    const OnProgress progress(
        [&](std::int32_t) { return calls++ == row ? IMG_delete_bitmap(image) : 0; });
    EXPECT_EQ(IMG_save_bitmap_block(image, out.data(), out.size(), 1), -13);
    EXPECT_EQ(calls, row + 1);
    EXPECT_EQ(blocks(), 0);
  }
}

TEST_F(Reentry, ImageThatGoesWhileItsFileIsLookedAtIsNotSaved) {
  enum class Change { deleted, replaced, emptied };
  const ScratchFolder folder;
  const std::string name = folder.file("pages.dcx");
  const Bytes bmp = grey_bmp(30, 40, 1);
  for (const Change change : {Change::deleted, Change::replaced, Change::emptied}) {
    const std::int32_t image = IMG_decompress_bitmap_block(bmp.data(), bmp.size(), 0);
    ASSERT_EQ(IMG_save_bitmap(image, name.c_str(), IMG_TYPE_DCX), 0);
    const Bytes before = file_content(name);
    MemoryFile file(before);
    int calls = 0;
    file.during_call = [&] {
      if (calls++ > 0) return;
      if (change == Change::emptied) {
        IMG_set_croprect(image, 29, 0, 1, 1);
        return;
      }
      IMG_delete_bitmap(image);
      const HeaderBlock header = dib_header(4, 4, 8);
      if (change == Change::replaced) IMG_create_handle_shell(&header);
    };
    EXPECT_EQ(IMG_save_bitmap(image, name.c_str(), IMG_TYPE_DCX),
              change == Change::emptied ? IMG_BAD_IMAGE : IMG_BAD_HANDLE);
    EXPECT_EQ(file.bytes, before);
    EXPECT_EQ(file_content(name), before);
    EXPECT_EQ(IMG_delete_bitmap(image), change == Change::deleted ? IMG_BAD_HANDLE : IMG_OK);
    EXPECT_EQ(blocks(), 0);
    std::filesystem::remove(name);
  }
}

TEST_F(Reentry, ImageConvertedDuringASaveIsSavedAllTheSame) {
  Random random(31);
  Rows rows;
  for (int y = 0; y < 12; ++y) rows.push_back(random.bit_row(64, 50));  // no padding
  const Image image = make_image(64, 1, rows);
  Bytes plain(200), converted(200);
  ASSERT_EQ(IMG_save_bitmap_block(image, plain.data(), plain.size(), 1), 62 + 96);
  int calls = 0;
  const OnProgress progress([&](std::int32_t) {
    return ++calls % 3 == 0 ? IMG_runs_to_dib(image) : IMG_dib_to_runs(image);
  });
  ASSERT_EQ(IMG_save_bitmap_block(image, converted.data(), converted.size(), 1), 62 + 96);
  EXPECT_EQ(converted, plain);
}

}  // namespace
}  // namespace tq::test
