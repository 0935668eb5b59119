// What only the win32 folder has to get right: blocks that callers share, bitmaps of the window
// system.
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "include/tarnquill.h"
#include "platform/device_bitmap.h"
#include "platform/file.h"
#include "platform/memory.h"
#include "tests/support/scratch_folder.h"

namespace tq::platform {
namespace {

TEST(Win32Memory, BlocksAreGlobalMemory) {
  void* const block = block_alloc(100);
  const HGLOBAL handle = GlobalHandle(block);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(GlobalSize(handle), 100u);
  EXPECT_EQ(GlobalFlags(handle) & GMEM_LOCKCOUNT, 1u);
  block_size(block);
  EXPECT_EQ(block_resize(block, 0x7FFF0000), nullptr);
  EXPECT_EQ(GlobalFlags(handle) & GMEM_LOCKCOUNT, 1u) << "locked as before";
  void* const larger = block_resize(block, 100000);
  ASSERT_NE(larger, nullptr);
  EXPECT_EQ(GlobalFlags(GlobalHandle(larger)) & GMEM_LOCKCOUNT, 1u);
  block_free(larger);
}

TEST(Win32Memory, BlocksOfTheCallerAreKnown) {
  const HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE, 77);
  void* const block = GlobalLock(handle);
  EXPECT_EQ(block_size(block), 77u);
  EXPECT_EQ(block_size(static_cast<char*>(block) + 1), 0u);
  block_free(block);
  EXPECT_EQ(block_size(block), 0u);
}

TEST(Win32File, SharingFollowsTheMode) {
  const test::ScratchFolder folder;
  const std::string name = folder.file("a");
  test::write_file(name, {1});
  const std::int32_t reader = file_open(name.c_str(), FileMode::read);
  const std::int32_t second = file_open(name.c_str(), FileMode::read);
  EXPECT_GE(reader, 0);
  EXPECT_GE(second, 0);
  EXPECT_LT(file_open(name.c_str(), FileMode::update), 0);
  file_close(reader);
  file_close(second);
  const std::int32_t writer = file_open(name.c_str(), FileMode::update);
  EXPECT_GE(writer, 0);
  EXPECT_LT(file_open(name.c_str(), FileMode::read), 0);
  file_close(writer);
}

// Of any script and any length, new and replaced.
TEST(Win32File, NamesMayBeUtf8) {
  const test::ScratchFolder folder;
  std::vector<std::uint8_t> bytes = {40, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 24, 0};
  bytes.resize(44);
  const std::int32_t image = IMG_decompress_bitmap_block(bytes.data(), bytes.size(), 0);
  ASSERT_GE(image, 0);
  IMG_set_option(IMG_OPTION_UTF8_NAMES, 1);
  const std::wstring root = folder.path().wstring();
  const std::wstring deep = root + L"\\" + std::wstring(150, L'd');
  ASSERT_NE(CreateDirectoryW(deep.c_str(), nullptr), 0);
  const std::wstring names[] = {L"Gr\u00FC\u00DFe-\u65E5\u672C.bmp",
                                std::wstring(150, L'd') + L"/" + std::wstring(150, L'e') + L".bmp"};
  for (const std::wstring& name : names) {
    std::string utf8(2000, '\0');
    const std::wstring path = root + L"\\" + name;
    WideCharToMultiByte(CP_UTF8, 0, path.c_str(), -1, utf8.data(), 2000, nullptr, nullptr);
    for (const std::int32_t safe : {0, 1, 1}) {
      IMG_set_option(IMG_OPTION_SAFE_SAVING, safe);
      EXPECT_EQ(IMG_save_bitmap(image, utf8.c_str(), IMG_TYPE_BMP), IMG_OK);
    }
    EXPECT_EQ(IMGLOW_get_filetype(utf8.c_str()), IMG_TYPE_BMP);
  }
  EXPECT_NE(GetFileAttributesW((root + L"\\" + names[0]).c_str()), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);

  const std::string invalid = folder.file("a") + "\xFF.bmp";
  for (const std::int32_t safe : {0, 1}) {
    IMG_set_option(IMG_OPTION_SAFE_SAVING, safe);
    EXPECT_EQ(IMG_save_bitmap(image, invalid.c_str(), IMG_TYPE_BMP), IMG_CANNOT_CREATE);
    EXPECT_EQ(IMG_save_bitmap(image, folder.path().string().c_str(), IMG_TYPE_BMP),
              IMG_CANNOT_CREATE);
    EXPECT_EQ(IMG_save_bitmap(image, "NUL", IMG_TYPE_BMP), IMG_OK);
  }
  EXPECT_EQ(IMG_decompress_bitmap(invalid.c_str()), IMG_CANNOT_OPEN);
  IMG_set_option(IMG_OPTION_UTF8_NAMES, 0);
  IMG_set_option(IMG_OPTION_SAFE_SAVING, 0);
  IMG_delete_bitmap(image);
  const std::wstring long_name = L"\\\\?\\" + deep + L"\\" + std::wstring(150, L'e') + L".bmp";
  EXPECT_NE(DeleteFileW(long_name.c_str()), 0);
}

TEST(Win32DeviceBitmap, IsReadAsRows) {
  DeviceBitmap found;
  EXPECT_FALSE(query_device_bitmap(nullptr, found));
  const HMODULE gdi = LoadLibraryA("GDI32.DLL");
  ASSERT_NE(gdi, nullptr);
  const auto symbol = [&](const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(gdi, name));
  };
  const auto create_bitmap = reinterpret_cast<decltype(&CreateBitmap)>(symbol("CreateBitmap"));
  const auto create_pen = reinterpret_cast<decltype(&CreatePen)>(symbol("CreatePen"));
  const auto delete_object = reinterpret_cast<decltype(&DeleteObject)>(symbol("DeleteObject"));

  const HPEN pen = create_pen(PS_SOLID, 1, 0);
  EXPECT_FALSE(query_device_bitmap(pen, found)) << "no bitmap";
  delete_object(pen);
  EXPECT_FALSE(query_device_bitmap(reinterpret_cast<void*>(std::intptr_t{0x1234}), found));

  const std::uint16_t bits[] = {0x00A0, 0x0050};  // bytes A0 00 and 50 00: rows of three pixels
  const HBITMAP bitmap = create_bitmap(3, 2, 1, 1, bits);
  ASSERT_TRUE(query_device_bitmap(bitmap, found));
  EXPECT_EQ(found.width, 3);
  EXPECT_EQ(found.height, 2);
  EXPECT_TRUE(found.monochrome);
  struct {
    BITMAPINFOHEADER header;
    std::uint32_t palette[2];
  } dib{{40, 3, 2, 1, 1, BI_RGB, 0, 0, 0, 0, 0}, {7, 7}};
  std::uint8_t rows[8] = {};
  ASSERT_TRUE(read_device_bitmap(bitmap, 2, &dib, rows));
  EXPECT_EQ(rows[0] & 0xE0, 0x40) << "the bottom row comes first";
  EXPECT_EQ(rows[4] & 0xE0, 0xA0);
  EXPECT_EQ(dib.palette[0], 0u);
  EXPECT_EQ(dib.palette[1], 0xFFFFFFu);
  delete_object(bitmap);
}

}  // namespace
}  // namespace tq::platform
