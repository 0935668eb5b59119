// Three pages through Wine's own source manager, over real messages, by a source of the tests'.
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <string>

#include "include/tarnquill.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

class TwainManager : public LibraryTest {
 protected:
  ~TwainManager() override { IMG_scan_close(); }

  // Sources lie in one folder, and Wine's manager looks for two names there. What lies there may be one
  // file with those of other folders: it is taken away, and not written to.
  static bool put_source() {
    const HMODULE system = GetModuleHandleA("NTDLL.DLL");
    if (GetProcAddress(system, "wine_get_version") == nullptr) return false;
    char folder[MAX_PATH];
    GetWindowsDirectoryA(folder, MAX_PATH);
    const std::string name = std::string(folder) + "\\twain_32\\sane.ds";
    DeleteFileA(name.c_str());
    return CopyFileA(TQ_TEST_SOURCE, name.c_str(), TRUE) != 0;
  }
};

TEST_F(TwainManager, PagesComeOverMessages) {
  if (!put_source()) GTEST_SKIP();
  char name[40] = {};
  ASSERT_EQ(IMG_scan_source(0, name, sizeof name), 1) << IMG_scan_reason(nullptr, 0);
  EXPECT_STREQ(name, "Tarnquill test source");
  ASSERT_EQ(IMG_scan_open(nullptr, name), IMG_OK) << IMG_scan_reason(nullptr, 0);
  EXPECT_EQ(IMG_scan_set(IMG_SCAN_MODE, 24), IMG_SCANNER_REQUEST);
  EXPECT_EQ(IMG_scan_reason(nullptr, 0), 13);
  const ScratchFolder folder;
  EXPECT_EQ(IMG_scan_to_files(folder.file("page-####.bmp").c_str(), 1, -1), 3);
  for (int page = 1; page <= 3; ++page) {
    const std::string file = folder.file("page-000" + std::to_string(page) + ".bmp");
    const Image image(IMG_decompress_bitmap(file.c_str()));
    ASSERT_GE(image, 0) << file;
    const BitmapInfoHeader header = header_of_image(image);
    EXPECT_EQ(header.biWidth, 50);
    EXPECT_EQ(header.biXPelsPerMeter, 300);
    Bytes row(150, static_cast<std::uint8_t>(16 * page));
    row.resize(152);
    EXPECT_EQ(rows_of_image(image), Rows(40, row));
  }
}

}  // namespace
}  // namespace tq::test
