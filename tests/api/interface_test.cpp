// The shared library as its callers use it: images saved, loaded, aborted. What else it does is
// tested where it is done.
#include <gtest/gtest.h>
#include <tarnquill.h>

#include <cstdint>
#include <filesystem>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "../support/scratch_folder.h"

namespace tq::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Rows that differ; the width is a multiple of 32: no padding.
std::int32_t make_picture(int bits) {
  std::uint8_t header[IMG_HEADER_BLOCK_BYTES] = {40, 0, 0, 0, 32, 0, 0, 0, 8, 0, 0, 0, 1};
  header[14] = static_cast<std::uint8_t>(bits);
  if (bits == 32) header[16] = 200;  // colours
  const std::int32_t image = IMG_create_handle_shell(header);
  for (std::int32_t y = 0; y < 8; ++y) {
    Bytes row(128);
    std::iota(row.begin(), row.end(), static_cast<std::uint8_t>(y * 37));
    EXPECT_EQ(IMGLOW_put_raster(image, row.data(), y, 0), IMG_OK);
  }
  return image;
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

// What the description of a format promises holds: saved, detected as that code, read again.
TEST_F(Interface, FormatsDoWhatTheirDescriptionSays) {
  constexpr int kDepths[] = {1, 4, 8, 16, 24, 32};
  img_format format{};
  EXPECT_EQ(IMG_get_format(0, nullptr), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_get_format(0, &format), IMG_UNSUPPORTED) << "its size is not set";
  std::set<std::string> names, extensions;
  int formats = 0, usual = 0;
  for (format.size = sizeof format; IMG_get_format(usual, &format) == IMG_OK; ++usual) {
    EXPECT_LT(format.code, IMG_TYPE_PNM);
  }
  IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 1);
  for (format.size = sizeof format; IMG_get_format(formats, &format) == IMG_OK; ++formats) {
    SCOPED_TRACE(format.title);
    EXPECT_TRUE(names.insert(format.name).second);
    const std::string extension = format.extension;
    EXPECT_TRUE(extension.empty() || extensions.insert(extension).second) << extension;
    if ((format.flags & IMG_FORMAT_MODULE) != 0) continue;
    for (int i = 0; i < 6; ++i) {
      if ((format.write_depths >> i & 1) == 0) continue;
      const std::string name = file((std::string(format.name) + char('0' + i)).c_str());
      const std::int32_t image = make_picture(kDepths[i]);
      const std::int32_t saved = IMG_save_bitmap(image, name.c_str(), format.code);
      IMG_delete_bitmap(image);
      EXPECT_GE(saved, 0) << kDepths[i] << " bits";
      if (format.code == IMG_TYPE_EPS) continue;  // a program, which nobody here runs
      if ((format.flags & IMG_FORMAT_DETECTED) != 0) {
        EXPECT_EQ(IMGLOW_get_filetype(name.c_str()), format.code);
      }
      // Documents written here are not read by the library itself.
      if ((format.flags & IMG_FORMAT_READS) == 0 || format.code == IMG_TYPE_PDF) continue;
      const std::int32_t loaded = IMG_decompress_bitmap(name.c_str());
      EXPECT_GE(loaded, 0) << kDepths[i] << " bits";
      IMG_delete_bitmap(loaded);
    }
  }
  EXPECT_GT(formats, 50);
}

}  // namespace
}  // namespace tq::test
