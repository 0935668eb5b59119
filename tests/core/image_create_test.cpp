// Images from a header alone and from a caller's pixels: depths, palettes, sizes, what is not read.
#include <gmock/gmock.h>

#include <climits>
#include <cstring>

#include "core/context.h"
#include "core/licence.h"
#include "tests/support/guarded_block.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

class ImageCreation : public LibraryTest {};

std::size_t palette_room(int bits) {
  if (bits == 24 || bits == 32) return 0;
  return bits < 8 ? 4u << bits : 1024;
}

// Header, palette and rows of random bytes, and nothing behind them that may be read.
struct PackedDib {
  PackedDib(std::int32_t width, std::int32_t height, int bits, std::size_t room)
      : memory(40 + room) {
    const Bytes noise = Random(7).bytes(memory.size());
    std::memcpy(memory.data(), noise.data(), noise.size());
    const HeaderBlock block = dib_header(width, height, bits);
    std::memcpy(memory.data(), &block, 40);
  }
  std::uint8_t* rest() const { return memory.data() + 40; }
  GuardedBlock memory;
};

TEST_F(ImageCreation, EveryDepthReadsItsOwnPaletteAndNothingBehind) {
  for (int bits = 0; bits <= 70; ++bits) {
    const bool is_depth = bits >= 1 && bits <= 32;
    const std::size_t palette = is_depth ? palette_room(bits) : 0;
    const PackedDib alone(5, 3, bits, bits < 24 ? palette : 0);
    const Image shell(IMG_create_handle_shell(alone.memory.data()));
    EXPECT_EQ(shell, is_depth ? 0 : -3) << bits;
    const std::size_t row = stride(5, bits);
    const PackedDib dib(5, 3, bits, palette + 3 * row);
    const std::int32_t kept = IMG_create_handle_keep(dib.memory.data());
    EXPECT_EQ(kept, is_depth ? 1 : -3) << bits;
    if (!is_depth) {
      EXPECT_EQ(IMG_delete_bitmap(0), 0);
      continue;
    }
    EXPECT_EQ(rows_of_image(shell), Rows(3, Bytes(row, 0))) << bits;
    const std::uint8_t* pixels = dib.rest() + palette;
    const Rows rows = rows_of_image(kept);
    for (std::size_t y = 0; y < 3; ++y) {
      EXPECT_EQ(rows[y], Bytes(pixels + (2 - y) * row, pixels + (3 - y) * row)) << bits;
    }
    if (bits >= 2 && bits < 24) {
      Bytes entries(1024);
      EXPECT_EQ(IMG_get_bitmap_palette(shell, entries.data()), static_cast<int>(palette / 4));
      EXPECT_EQ(std::memcmp(entries.data(), alone.rest(), palette), 0) << bits;
      entries.assign(1024, 0);
      EXPECT_EQ(IMGLOW_get_palette(kept, entries.data()), 0);
      EXPECT_EQ(std::memcmp(entries.data(), dib.rest(), palette), 0) << bits;
    }
    EXPECT_EQ(IMG_delete_bitmap_keep(kept), 0);
  }
}

TEST_F(ImageCreation, TwoColoursBecomeBlackAndWhiteUnlessTheFirstHasAZero) {
  const Bytes black_white = {0, 0, 0, 255, 255, 255};
  for (const auto& [palette, expected] :
       std::vector<std::pair<Bytes, Bytes>>{{{255, 255, 255, 9, 0, 0, 0, 9}, black_white},
                                            {{1, 1, 1, 9, 1, 1, 1, 9}, black_white},
                                            {{0, 200, 200, 9, 5, 6, 7, 9}, {0, 200, 200, 5, 6, 7}},
                                            {{200, 0, 200, 9, 5, 6, 7, 9}, {200, 0, 200, 5, 6, 7}},
                                            {{200, 200, 0, 9, 5, 6, 7, 9}, {200, 200, 0, 5, 6, 7}},
                                            {{0, 0, 0, 9, 0, 0, 0, 9}, {0, 0, 0, 0, 0, 0}}}) {
    const PackedDib dib(9, 2, 1, 8 + 8);
    std::memcpy(dib.rest(), palette.data(), 8);
    const Bytes pixels(dib.rest() + 8, dib.rest() + 16);
    const Image shell(IMG_create_handle_shell(dib.memory.data()));
    const Image kept(IMG_create_handle_keep(dib.memory.data()));
    for (const std::int32_t image : {std::int32_t{shell}, std::int32_t{kept}}) {
      Bytes p(8);
      EXPECT_EQ(IMG_get_bitmap_palette(image, p.data()), 2);
      EXPECT_EQ((Bytes{p[0], p[1], p[2], p[4], p[5], p[6]}), expected);
    }
    EXPECT_EQ(Bytes(dib.rest() + 8, dib.rest() + 16), pixels) << "bits stay";
    // Later writes are not judged.
    EXPECT_EQ(IMGLOW_put_palette(shell, palette.data()), 0);
    Bytes p(8);
    EXPECT_EQ(IMGLOW_get_palette(shell, p.data()), 0);
    EXPECT_EQ(p, palette);
  }
}

TEST_F(ImageCreation, ShellTakesNothingFromTheDecodeSettings) {
  IMGLOW_set_decompsize(3, 3);
  IMGLOW_set_decomp_rect(1, 1, 4, 4);
  IMGLOW_set_decomp_reduction(1);
  HeaderBlock block = dib_header(40, 20, 32);
  block.header.biCompression = 200;
  block.header.biClrUsed = 0x1007;
  block.header.biXPelsPerMeter = 300;
  block.header.biYPelsPerMeter = 600;
  BitmapInfoHeader expected = block.header;
  expected.biClrUsed = 0;  // the index is the image's, not the header's
  expected.biSizeImage = 3200;
  set_licence_check([]() -> Status { return StatusCode::refused_by_licence; });
  EXPECT_EQ(IMG_create_handle_shell(&block), -19);
  set_licence_check(nullptr);
  const Image image(IMG_create_handle_shell(&block));
  const BitmapInfoHeader header = header_of_image(image);
  EXPECT_EQ(std::memcmp(&header, &expected, sizeof header), 0);
  EXPECT_EQ(IMGLOW_get_transp_color(image), 7);
  EXPECT_EQ(image.record().gamma, 0);
  const Rect& crop = image.record().crop;
  EXPECT_THAT((std::array{crop.x, crop.y, crop.width, crop.height}),
              testing::ElementsAre(0, 0, 40, 20));
}

TEST_F(ImageCreation, SizesThatNoBlockHoldsAreRefusedBeforeAnythingIsWritten) {
  for (const auto& [width, height, bits, status] :
       std::vector<std::array<std::int32_t, 4>>{{INT_MAX, INT_MAX, 32, -1},
                                                {INT_MAX, 1, 32, -1},
                                                {1, INT_MAX, 1, -1},
                                                {1 << 30, 4, 8, -1},     // 2^32: nothing in 32 bits
                                                {1 << 30, 1, 32, -1},    // a row alone
                                                {23170, 30901, 24, -1},  // a little above 2^31
                                                {INT_MIN, 1, 8, -3},
                                                {1, -1, 8, -3}}) {
    HeaderBlock block = dib_header(width, height, bits);
    EXPECT_EQ(IMG_create_handle_shell(&block), status) << width << 'x' << height;
    EXPECT_EQ(IMG_create_handle_keep(&block), status) << width << 'x' << height;
    EXPECT_EQ(IMG_delete_bitmap(0), status == -3 ? 0 : -13) << "only bad geometry keeps a handle";
  }
}

}  // namespace
}  // namespace tq::test
