// Netpbm's files as other programs do not write them here: comments, levels of other ranges, pages,
// bodies that are cut off.
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using simple::decode_pnm;

Bytes text(std::string_view file) {
  return {file.begin(), file.end()};
}

TEST(Pnm, EveryKindAndRange) {
  const struct {
    std::string_view file;
    int bits;
    std::vector<Bytes> rows;
  } cases[] = {
      {"P1 # bits\n3#wide\n2\n101\n0 # and\n1 1", 1, {{0x40, 0, 0, 0}, {0x80, 0, 0, 0}}},
      {"P4\n9 1\n\xA5\x7F", 1, {{0x5A, 0x80, 0, 0}}},
      {"P2 2 2 4 0 1 2 99999999999", 8, {{0, 64, 0, 0}, {128, 255, 0, 0}}},
      {"P5 3 1 100#\n\x32\x64\xC8", 8, {{128, 255, 255, 0}}},
      {{"P5 2 1 65535\n\x00\x80\x00\x81", 17}, 8, {{0, 1, 0, 0}}},
      {{"P5 1 1 1000\n\x01\xF4", 14}, 8, {{128, 0, 0, 0}}},
      {"P3\n1 1\n15\n15 5 0\n", 24, {{0, 85, 255, 0}}},
      {"P6 1 1 255\nabc", 24, {{'c', 'b', 'a', 0}}},
      {{"P6 1 1 256\n\x01\x00\x00\x80\x00\x00", 17}, 24, {{0, 128, 255, 0}}},
  };
  for (const auto& c : cases) {
    const CollectingSink sink = decoded(decode_pnm, text(c.file));
    EXPECT_EQ(sink.header.header.biBitCount, c.bits) << c.file;
    EXPECT_EQ(sink.image(), c.rows) << c.file;
  }
}

TEST(Pnm, WhatCannotBeAndWhatIsCutOff) {
  const struct {
    std::string_view file;
    int status;
    std::size_t rows;
  } cases[] = {{"P5 2", -12, 0},
               {"P7 2 2 255\n....", -3, 0},
               {"P5 0 2 255\n....", -3, 0},
               {"P5 2 2 0\n....", -3, 0},
               {"P5 2 2 65536\n....", -3, 0},
               {"P5 x 2 255\n....", -3, 0},
               {"P6 99999999999 99999999999 255\n....", -1, 0},
               {"P5 2 3 255\n...", 0, 2},
               {"P2 2 3 255 1 2 3 x 5 6 7 8", 0, 2},
               {"P1 2 3 0 1 2 1 1 1", 0, 1},
               {"P2 2 2 255", 0, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(decoded(decode_pnm, text(c.file), c.status).rows.size(), c.rows) << c.file;
  }
}

TEST(Pnm, PicturesAreThePages) {
  Bytes file = text("P4 1 1 \x80P5 2 1 255 ab\n\nP6 1 1 255 abcP2 1 1 9 9 P5 1 1 255 x");
  const auto pages = [&] {
    open_memory_stream(file.data(), file.size());
    return simple::count_pnm_pages(kMemoryStream).raw();
  };
  EXPECT_EQ(pages(), 4) << "text has no end";
  for (int page = 0; page < 5; ++page) {
    open_memory_stream(file.data(), file.size());
    CollectingSink sink;
    const Status decoded = decode_pnm({.stream = kMemoryStream, .sink = sink.sink(), .page = page});
    EXPECT_EQ(decoded.raw(), page < 4 ? 0 : -31);
    if (page == 1) {
      EXPECT_EQ(sink.rows.at(0).bytes[1], 'b');
    }
  }
  file.resize(18);
  EXPECT_EQ(pages(), 2) << "a picture of which a part is there";
  file = text("P9 1 1 255 a");
  EXPECT_EQ(pages(), -3);
}

TEST(Pnm, PalettesBecomeLevelsOrColours) {
  HeaderBlock image = grey_image(3, 1, 4);
  const std::vector<Bytes> row = {{0x0F, 0x20}};
  EXPECT_EQ(encoded(simple::encode_pnm, image, row), text({"P5\n3 1\n255\n\0\xFF\x22", 14}));
  image.palette[2] = {1, 2, 3, 0};
  EXPECT_EQ(encoded(simple::encode_pnm, image, row),
            text({"P6\n3 1\n255\n\0\0\0\xFF\xFF\xFF\3\2\1", 20}));
}

}  // namespace
}  // namespace tq::test
