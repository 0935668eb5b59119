// Bitmaps as they are written: every byte of the headers, rows from the bottom up, failures.
#include <gmock/gmock.h>

#include "formats/bmp/bmp.h"
#include "tests/support/codec_runs.h"

namespace tq::test {
namespace {

TEST(BmpEncode, WritesTheSameBytesAsTheBuilder) {
  const std::vector<Bytes> rows = {{0x12, 0x30, 0, 0}, {0x45, 0x60, 0, 0}};
  HeaderBlock image = grey_image(3, 2, 4);
  // None of these may reach the file but the resolution, in pixels per metre.
  image.header = {9, 3, 2, 7, 4, 200, 1, 96, 300, 0x1005, 3};
  BmpFields file{true, 40,   3,     2,  4, 0, grey_palette(16), joined({rows[1], rows[0]}),
                 0,    3780, 11811, {}, 8};
  EXPECT_EQ(encoded(bmp::encode, image, rows), bmp_file(file));
  file.file_header = false;
  EXPECT_EQ(encoded(bmp::encode, image, rows, bmp::kBareDib), bmp_file(file));
  // In front of codes both sizes are those of the uncompressed image, too.
  file.file_header = true;
  file.compression = 2;
  Bytes coded = bmp_file(file);
  coded.resize(coded.size() - 8);
  coded = joined({coded, {2, 0x45, 2, 0x60, 0, 0, 2, 0x12, 2, 0x30, 0, 0, 0, 1}});
  EXPECT_EQ(encoded(bmp::encode, image, rows, bmp::kRunLengths), coded);
}

TEST(BmpEncode, ResolutionIsWrittenPerMetreWhenBothSidesHaveOne) {
  const std::int32_t cases[][4] = {{96, 72, 3780, 2835},
                                   {96, 0, 0, 0},
                                   {0, 96, 0, 0},
                                   {-96, 1, -3779, 39},
                                   {54546084, 1, 2147483622, 39},
                                   {INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN}};
  const Bytes row = {1, 2, 3, 0};
  for (const auto& [x, y, x_per_metre, y_per_metre] : cases) {
    HeaderBlock image = grey_image(1, 1, 24);
    image.header.biXPelsPerMeter = x;
    image.header.biYPelsPerMeter = y;
    EXPECT_EQ(encoded(bmp::encode, image, {row}),
              bmp_file({true, 40, 1, 1, 24, 0, {}, row, 0, x_per_metre, y_per_metre, {}, 4}))
        << x << " " << y;
  }
}

}  // namespace
}  // namespace tq::test
