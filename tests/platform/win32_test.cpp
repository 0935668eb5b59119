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
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
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
  EXPECT_EQ(block_resize(block, SIZE_MAX / 2), nullptr);
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

// The library does not import it, nor do its tests.
template <class Function>
Function gdi_function(const char* name) {
  static const HMODULE gdi = LoadLibraryA("GDI32.DLL");
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(gdi, name)));
}

TEST(Win32DeviceBitmap, IsReadAsRows) {
  DeviceBitmap found;
  EXPECT_FALSE(query_device_bitmap(nullptr, found));
  const auto create_bitmap = gdi_function<decltype(&CreateBitmap)>("CreateBitmap");
  const auto create_pen = gdi_function<decltype(&CreatePen)>("CreatePen");
  const auto delete_object = gdi_function<decltype(&DeleteObject)>("DeleteObject");

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

class Win32Show : public test::LibraryTest {};

// The system draws what IMG_copy_dib gives as the pixels say.
TEST_F(Win32Show, CopiesAreDrawnAsTheyLook) {
  constexpr int kWidth = 21, kHeight = 6, kStride = 64;
  const auto create_dc = gdi_function<decltype(&CreateCompatibleDC)>("CreateCompatibleDC");
  const auto create_section = gdi_function<decltype(&CreateDIBSection)>("CreateDIBSection");
  const auto select = gdi_function<decltype(&SelectObject)>("SelectObject");
  const auto stretch = gdi_function<decltype(&StretchDIBits)>("StretchDIBits");
  const HDC dc = create_dc(nullptr);
  ASSERT_NE(dc, nullptr);
  BITMAPINFO screen{};
  screen.bmiHeader = {40, kWidth, -kHeight, 1, 24, BI_RGB, 0, 0, 0, 0, 0};
  void* bits_of_screen = nullptr;
  const HBITMAP bitmap = create_section(dc, &screen, DIB_RGB_COLORS, &bits_of_screen, nullptr, 0);
  ASSERT_NE(bitmap, nullptr);
  select(dc, bitmap);

  struct {
    int bits;
    bool inks;
  } const kinds[] = {{1, false},  {4, false},  {8, false}, {16, false},
                     {24, false}, {32, false}, {32, true}};
  test::Random random(10);
  for (const auto& [bits, inks] : kinds) {
    SCOPED_TRACE(testing::Message() << bits << " bits, inks " << inks);
    std::vector<test::Pixels> picture;
    test::Rows rows;
    for (int y = 0; y < kHeight; ++y) {
      picture.push_back(random.pixels(kWidth, bits));
      rows.push_back(test::pack(picture.back(), bits));
    }
    const test::Image image = test::make_image(kWidth, bits, rows, bits == 1);
    if (bits == 32) {
      reinterpret_cast<BitmapInfoHeader*>(image.record().dib)->biCompression = inks ? 0 : 200;
    }
    HeaderBlock block;
    ASSERT_EQ(IMGLOW_get_bitmap_header(image, &block), IMG_OK);
    std::vector<std::uint8_t> dib(static_cast<std::size_t>(IMG_copy_dib(image, nullptr, 0)));
    ASSERT_GT(IMG_copy_dib(image, dib.data(), dib.size()), 0);
    const auto* const info = reinterpret_cast<const BITMAPINFO*>(dib.data());
    const std::size_t header = 40 + 4 * info->bmiHeader.biClrUsed;
    ASSERT_EQ(stretch(dc, 0, 0, kWidth, kHeight, 0, 0, kWidth, kHeight, dib.data() + header, info,
                      DIB_RGB_COLORS, SRCCOPY),
              kHeight);
    for (std::size_t y = 0; y < kHeight; ++y) {
      for (std::size_t x = 0; x < kWidth; ++x) {
        const std::uint32_t pixel = picture[y][x];
        const auto expected = [&](int blue_green_red) -> std::uint32_t {
          const std::uint32_t part = pixel >> 8 * blue_green_red & 255;
          if (bits <= 8) {
            const Rgb& entry = block.palette[pixel];
            const std::uint8_t levels[] = {entry.blue, entry.green, entry.red};
            return levels[blue_green_red];
          }
          if (bits == 16) return pixel >> 8;
          if (!inks) return part;
          const std::uint32_t ink = pixel >> 8 * (2 - blue_green_red) & 255;
          return ((255 - ink) * (255 - (pixel >> 24)) + 127) / 255;
        };
        const auto* const shown =
            static_cast<const std::uint8_t*>(bits_of_screen) + y * kStride + 3 * x;
        for (int i = 0; i < 3; ++i) ASSERT_EQ(shown[i], expected(i));
      }
    }
  }
}

}  // namespace
}  // namespace tq::platform
