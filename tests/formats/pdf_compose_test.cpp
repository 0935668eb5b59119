// Pages of several pictures: small ones, pixel by pixel, against rows that were drawn by hand.
#include <gmock/gmock.h>

#include <cmath>

#include "formats/pdf/page/compose.h"
#include "formats/pdf/page/strips.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/pdf_document.h"

namespace tq::test {
namespace {

using pdf::content::Matrix;
using pdf::content::Painted;
using pdf::objects::File;
using pdf::page::Page;

// Pictures are the objects 5, 6 … with plain data in hexadecimal digits.
struct Drawn {
  std::string entries, hex;
};

class Pictures {
 public:
  explicit Pictures(const std::vector<Drawn>& pictures) : memory_(bytes(pictures)) {
    EXPECT_EQ(file.open(MemoryFile::kHandle), kOk);
  }
  File file;

 private:
  static Bytes bytes(const std::vector<Drawn>& pictures) {
    PdfDocument document;
    document.add(1, "<</Type/Catalog/Pages 2 0 R>>");
    document.add(2, "<</Type/Pages/Kids[]/Count 0>>");
    int number = 5;
    for (const Drawn& drawn : pictures) {
      document.add_stream(number++, drawn.entries + "/Filter/ASCIIHexDecode", drawn.hex + ">");
    }
    document.add_table("/Root 1 0 R/Size 20");
    return document.bytes();
  }
  MemoryFile memory_;
};

constexpr double kFar = 1e6;

Painted painted(int number, const Matrix& matrix) {
  Painted result;
  result.matrix = matrix;
  result.clip = {-kFar, -kFar, kFar, kFar};
  result.image = {number, 0};
  return result;
}

std::string hex_of(const Bytes& bytes, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    for (const int digit : {bytes[i] >> 4, bytes[i] & 15}) text += "0123456789ABCDEF"[digit];
  }
  return text;
}

struct Composed {
  Status status = kOk;
  HeaderBlock image;
  Resolution resolution;
  std::string rows;  // in hex, each without what fills it up, a blank behind each
  StatusCode damage = StatusCode::ok;
};

Composed composed(Pictures& pictures, const std::vector<Painted>& list, const Page& page) {
  CollectingSink sink;
  formats::DecodeNotes notes;
  formats::RowSink to = sink.sink();
  to.notes = &notes;
  Composed result;
  result.status = pdf::page::compose(pictures.file, list, page, to);
  result.image = sink.header;
  result.resolution = notes.resolution;
  result.damage = notes.damage;
  const BitmapInfoHeader& header = sink.header.header;
  for (const CollectedRow& row : sink.rows) {
    result.rows += hex_of(row.bytes, (header.biWidth * header.biBitCount + 7u) / 8) + " ";
  }
  return result;
}

std::string grey(int width, int height) {
  return "/Width " + std::to_string(width) + "/Height " + std::to_string(height) +
         "/BitsPerComponent 8/ColorSpace/DeviceGray";
}
std::string bits(int width, int height) {
  return "/Width " + std::to_string(width) + "/Height " + std::to_string(height) +
         "/BitsPerComponent 1/ColorSpace/DeviceGray";
}

struct Case {
  const char* name;
  std::vector<Drawn> pictures;
  std::vector<Painted> painted;
  int rotate;
  int width, height, bits;
  std::string rows;
};

// The page is 4 by 3 units.
TEST(PdfCompose, PixelsOfSmallPages) {
  const Drawn four = {grey(2, 2), "10 20 30 40"}, nine = {grey(4, 3), "01020304 11121314 21222324"};
  const Matrix whole = {.a = 4, .d = 3}, square = {.a = 2, .d = 2, .e = 1, .f = 1};
  Painted cut = painted(6, whole);
  cut.clip = {1.4, 0, 3.4, 2};
  Painted half = painted(6, {.a = 4, .d = 3});
  half.alpha = 128;
  Painted red = painted(6, {.a = 2, .d = 1});
  red.fill = 0xFF0000;
  const Case cases[] = {
      {"at its pixels, on white",
       {nine, four},
       {painted(5, whole), painted(6, square)},
       0,
       4,
       3,
       8,
       "01102004 11304014 21222324 "},
      {"the later one is above",
       {nine, four},
       {painted(6, square), painted(5, whole)},
       0,
       4,
       3,
       8,
       "01020304 11121314 21222324 "},
      {"beyond the page",
       {nine, four},
       {painted(5, {.a = 4, .d = 3, .e = 2, .f = -1}),
        painted(6, {.a = 2, .d = 2, .e = -1, .f = 2})},
       0,
       4,
       3,
       8,
       "40FFFFFF FFFF0102 FFFF1112 "},
      {"upside down and mirrored",
       {nine, four},
       {painted(6, {.a = -2, .d = 2, .e = 2}), painted(5, {.a = 4, .d = -3, .e = 0, .f = 4})},
       0,
       4,
       3,
       8,
       "11121314 01020304 4030FFFF "},
      {"by a quarter",
       {nine, four},
       {painted(5, {.a = 0, .b = 4, .c = -3, .d = 0, .e = 4, .f = -1}),
        painted(6, {.a = 0, .b = -2, .c = 2, .d = 0, .e = 0, .f = 2})},
       0,
       4,
       3,
       8,
       "FF041424 30101323 40201222 "},
      {"enlarged",
       {nine, {grey(1, 1), "77"}},
       {painted(5, whole), painted(6, {.a = 1.9, .d = 1.2, .e = 1, .f = .9})},
       0,
       4,
       3,
       8,
       "01020304 11777714 21222324 "},
      {"cut by a clip",
       {nine, four},
       {painted(5, whole), cut},
       0,
       4,
       3,
       8,
       "01020304 11304014 21304024 "},
      {"through half of it",
       {nine, {grey(1, 1), "00"}},
       {painted(5, whole), half},
       0,
       4,
       3,
       8,
       "00010102 0809090A 10111112 "},
      {"a mask in colour",
       {nine, {"/Width 2/Height 1/ImageMask true", "40"}},
       {painted(5, whole), red},
       0,
       4,
       3,
       24,
       "010101020202030303040404 111111121212131313141414 0000FF222222232323242424 "},
      {"all of two levels",
       {{bits(4, 3), "50 A0 50"}, {"/Width 2/Height 1/ImageMask true", "80"}},
       {painted(5, whole), painted(6, {.a = 2, .d = 1, .e = 1, .f = 1})},
       0,
       4,
       3,
       1,
       "50 80 50 "},
      {"a turned page",
       {nine, four},
       {painted(5, whole), painted(6, square)},
       90,
       3,
       4,
       8,
       "211101 223010 234020 241404 "},
      {"a page upside down",
       {nine, four},
       {painted(5, whole)},
       180,
       4,
       3,
       8,
       "24232221 14131211 04030201 "},
      {"turned the other way",
       {nine, four},
       {painted(5, whole)},
       270,
       3,
       4,
       8,
       "041424 031323 021222 011121 "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Pictures pictures(c.pictures);
    Page page;
    page.box = {0, 0, 4, 3};
    page.rotate = c.rotate;
    const Composed result = composed(pictures, c.painted, page);
    ASSERT_EQ(result.status, kOk);
    EXPECT_EQ(result.damage, StatusCode::ok);
    EXPECT_EQ(result.image.header.biWidth, c.width);
    EXPECT_EQ(result.image.header.biHeight, c.height);
    EXPECT_EQ(result.image.header.biBitCount, c.bits);
    EXPECT_EQ(result.rows, c.rows);
    EXPECT_EQ(result.resolution.x, 72000);
    EXPECT_EQ(result.resolution.y, 72000);
  }
}

// Pictures that are small do not say how fine a page is.
TEST(PdfCompose, ReducesByMeans) {
  const auto repeated = [](int count, const std::string& digits) {
    std::string text;
    while (count-- > 0) text += digits;
    return text;
  };
  Pictures pictures({{grey(20, 2), repeated(40, "64")},
                     {grey(4, 4), "00408000 40804000 FF0000FF FF0000FE"},
                     {"/Width 4/Height 2/ImageMask true", "00D0"}});
  Page page;
  page.box = {0, 0, 20, 2};
  const Composed result = composed(
      pictures, {painted(5, {.a = 20, .d = 2}), painted(6, {.e = 3}), painted(7, {.e = 5, .f = 1})},
      page);
  EXPECT_EQ(result.rows, repeated(5, "64") + "26" + repeated(14, "64") + " " + repeated(3, "64") +
                             "5C" + repeated(16, "64") + " ");
}

TEST(PdfCompose, SidesThatAreNotStraight) {
  Pictures pictures({{grey(4, 4), std::string(32, 'F')}, {grey(2, 2), "11 22 33 44"}});
  Page page;
  page.box = {0, 0, 4, 4};
  const Composed result = composed(
      pictures,
      {painted(5, {.a = 4, .d = 4}), painted(6, {.a = 2, .b = 2, .c = -2, .d = 2, .e = 2.1})},
      page);
  EXPECT_EQ(result.rows, "FFFF22FF FF112244 FF113344 FFFF33FF ");
}

TEST(PdfCompose, WhatCannotBeReadIsLeftOut) {
  Pictures pictures({{grey(1, 1), "10"}, {grey(0, 1), "00"}, {grey(2, 2), "1122 33"}});
  Page page;
  page.box = {0, 0, 1, 1};
  const Matrix whole{};
  Composed result = composed(pictures, {painted(6, whole), painted(5, whole)}, page);
  EXPECT_EQ(result.rows, "10 ");
  EXPECT_EQ(result.damage, StatusCode::unsupported);
  EXPECT_EQ(composed(pictures, {painted(6, whole), painted(6, whole)}, page).status,
            StatusCode::bad_image);
  // What nobody sees says nothing about the page.
  Painted beside = painted(7, {.a = 1, .d = 1, .e = 1});
  result = composed(pictures, {beside, painted(5, whole)}, page);
  EXPECT_EQ(result.rows, "10 ");
  EXPECT_EQ(result.damage, StatusCode::ok);
  EXPECT_EQ(composed(pictures, {beside, beside}, page).status, StatusCode::unsupported);
  result = composed(pictures, {painted(7, whole)}, page);
  EXPECT_EQ(result.rows, "1122 3300 ");
  EXPECT_EQ(result.damage, StatusCode::read_failed);
}

TEST(PdfCompose, SizesHaveLimits) {
  Pictures pictures({{grey(1, 1), "10"}, {bits(1, 1), "00"}});
  Page page;
  page.box = {0, 0, 14400, 14400};
  for (const int number : {5, 6}) {
    CollectingSink sink;
    sink.header_answer = IMG_STOP_AFTER_HEADER;
    EXPECT_EQ(
        pdf::page::compose(pictures.file, std::vector{painted(number, {.a = .001, .d = .001})},
                           page, sink.sink())
            .raw(),
        IMG_STOP_AFTER_HEADER);
    const BitmapInfoHeader& header = sink.header.header;
    const std::int64_t pixels = std::int64_t{header.biWidth} * header.biHeight;
    EXPECT_LE(pixels, 1 << 30);
    EXPECT_GT(pixels, 1 << 29);
  }
  page.box = {0, 0, 72, 36};
  const Composed fine = composed(pictures, {painted(5, {.a = .001, .d = .001})}, page);
  EXPECT_EQ(fine.image.header.biWidth, 1200);
  EXPECT_EQ(fine.resolution.x, 1200000);
}

TEST(PdfStrips, AbutToHalfAPixel) {
  Pictures pictures({{bits(8, 2), "01 02"},
                     {bits(8, 1), "03"},
                     {grey(8, 1), "0102030405060708"},
                     {bits(8, 2), "0405 >"}});
  const Painted top = painted(5, {.a = 8, .d = 2, .f = 3});
  const Painted middle = painted(6, {.a = 8, .d = 1, .f = 2}), end = painted(8, {.a = 8, .d = 2});
  Painted clipped = middle;
  clipped.clip = {0, 0, 4, 5};
  Painted clipped_too = top;  // as all are by the page
  clipped_too.clip = clipped.clip;
  Painted slanted = middle, apart = middle, wide = middle;
  slanted.matrix.b = 1;
  apart.matrix.f -= .6;
  wide.matrix.a = 8.6;
  Painted near = middle;
  near.matrix.f += .4;
  const struct {
    const char* name;
    std::vector<Painted> list;
    bool is_one;
    std::string rows;
  } cases[] = {
      {"in order", {top, middle, end}, true, "0102030405"},
      {"in any order", {middle, end, top}, true, "0102030405"},
      {"nearly", {top, near, end}, true, "0102030405"},
      {"one", {end}, true, "0405"},
      {"apart", {top, apart}, false, ""},
      {"another width", {top, wide}, false, ""},
      {"slanted", {top, slanted}, false, ""},
      {"of another kind", {top, painted(7, middle.matrix)}, false, ""},
      {"cut", {top, clipped}, false, ""},
      {"cut alike", {clipped_too, clipped}, true, "010203"},
      {"one over the other", {top, top}, false, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    pdf::page::Strips strips;
    ASSERT_EQ(strips.open(pictures.file, c.list), kOk);
    ASSERT_EQ(strips.is_one_picture(), c.is_one);
    if (!c.is_one) continue;
    EXPECT_EQ(strips.image().header.biHeight, std::ssize(c.rows) / 2);
    EXPECT_DOUBLE_EQ(strips.matrix().a, 8);
    EXPECT_DOUBLE_EQ(strips.matrix().d, static_cast<double>(c.rows.size()) / 2);
    EXPECT_DOUBLE_EQ(strips.matrix().f, c.list.size() == 1 ? 0 : 5 - strips.matrix().d);
    CollectingSink sink;
    ASSERT_EQ(strips.decode(sink.sink(), formats::FaxRows::bits), kOk);
    std::string rows;
    for (const CollectedRow& row : sink.rows) {
      EXPECT_EQ(row.y, std::ssize(rows) / 2);
      rows += hex_of(row.bytes, 1);
    }
    EXPECT_EQ(rows, c.rows);
  }
}

}  // namespace
}  // namespace tq::test
