// Handles over the life of many images, and who frees the pixels that a caller registered.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

class ImageTable : public LibraryTest {};

std::int32_t shell(std::int32_t width, std::int32_t height = 1, int bits = 1) {
  const HeaderBlock header = dib_header(width, height, bits);
  return IMG_create_handle_shell(&header);
}

// 1 bit, white; somewhere inside other memory, at an odd address, as callers may have it.
struct CallersDib {
  CallersDib() : memory(1 + 48 + 3 * stride(9, 1), 0xFF) {
    const HeaderBlock block = dib_header(9, 3, 1);
    std::memcpy(dib(), &block, 48);  // a palette that needs no change
  }
  std::uint8_t* dib() { return memory.data() + 1; }
  Bytes memory;
};

TEST_F(ImageTable, LowestFreeHandleComesNextWhateverWasDeleted) {
  Random random(1);
  std::map<std::int32_t, std::int32_t> widths;  // of the images that exist
  for (int step = 0; step < 6000; ++step) {
    // Grows and shrinks in waves, so that the table comes and goes as well.
    const int growth = step / 300 % 2 == 0 ? 70 : 30;
    if (random.chance(growth)) {
      std::int32_t lowest = 0;
      while (widths.contains(lowest)) ++lowest;
      const std::int32_t width = random.between(1, 500);
      ASSERT_EQ(shell(width), lowest);
      widths[lowest] = width;
    } else {
      const std::int32_t handle = random.between(-1, static_cast<std::int32_t>(widths.size()) + 2);
      ASSERT_EQ(IMG_delete_bitmap(handle), widths.erase(handle) == 1 ? 0 : -13);
    }
    const std::int32_t asked = random.between(-2, 150);
    std::int32_t width = -1;
    if (!widths.contains(asked)) {
      ASSERT_EQ(IMG_bitmap_info(asked, &width, nullptr, nullptr), -13);
    } else {
      ASSERT_NE(IMG_bitmap_info(asked, &width, nullptr, nullptr), -13);
      ASSERT_EQ(width, widths[asked]);
    }
    if (widths.empty()) {
      ASSERT_EQ(blocks(), 0) << "the table goes with the last image";
    }
  }
  for (const auto& [handle, width] : widths) EXPECT_EQ(IMG_delete_bitmap(handle), 0);
}

TEST_F(ImageTable, HoldsTenThousandImagesAndRefusesTheNext) {
  for (std::int32_t i = 0; i < 10000; ++i) ASSERT_EQ(shell(1), i);
  CallersDib dib;
  const Bytes bmp = {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const std::int64_t full = blocks();
  EXPECT_EQ(shell(1), -1);
  EXPECT_EQ(IMG_create_handle_keep(dib.dib()), -1);
  EXPECT_EQ(IMG_decompress_bitmap_block(bmp.data(), bmp.size(), 0), -1);
  EXPECT_EQ(blocks(), full);
  EXPECT_EQ(IMG_delete_bitmap(10000), -13);
  EXPECT_EQ(IMG_delete_bitmap(7777), 0);
  EXPECT_EQ(shell(1), 7777);
  for (std::int32_t i = 0; i < 10000; ++i) ASSERT_EQ(IMG_delete_bitmap(i), 0);
}

// The table, too, which is there with the first image only.
TEST_F(ImageTable, RefusedAllocationsOfTheFirstImageLeaveNoHandleBehind) {
  for (int refused = 0; refused < 3; ++refused) {
    memory_probe::refuse_after(refused);
    EXPECT_EQ(shell(40, 30, 8), -1);
    memory_probe::refuse_after(-1);
    EXPECT_EQ(blocks() + memory_probe::tracked_blocks(), 0);
  }
  EXPECT_EQ(shell(40, 30, 8), 0);
  EXPECT_EQ(IMG_delete_bitmap(0), 0);
}

TEST_F(ImageTable, CallersDibStaysWithTheCaller) {
  CallersDib dib;
  const Bytes before = dib.memory;
  for (const auto free : {IMG_delete_bitmap, IMG_delete_bitmap_keep}) {
    for (const bool converted : {false, true}) {  // then the pixels are the library's own
      const std::int32_t image = IMG_create_handle_keep(dib.dib());
      if (converted) {
        ASSERT_EQ(IMG_dib_to_runs(image), 0);
      }
      const std::intptr_t address = IMG_bitmap_info(image, nullptr, nullptr, nullptr);
      EXPECT_EQ(address == reinterpret_cast<std::intptr_t>(dib.dib()), !converted);
      EXPECT_EQ(free(image), 0);
      if (converted && free == IMG_delete_bitmap_keep) free_block(reinterpret_cast<void*>(address));
      EXPECT_EQ(dib.memory, before);
      EXPECT_EQ(blocks(), 0);
    }
  }
}

TEST_F(ImageTable, GlobalBlockOfACallerIsFreedUnlessItIsKept) {
  CallersDib dib;
  const std::size_t size = dib.memory.size() - 1;
  for (const bool keep : {false, true}) {
    std::uint8_t* block = alloc_block(size);
    std::memcpy(block, dib.dib(), size);
    const std::int32_t image = IMG_create_handle_keep(block);
    ASSERT_EQ(image, 0);
    EXPECT_EQ(keep ? IMG_delete_bitmap_keep(image) : IMG_delete_bitmap(image), 0);
    EXPECT_EQ(blocks(), keep ? 1 : 0);
    if (keep) free_block(block);
  }
  // A block says how large it is: one byte too few is no image, and the handle stays.
  for (const std::size_t too_small : {size - 1, std::size_t{39}}) {
    std::uint8_t* block = alloc_block(too_small);
    std::memcpy(block, dib.dib(), too_small);
    EXPECT_EQ(IMG_create_handle_keep(block), -3);
    EXPECT_EQ(IMG_delete_bitmap(0), 0);
    free_block(block);
  }
}

// Two or three images over the same pixels; they go with the last of them, whatever happened to it.
TEST_F(ImageTable, PixelsOfSeveralImagesGoWithTheLast) {
  for (int kind = 0; kind < 16; ++kind) {
    const bool owner_first = kind % 2 != 0, third = kind / 2 % 2 != 0;
    const bool converts_owner = kind / 4 % 2 != 0, converts_last = kind / 8 != 0;
    const std::int32_t owner = shell(64, 8);
    auto* dib = reinterpret_cast<void*>(IMG_bitmap_info(owner, nullptr, nullptr, nullptr));
    std::vector<std::int32_t> images = {owner, IMG_create_handle_keep(dib)};
    if (third) images.push_back(IMG_create_handle_keep(dib));
    if (converts_owner) {
      EXPECT_EQ(IMG_dib_to_runs(owner), 0);
    }
    if (!owner_first) std::reverse(images.begin(), images.end());
    for (const std::int32_t image : images) {
      if (image == images.back() && converts_last) {
        EXPECT_EQ(IMG_dib_to_runs(image), 0);
      }
      EXPECT_EQ(rows_of_image(image), Rows(8, Bytes(8, 0)));
      EXPECT_EQ(IMG_delete_bitmap(image), 0);
    }
    EXPECT_EQ(blocks(), 0) << kind;
  }
}

}  // namespace
}  // namespace tq::test
