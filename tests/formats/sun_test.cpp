// Sun raster files as other programs do not write them here: rare depths, runs across rows, maps
// and bodies that are cut off. What they write is in the corpus, what they read in tests/peers.
#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using simple::decode_sun;
using simple::encode_sun;

Bytes sun_file(std::vector<std::uint32_t> fields, const Bytes& rest) {
  Bytes file = {0x59, 0xA6, 0x6A, 0x95};
  for (const std::uint32_t field : fields) {
    for (int shift = 24; shift >= 0; shift -= 8) file.push_back(byte(field >> shift));
  }
  file.insert(file.end(), rest.begin(), rest.end());
  return file;
}

enum : std::uint32_t { kRaw = 1, kRuns = 2, kRedFirst = 3, kNoMap = 0, kMap = 1, kRawMap = 2 };

// Width, height, depth, bytes of pixels, type, kind of map, bytes of map.
TEST(Sun, EveryDepthAndOrder) {
  const auto first_row = [](std::vector<std::uint32_t> fields, const Bytes& rest) {
    return decoded(decode_sun, sun_file(std::move(fields), rest)).rows.at(0).bytes;
  };
  EXPECT_EQ(first_row({3, 1, 1, 2, kRaw, kNoMap, 0}, {0x5F, 0}), (Bytes{0xA0, 0, 0, 0}));
  EXPECT_EQ(first_row({3, 1, 4, 2, kRaw, kNoMap, 0}, {0x12, 0x3F}), (Bytes{0x12, 0x30, 0, 0}));
  EXPECT_EQ(first_row({1, 1, 24, 4, kRaw, kNoMap, 0}, {1, 2, 3, 0}), (Bytes{1, 2, 3, 0}));
  EXPECT_EQ(first_row({1, 1, 24, 4, kRedFirst, kNoMap, 0}, {1, 2, 3, 0}), (Bytes{3, 2, 1, 0}));
  EXPECT_EQ(first_row({1, 1, 32, 4, 0, kNoMap, 0}, {9, 1, 2, 3}), (Bytes{1, 2, 3, 0}));
  EXPECT_EQ(first_row({1, 1, 32, 4, kRedFirst, kNoMap, 0}, {9, 1, 2, 3}), (Bytes{3, 2, 1, 0}));
  EXPECT_EQ(first_row({1, 1, 24, 4, kRaw, kRawMap, 5}, {7, 7, 7, 7, 7, 1, 2, 3, 0}),
            (Bytes{1, 2, 3, 0}));
}

TEST(Sun, TwoColoursStayOneBitWhenTheyAreBlackAndWhite) {
  const auto two = [](Bytes map) {
    map.insert(map.end(), {0x40, 0});
    return decoded(decode_sun, sun_file({2, 1, 1, 2, kRaw, kMap, 6}, map));
  };
  EXPECT_EQ(two({0, 255, 0, 255, 0, 255}).rows[0].bytes[0], 0x40);
  EXPECT_EQ(two({255, 0, 255, 0, 255, 0}).rows[0].bytes[0], 0x80);
  const CollectingSink others = two({255, 0, 0, 255, 0, 0});
  EXPECT_EQ(others.header.header.biBitCount, 4);
  EXPECT_EQ(others.rows[0].bytes[0], 0x01);
  EXPECT_EQ(others.header.palette[0], (Rgb{0, 0, 255, 0}));
  EXPECT_EQ(others.header.palette[1], (Rgb{0, 255, 0, 0}));
}

// A run that ends in the third row; the escape itself; a run that the file does not hold.
TEST(Sun, RunsCrossRowsAndPadding) {
  const Bytes coded = {1, 0x80, 8, 5, 0x80, 0, 0x80, 1, 6, 0x80, 200};
  const CollectingSink sink = decoded(decode_sun, sun_file({3, 5, 8, 20, kRuns, kNoMap, 0}, coded));
  ASSERT_EQ(sink.rows.size(), 4u);
  EXPECT_EQ(sink.rows[0].bytes, (Bytes{1, 5, 5, 0}));
  EXPECT_EQ(sink.rows[1].bytes, (Bytes{5, 5, 5, 0}));
  EXPECT_EQ(sink.rows[2].bytes, (Bytes{5, 5, 0x80, 0}));
  EXPECT_EQ(sink.rows[3].bytes, (Bytes{6, 0, 0, 0}));
}

TEST(Sun, RefusesWhatCannotBe) {
  const auto status = [](std::vector<std::uint32_t> fields, int expected) {
    decoded(decode_sun, sun_file(std::move(fields), Bytes(30)), expected);
  };
  status({2, 2, 8, 4, 4, kNoMap, 0}, -7);
  status({2, 2, 8, 4, kRaw, 3, 0}, -3);
  status({2, 2, 8, 4, kRaw, kMap, 7}, -3);
  status({2, 2, 8, 4, kRaw, kMap, 771}, -3);
  status({2, 2, 8, 4, kRaw, kMap, 768}, -12);
  status({2, 2, 16, 4, kRaw, kNoMap, 0}, -3);
  status({0, 2, 8, 4, kRaw, kNoMap, 0}, -3);
  status({0x80000001, 2, 8, 4, kRaw, kNoMap, 0}, -3);
  status({2, 2, 8, 4, kRaw, kRawMap, 0xFFFFFFFF}, -12);
  status({0x7FFFFFFF, 0x7FFFFFFF, 24, 4, kRaw, kNoMap, 0}, -1);
  decoded(decode_sun, Bytes(31), -12);
}

TEST(Sun, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24}) {
    HeaderBlock image = grey_image(5, 2, bits);
    if (bits == 8) image.palette[3] = {1, 2, 3, 0};
    const std::vector<Bytes> rows = {Bytes(std::size_t(row_bytes(5, bits)), 0),
                                     pack({1, 0, 1, 1, 0}, bits)};
    const CollectingSink back = decoded(decode_sun, encoded(encode_sun, image, rows));
    if (bits < 24) {
      EXPECT_EQ(back.header.palette, image.palette);
    }
    EXPECT_EQ(unpack(back.rows.at(1).bytes, 5, back.header.header.biBitCount),
              (Pixels{1, 0, 1, 1, 0}));
  }
  HeaderBlock ink = dib_header(1, 1, 32);
  GivenRows none({});
  EXPECT_EQ(
      simple::can_encode_sun({.stream{}, .image = &ink, .rows = none.supplier(), .cmyk = true})
          .raw(),
      -21);
  ink = dib_header(1, 1, 16);
  EXPECT_EQ(simple::can_encode_sun({.stream{}, .image = &ink, .rows = none.supplier()}).raw(), -21);
}

}  // namespace
}  // namespace tq::test
