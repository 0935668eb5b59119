// How many pages files of each kind have, by every way of asking, and what their headers say.
#include <gtest/gtest.h>

#include <array>

#include "include/tarnquill.h"
#include "tests/support/bmp_file.h"
#include "tests/support/memory_file.h"
#include "tests/support/pcx_file.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using namespace std::string_literals;

Bytes page() {
  return pcx_file({.size = {3, 2, 8, 1, 3}, .data = {1, 2, 3, 4, 5, 6}, .tail = pcx_palette()});
}

TEST(Pages, DifferByFormatAndByTheWayOfAsking) {
  const struct {
    const char* name;
    Bytes content;
    std::int32_t by_name, by_handle, in_memory;
  } cases[] = {
      {"bmp", bytes_of("BM\0\0\0\0\0\0\0\0"s), 1, 1, 1},
      {"pcx", page(), 1, 1, 1},
      {"dcx", dcx_file({page(), page(), page()}), 3, 3, 3},
      {"dcx without pages", dcx_file({}), 0, 0, 0},
      {"gif", bytes_of("GIF89a\1\0\1\0"s), -23, -23, -23},
      {"tif", bytes_of("II*\0\x8\0\0\0\0\0"s), -3, -3, -3},
      {"ica", bytes_of("0000000000"), -3, -3, -3},
      {"mca",
       bytes_of("01\xD3\xA6\xFB"
                "56789"s),
       -12, 1, 1},
      {"mag", bytes_of("WTI3456789"), -7, -7, 1},
      {"pcd", Bytes(4096, 0xFF), -3, -3, -3},
      {"unknown", Bytes(12, 0x7F), 1, 1, 1},
      {"nine bytes", bytes_of("BM1234567"), 1, 1, 1},
      {"empty", {}, 1, 1, 1},
  };
  const ScratchFolder folder;
  const std::string name = folder.file("file");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    write_file(name, c.content);
    EXPECT_EQ(IMGLOW_get_pages(name.c_str()), c.by_name);
    EXPECT_EQ(IMGLOW_get_image_orientation(name.c_str()),
              c.name == "tif"s || c.name == "pcd"s ? IMG_BAD_IMAGE : IMG_UNSUPPORTED);
    Bytes block = c.content;
    block.reserve(1);  // an empty block has an address, too
    EXPECT_EQ(IMGLOW_get_pages_block(block.data(), block.size()), c.in_memory);
    const MemoryFile file(c.content);
    EXPECT_EQ(IMGLOW_get_pages_fd(4711), c.by_handle);
  }
  EXPECT_EQ(IMGLOW_get_pages(folder.file("none").c_str()), IMG_CANNOT_OPEN);
  EXPECT_EQ(IMGLOW_get_image_orientation(folder.file("none").c_str()), IMG_CANNOT_OPEN);
}

TEST(FileInfo, IsTheHeaderOrWhatTheDecoderSays) {
  using Words = std::array<std::int32_t, 10>;
  Bytes header_alone = page();
  header_alone.resize(128);
  const Words three_by_two = {40, 3, 2, 1 | 8 << 16, 0, 8, 300, 150, 0, 0};
  const struct {
    const char* name;
    Bytes content;
    std::int32_t status;
    Words expected;
  } cases[] = {
      {"the first page of a dcx", dcx_file({page()}), 0, three_by_two},
      {"pixels are not looked at", header_alone, 0, three_by_two},
      {"dcx without pages", dcx_file({}), -11, {}},
      {"unknown", Bytes(12, 0x7F), -7, {}},
      {"no decoder", bytes_of("GX21234567"), -7, {}},
      {"no module", bytes_of("GIF89a\1\0\1\0"s), -23, {}},
  };
  const ScratchFolder folder;
  const std::string name = folder.file("file");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto expect_answer = [&](auto&& query) {
      Words words;
      words.fill(0x55);
      EXPECT_EQ(query(words.data()), c.status);
      EXPECT_EQ(words, c.expected);
    };
    write_file(name, c.content);
    expect_answer([&](void* out) { return IMGLOW_get_fileinfo(name.c_str(), out); });
    expect_answer([&](void* out) {
      return IMGLOW_get_fileinfo_block(c.content.data(), c.content.size(), out);
    });
    const MemoryFile file(c.content);
    expect_answer([&](void* out) { return IMGLOW_get_fileinfo_fd(4711, out); });
    EXPECT_EQ(IMGLOW_get_fileinfo_fd(4711, nullptr), c.status);
  }
  Bytes upside_down = page();
  store_le16(&upside_down[8], 0);  // the right edge lies left of the left one
  Words words{};
  EXPECT_EQ(IMGLOW_get_fileinfo_block(upside_down.data(), upside_down.size(), words.data()), 0);
  EXPECT_LT(words[1], 1) << "as the file says it";
  EXPECT_EQ(IMGLOW_get_fileinfo(folder.file("none").c_str(), words.data()), IMG_CANNOT_OPEN);
}

}  // namespace
}  // namespace tq::test
