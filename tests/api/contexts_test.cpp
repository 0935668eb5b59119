// Contexts: what they keep apart, who may take one, and threads that work side by side.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tarnquill.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int32_t kWidth = 61, kHeight = 40;

// A bare DIB of 24 bits with slopes and noise.
Bytes picture(std::uint32_t seed) {
  const std::int32_t stride = (3 * kWidth + 3) / 4 * 4;
  Bytes dib(static_cast<std::size_t>(40 + stride * kHeight));
  const std::int32_t header[] = {40, kWidth, kHeight, 1 | 24 << 16};
  std::memcpy(dib.data(), header, sizeof header);
  for (std::size_t i = 40; i < dib.size(); ++i) {
    seed = seed * 1664525 + 1013904223;
    dib[i] = static_cast<std::uint8_t>(i / 7 + (seed >> 28));
  }
  return dib;
}

// The image's rows; the image is gone.
Bytes take_rows(std::int32_t image) {
  std::int32_t width = 0, height = 0, bits = 0;
  IMG_bitmap_info(image, &width, &height, &bits);
  Bytes rows(static_cast<std::size_t>((width * bits + 31) / 32 * 4 * height));
  for (std::int32_t y = 0; y < height; ++y) {
    IMGLOW_get_raster(image, rows.data() + rows.size() / height * y, y, 0);
  }
  EXPECT_EQ(IMG_delete_bitmap(image), 0);
  return rows;
}

// Whether nothing that the code needs is missing.
bool is_there(std::int32_t code) {
  img_format format{};
  format.size = sizeof format;
  for (std::int32_t i = 0; IMG_get_format(i, &format) == 0; ++i) {
    if (format.code == code) return (format.flags & IMG_FORMAT_MODULE) == 0;
  }
  return false;
}

// Decodes, reduces, saves in several formats, some of them the module's, and reads what was saved.
Bytes work(std::uint32_t seed) {
  Bytes all;
  Bytes dib = picture(seed);
  for (const std::int32_t code : {IMG_TYPE_BMP, IMG_TYPE_JPEG, IMG_TYPE_GIF, IMG_TYPE_TIFF_LZW,
                                  IMG_TYPE_PCX, IMG_TYPE_TIFF_G4}) {
    if (!is_there(code)) continue;
    const std::int32_t image = IMG_decompress_bitmap_block(dib.data(), dib.size(), 0);
    EXPECT_GE(image, 0);
    if (code == IMG_TYPE_GIF) {
      EXPECT_GE(IMG_octree_color(image, 8, nullptr, 0), 0);
    }
    if (code == IMG_TYPE_TIFF_G4) {
      EXPECT_EQ(IMG_diffusion_mono(image), 0);
    }
    Bytes file(64 << 10);
    const std::int32_t bytes = IMG_save_bitmap_block(image, file.data(), file.size(), code);
    EXPECT_GT(bytes, 0) << code;
    EXPECT_EQ(IMG_delete_bitmap(image), 0);
    file.resize(static_cast<std::size_t>(std::max(bytes, 0)));
    const Bytes rows = take_rows(IMG_decompress_bitmap_block(file.data(), file.size(), 0));
    all.insert(all.end(), file.begin(), file.end());
    all.insert(all.end(), rows.begin(), rows.end());
  }
  return all;
}

TEST(Contexts, KeepSettingsAndImagesApart) {
  const std::int32_t first = IMG_new_context(), second = IMG_new_context();
  ASSERT_GT(first, 0);
  ASSERT_GT(second, first);
  Bytes dib = picture(1);
  const Bytes rows = take_rows(IMG_decompress_bitmap_block(dib.data(), dib.size(), 0));
  const std::int32_t image = IMG_decompress_bitmap_block(dib.data(), dib.size(), 0);
  IMG_set_option(IMG_OPTION_TIFF_BYTE_ORDER, 1);
  IMGLOW_set_decomp_reduction(8);
  EXPECT_EQ(IMG_use_context(first), 0);
  EXPECT_EQ(IMG_get_option(IMG_OPTION_TIFF_BYTE_ORDER), 0);
  EXPECT_EQ(IMG_set_option_text(IMG_TEXT_TITLE, "gone with its context"), 0);
  EXPECT_EQ(IMG_delete_bitmap(image), IMG_BAD_HANDLE);
  const std::int32_t own = IMG_decompress_bitmap_block(dib.data(), dib.size(), 0);
  std::int32_t bits = 0;
  IMG_bitmap_info(own, nullptr, nullptr, &bits);
  EXPECT_EQ(bits, 24) << "the reduction is another context's";
  // Pixels pass to another context.
  const auto address = IMG_bitmap_info(own, nullptr, nullptr, nullptr);
  EXPECT_EQ(IMG_delete_bitmap_keep(own), 0);
  EXPECT_EQ(IMG_use_context(second), first);
  const std::int32_t passed = IMG_create_handle_keep(reinterpret_cast<void*>(address));
  EXPECT_GE(passed, 0);
  EXPECT_EQ(take_rows(passed), rows);
  EXPECT_EQ(IMG_use_context(0), second);
  EXPECT_EQ(IMG_get_option(IMG_OPTION_TIFF_BYTE_ORDER), 1);
  IMG_set_option(IMG_OPTION_TIFF_BYTE_ORDER, 0);
  IMGLOW_set_decomp_reduction(0);
  EXPECT_EQ(IMG_delete_bitmap(image), 0);
  EXPECT_EQ(IMG_delete_context(first), 0);
  EXPECT_EQ(IMG_delete_context(second), 0);
}

