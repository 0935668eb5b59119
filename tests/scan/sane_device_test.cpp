// The system's libsane with its own test device, beside the files that scanimage makes of it. Skipped
// where either is missing.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "include/tarnquill.h"
#include "tests/support/image_builder.h"
#include "tests/support/scratch_folder.h"

namespace {
bool sane_was_used = false;
}

// Asked by the leak sanitizer, where there is one: SANE and its threads lose memory of their own.
extern "C" int __lsan_is_turned_off() {  // NOLINT(bugprone-reserved-identifier): its name
  return sane_was_used ? 1 : 0;
}

namespace tq::test {
namespace {

struct Picture {
  std::int32_t width = 0, height = 0, bits = 0;
  Rows rows = {};
  friend bool operator==(const Picture&, const Picture&) = default;
};

// A file of scanimage's as the library would hold it.
Picture read_pnm(const std::string& name) {
  const Bytes file = file_content(name);
  std::istringstream in(std::string(file.begin(), file.end()));
  std::string magic, line;
  std::getline(in, magic);
  while (in.peek() == '#') std::getline(in, line);
  Picture picture;
  std::int32_t most = 1;
  in >> picture.width >> picture.height;
  if (magic != "P4") in >> most;
  in.get();
  picture.bits = magic == "P4" ? 1 : magic == "P5" ? 8 : 24;
  const auto samples = static_cast<std::size_t>(picture.width) * (picture.bits == 24 ? 3 : 1);
  const std::size_t bytes = picture.bits == 1 ? (samples + 7) / 8 : samples * (most > 255 ? 2 : 1);
  for (std::int32_t y = 0; y < picture.height; ++y) {
    Bytes row(bytes);
    in.read(reinterpret_cast<char*>(row.data()), static_cast<std::streamsize>(bytes));
    Pixels pixels;
    const std::size_t step = most > 255 ? 2 : 1;  // the high byte comes first
    for (std::size_t x = 0; x < static_cast<std::size_t>(picture.width); ++x) {
      const auto sample = [&](std::size_t i) -> std::uint32_t { return row[step * i]; };
      if (picture.bits == 1) pixels.push_back(1 & ~(row[x / 8] >> (7 - x % 8)));
      if (picture.bits == 8) pixels.push_back(sample(x));
      if (picture.bits == 24) {
        pixels.push_back(sample(3 * x) << 16 | sample(3 * x + 1) << 8 | sample(3 * x + 2));
      }
    }
    picture.rows.push_back(pack(pixels, picture.bits, picture.bits == 1 ? 0xFF : 0));
  }
  return picture;
}

Picture picture_of(std::int32_t image) {
  const BitmapInfoHeader header = header_of_image(image);
  return {header.biWidth, header.biHeight, header.biBitCount, rows_of_image(image)};
}

class SaneTestDevice : public testing::Test {
 protected:
  SaneTestDevice() {
    sane_was_used = true;
    setenv("SANE_CONFIG_DIR", folder.path().c_str(), 1);
    write("dll.conf", "test\n");
  }
  ~SaneTestDevice() override {
    IMG_scan_close();
    for (std::int32_t option = 1; option <= IMG_SCAN_MAX_PAGES; ++option) IMG_scan_set(option, 0);
    unsetenv("SANE_CONFIG_DIR");
  }
  void write(const char* name, const std::string& text) const {
    write_file(folder.file(name), {text.begin(), text.end()});
  }
  bool open(const std::string& settings) {
    write("test.conf", "number_of_devices 1\nresolution 50.0\nbr_x 60.0\nbr_y 60.0\n" + settings);
    IMG_scan_close();
    return IMG_scan_open(nullptr, "test:0") == IMG_OK;
  }
  ScratchFolder folder;
};

std::int32_t IMG_CB_STD keep(std::intptr_t image, std::int32_t handle, std::int32_t) {
  *reinterpret_cast<std::int32_t*>(image) = handle;
  return 0;
}

// One run in dozens never ends: its own reader is cancelled while it holds the loader's lock.
bool run_scanimage(const std::string& file) {
  const std::string command =
      "timeout 10 scanimage -d test:0 --format=pnm > " + file + " 2> /dev/null";
  for (int i = 0; i < 5; ++i) {
    if (std::system(command.c_str()) == 0) return true;
  }
  return false;
}

TEST_F(SaneTestDevice, PagesAreWhatScanimageSaves) {
  if (!open("") || std::system("scanimage --version > /dev/null 2>&1") != 0) GTEST_SKIP();
  for (const char* picture : {"\"Color pattern\"", "\"Grid\""}) {
    for (const char* settings :
         {"mode Gray\ndepth 1", "mode Gray\ndepth 8", "mode Gray\ndepth 16", "mode Color\ndepth 8",
          "mode Color\ndepth 16", "mode Color\nthree-pass true",
          "mode Color\nthree-pass true\nthree-pass-order BRG", "mode Gray\nhand-scanner true",
          "mode Color\nread-limit true\nread-limit-size 37"}) {
      SCOPED_TRACE(std::string(settings) + picture);
      ASSERT_TRUE(open(std::string(settings) + "\ntest-picture " + picture + "\n"));
      std::int32_t handle = -1;
      ASSERT_EQ(IMG_scan_pages(keep, reinterpret_cast<std::intptr_t>(&handle)), 1);
      const Image image(handle);
      const std::string file = folder.file("page.pnm");
      ASSERT_TRUE(run_scanimage(file));
      EXPECT_EQ(picture_of(image), read_pnm(file));
    }
  }
}

TEST_F(SaneTestDevice, TenPagesLieInTheFeeder) {
  if (!open("test-picture \"Grid\"\n")) GTEST_SKIP();
  EXPECT_EQ(IMG_scan_set(IMG_SCAN_FEEDER, 1), IMG_OK);
  EXPECT_EQ(IMG_scan_set(IMG_SCAN_MODE, 1), IMG_OK);
  EXPECT_EQ(IMG_scan_set(IMG_SCAN_RESOLUTION, 150000), IMG_OK);
  EXPECT_EQ(IMG_scan_set(IMG_SCAN_WIDTH, 2000), 1) << "to whole millimetres";
  EXPECT_EQ(IMG_scan_set(IMG_SCAN_DUPLEX, 1), IMG_SCANNER_REQUEST);
  EXPECT_EQ(IMG_scan_to_files(folder.file("page-####.tif").c_str(), 1, IMG_TYPE_TIFF_G4), 10);
  for (const char* name : {"page-0001.tif", "page-0010.tif"}) {
    const Image image(IMG_decompress_bitmap(folder.file(name).c_str()));
    ASSERT_GE(image, 0) << name;
    std::int32_t x = 0, y = 0;
    EXPECT_EQ(IMG_get_resolution(image, &x, &y), IMG_OK);
    EXPECT_EQ(x, 150000);
    EXPECT_EQ(y, 150000);
    EXPECT_EQ(header_of_image(image).biWidth, 301);  // 51 mm
  }
}

}  // namespace
}  // namespace tq::test