std::int32_t from_callback = 1;
std::int32_t IMG_CB_STD change_context(std::intptr_t context, std::int32_t) {
  from_callback = IMG_use_context(static_cast<std::int32_t>(context));
  return 0;
}

TEST(Contexts, AreTakenByOneThreadAndNotInsideOfAnExport) {
  EXPECT_EQ(IMG_use_context(1), IMG_BAD_HANDLE);
  EXPECT_EQ(IMG_use_context(-1), IMG_BAD_HANDLE);
  EXPECT_EQ(IMG_use_context(5000), IMG_BAD_HANDLE);
  EXPECT_EQ(IMG_delete_context(0), IMG_BAD_HANDLE);
  EXPECT_EQ(IMG_delete_context(1), IMG_BAD_HANDLE);
  const std::int32_t context = IMG_new_context();
  EXPECT_EQ(IMG_use_context(context), 0);
  EXPECT_EQ(IMG_use_context(context), context);
  EXPECT_EQ(IMG_delete_context(context), IMG_UNSUPPORTED);
  std::thread([=] {
    EXPECT_EQ(IMG_use_context(context), IMG_UNSUPPORTED);
    EXPECT_EQ(IMG_delete_context(context), IMG_UNSUPPORTED);
  }).join();
  // Inside of a decode and of an operation.
  Bytes dib = picture(1);
  for (const bool process : {false, true}) {
    if (!process) IMG_set_statusbar(0, change_context, 1);
    const std::int32_t image = IMG_decompress_bitmap_block(dib.data(), dib.size(), 0);
    IMG_set_statusbar(0, change_context, 1);
    if (process) {
      EXPECT_EQ(IMG_color_gray(image), 0);
    }
    EXPECT_EQ(from_callback, IMG_UNSUPPORTED);
    from_callback = 1;
    IMG_set_statusbar(0, nullptr, 0);
    EXPECT_EQ(IMG_delete_bitmap(image), 0);
  }
  EXPECT_EQ(IMG_use_context(0), context);
  // A thread that ends gives its context back, with what is in it.
  std::int32_t image = -1;
  std::thread([&] {
    EXPECT_EQ(IMG_use_context(context), 0);
    image = IMG_decompress_bitmap_block(dib.data(), dib.size(), 0);
  }).join();
  EXPECT_EQ(IMG_use_context(context), 0);
  EXPECT_NE(IMG_bitmap_info(image, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(IMG_use_context(0), context);
  EXPECT_EQ(IMG_delete_context(context), 0);
}

TEST(Contexts, ThereAreAsManyAsTheManualSays) {
  std::vector<std::int32_t> made;
  for (std::int32_t number = 1; number <= 4096; ++number) {
    ASSERT_EQ(IMG_new_context(), number);
    made.push_back(number);
  }
  EXPECT_EQ(IMG_new_context(), IMG_OUT_OF_MEMORY);
  EXPECT_EQ(IMG_delete_context(77), 0);
  EXPECT_EQ(IMG_new_context(), 77);
  for (const std::int32_t number : made) EXPECT_EQ(IMG_delete_context(number), 0);
}

TEST(Contexts, ThreadsWorkSideBySide) {
  constexpr int kThreads = 8, kRounds = 6;
  // In the first context, whose settings other tests may have changed, and in a fresh one.
  std::vector<Bytes> alone[2];
  const std::int32_t fresh = IMG_new_context();
  for (const int context : {0, fresh}) {
    IMG_use_context(context);
    for (std::uint32_t seed = 0; seed < kRounds; ++seed) alone[context != 0].push_back(work(seed));
  }
  EXPECT_EQ(IMG_use_context(0), fresh);
  EXPECT_EQ(IMG_delete_context(fresh), 0);
  std::atomic<int> differing = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      const std::int32_t own = i == 0 ? 0 : IMG_new_context();  // one stays with the first
      if (own != 0) {
        EXPECT_EQ(IMG_use_context(own), 0);
      }
      for (std::uint32_t seed = 0; seed < kRounds; ++seed) {
        if (work(seed) != alone[own != 0][seed]) ++differing;
        if (seed % 3 == 1) IMG_unload_plugins();
      }
      if (own != 0) {
        EXPECT_EQ(IMG_use_context(0), own);
        EXPECT_EQ(IMG_delete_context(own), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(differing, 0);
}

// Callbacks come back into the library while the others wait.
std::atomic<int> calls = 0;
std::int32_t IMG_CB_STD call_again(std::intptr_t, std::int32_t) {
  calls += IMG_get_option(IMG_OPTION_SERIALISE);
  return 0;
}

TEST(Contexts, ThreadsMayShareOneIfTheyWaitForEachOther) {
  constexpr int kThreads = 4, kRounds = 3;
  std::vector<Bytes> alone;
  for (std::uint32_t seed = 0; seed < kRounds; ++seed) alone.push_back(work(seed));
  EXPECT_EQ(IMG_set_option(IMG_OPTION_SERIALISE, 1), 0);
  IMG_set_statusbar(0, call_again, 1);
  std::atomic<int> differing = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (std::uint32_t seed = 0; seed < kRounds; ++seed) {
        if (work(seed) != alone[seed]) ++differing;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  IMG_set_statusbar(0, nullptr, 0);
  EXPECT_EQ(IMG_set_option(IMG_OPTION_SERIALISE, 0), 1);
  EXPECT_EQ(differing, 0);
  EXPECT_GT(calls, 0);
}

}  // namespace
