// Bitmaps of every kind with the rows that must come out of them, and files that lie.
#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>

#include "core/context.h"
#include "formats/bmp/bmp.h"
#include "formats/jpeg/jpeg.h"
#include "formats/png/png.h"
#include "tests/support/codec_runs.h"
#include "tests/support/guarded_block.h"

namespace tq::test {
namespace {

using Image = std::vector<Bytes>;  // rows from the top
using Palette = std::vector<Rgb>;

struct Variant {
  const char* name;
  BmpFields file;  // ends with its last pixel
  int bits;
  Image rows;
  Palette palette{};  // its first entries
  std::uint32_t compression = 0;
};

// clang-format off
std::vector<Variant> variants() {
  const Rgb black{0, 0, 0, 0}, white{255, 255, 255, 0}, red{0, 0, 255, 0}, blue{255, 0, 0, 0};
  const Palette bw = {black, white}, wb = {white, black};
  const Palette greys = grey_palette(256), grey16 = grey_palette(16), two(greys.begin(), greys.begin() + 2);
  const Image rows8 = {{1, 2, 3, 0}, {4, 5, 6, 0}};
  const Bytes up8 = joined({rows8[1], rows8[0]}), down8 = joined(rows8);
  const Image rows1 = {{0xA0, 0, 0, 0}, {0x40, 0, 0, 0}};
  const Image inverted1 = {{0x5F, 255, 255, 255}, {0xBF, 255, 255, 255}};
  const Bytes up1 = joined({rows1[1], rows1[0]}), down1 = joined(rows1);
  // 5-5-5, 6 bytes a row: red, green, blue; below them white, the unused bit, one step of each.
  const Bytes up555 = {0xFF, 0x7F, 0x00, 0x80, 0x21, 0x04, 0x00, 0x7C, 0xE0, 0x03, 0x1F, 0x00};
  const Image rows555 = {{0, 0, 248, 0, 248, 0, 248, 0, 0, 0, 0, 0},
                         {248, 248, 248, 0, 0, 0, 8, 8, 8, 0, 0, 0}};
  // 5-6-5, 8 bytes a row: the same, a step of green instead of the unused bit.
  const Bytes top565 = {0x00, 0xF8, 0xE0, 0x07, 0x1F, 0x00, 9, 9};
  const Bytes bottom565 = {0xFF, 0xFF, 0x20, 0x00, 0x41, 0x08, 9, 9};
  const Bytes up565 = joined({bottom565, top565}), down565 = joined({top565, bottom565});
  const Image rows565 = {{0, 0, 248, 0, 252, 0, 248, 0, 0, 0, 0, 0},
                         {248, 252, 248, 0, 4, 0, 8, 8, 8, 0, 0, 0}};
  const Bytes masks(12, 0x55);
  return {
    {"Windows 3", {true, 40, 3, 2, 8, 0, greys, up8}, 8, rows8, greys},
    {"OS/2", {true, 12, 3, 2, 8, 0, greys, up8}, 8, rows8, greys},
    {"OS/2 smaller than an information header", {true, 12, 3, 1, 1, 0, bw, {5, 0, 0, 0}}, 1, {{5, 0, 0, 0}}},
    {"larger header, read for a palette", {true, 108, 3, 2, 8, 0, greys, up8}, 8, rows8, Palette(17, {0x77, 0x77, 0x77, 0x77})},
    {"top-down", {true, 40, 3, -2, 8, 0, greys, down8}, 8, rows8, greys},
    {"pixels away from the palette", {.width = 3, .height = 2, .bits = 8, .palette = greys, .pixels = joined({{9, 9, 9}, up8}), .pixel_offset = 1081}, 8, rows8, greys},
    {"unknown compression", {true, 40, 3, 2, 8, 5, greys, up8}, 8, rows8, greys},
    {"RLE4 of 8 bits", {true, 40, 3, 2, 8, 2, greys, up8}, 8, rows8, greys},
    {"4 bits", {true, 40, 3, 1, 4, 0, grey16, {0x12, 0x30, 0, 0}}, 4, {{0x12, 0x30, 0, 0}}, grey16},
    {"black, white", {true, 40, 3, 2, 1, 0, bw, up1}, 1, rows1, bw},
    {"white, black", {true, 40, 3, 2, 1, 0, {{255, 255, 255, 7}, {0, 0, 0, 9}}, up1}, 1, inverted1, bw},
    {"white, black, OS/2", {true, 12, 3, 2, 1, 0, wb, up1}, 1, inverted1, bw},
    {"white, black, top-down", {true, 40, 3, -2, 1, 0, wb, down1}, 1, inverted1, bw},
    {"red, blue", {true, 40, 3, 2, 1, 0, {red, blue}, up1}, 1, rows1, bw},
    {"white, red", {true, 40, 3, 2, 1, 0, {white, red}, up1}, 1, rows1, bw},
    {"24 bits", {true, 40, 1, 2, 24, 0, {}, up8}, 24, rows8},
    {"24 bits marked 200", {true, 40, 1, 2, 24, 200, {}, up8}, 24, rows8, {}, 200},
    {"32 bits", {true, 40, 1, 2, 32, 0, {}, up8}, 32, rows8, {}, 200},
    {"32 bits with masks", {.width = 1, .height = -2, .bits = 32, .compression = 3, .pixels = down8, .masks = masks}, 32, rows8, {}, 200},
    {"5-5-5 of odd width is not padded", {true, 40, 3, 2, 16, 0, {}, up555}, 24, rows555},
    {"top-down 5-5-5 is not expanded", {true, 40, 1, -2, 16, 0, {}, down8}, 24, rows8},
    {"5-6-5", {.width = 3, .height = 2, .bits = 16, .compression = 3, .pixels = up565, .masks = masks}, 24, rows565},
    {"5-6-5 top-down", {.width = 3, .height = -2, .bits = 16, .compression = 3, .pixels = down565, .masks = masks}, 24, rows565},
    {"5-6-5 bare", {.file_header = false, .width = 3, .height = 2, .bits = 16, .compression = 3, .pixels = up565, .masks = masks}, 24, rows565},
    {"bare", {false, 40, 3, 2, 8, 0, greys, up8}, 8, rows8, greys},
    {"bare, two colours; the others lie in the pixels", {false, 40, 3, 2, 8, 0, two, up8, 2}, 8, rows8, {greys[0], greys[1], {4, 5, 6, 0}, {1, 2, 3, 0}, black}},
    {"bare, 16 bits are grey levels", {false, 40, 2, 2, 16, 0, {}, up8}, 16, rows8, greys},
    {"bare, 12 bits are 16", {false, 40, 2, 2, 12, 0, {}, up8}, 16, rows8, greys},
    {"bare, masks and colours", {.file_header = false, .width = 1, .height = 2, .bits = 32, .compression = 3, .palette = two, .pixels = up8, .colours_used = 2, .masks = masks}, 32, rows8, {}, 200},
    {"bare OS/2, read as if it had a file header", {false, 12, 3, 1, 4, 0, grey16, joined({Bytes(14, 8), {0x10, 9, 9, 9}})}, 4, {{0x10, 9, 9, 9}}, {{68, 85, 85, 0}, {85, 102, 102, 0}}},
    {"length in front", {true, 40, 3, 2, 8, 99, greys, {6, 0, 1, 2, 3, 4, 3, 0, 9}}, 8, {{6, 0, 1, 2, 3, 4}, {3, 0, 9}}, greys},
    {"run lists, one as long as a row of bits", {true, 40, 40, 2, 1, 99, bw, {8, 0, 3, 0, 40, 0, 40, 0, 6, 0, 40, 0, 40, 0}}, 1, {{10, 0, 3, 0, 40, 0, 40, 0, 42, 0}, {6, 0, 40, 0, 40, 0}}, bw},
    {"RLE8, two colours", {true, 40, 7, 4, 8, 1, two, {3, 1, 0, 3, 2, 3, 4, 0, 0, 0, 0, 2, 2, 1, 4, 9, 0, 1}}, 8, {{}, {1, 1, 9, 9, 9, 9, 0, 0}, {1, 1, 1, 2, 3, 4, 0, 0}, {1, 1, 1, 2, 3, 4, 0, 0}}, two},
    {"RLE4", {true, 40, 9, 3, 4, 2, grey16, {3, 0x12, 0, 5, 0x34, 0x56, 0x70, 0, 0, 2, 1, 1, 2, 0x98, 0, 1}}, 4, {{}, {0x12, 0x13, 0x45, 0x67, 0x09, 0x80, 0, 0}, {0x12, 0x13, 0x45, 0x67, 0, 0, 0, 0}}, grey16},
  };
}

// As other programs show them.
std::vector<Variant> shown_variants() {
  const Rgb black{0, 0, 0, 0}, white{255, 255, 255, 0}, red{0, 0, 255, 0}, blue{255, 0, 0, 0};
  const Palette bw = {black, white}, greys = grey_palette(256), grey16 = grey_palette(16), two = {red, blue};
  const Palette few = {red, blue, black}, four = {red, blue, white, black};
  const Image rows8 = {{1, 2, 3, 0}, {4, 5, 6, 0}}, rows1 = {{0xA0, 0, 0, 0}, {0x40, 0, 0, 0}};
  const Bytes up8 = joined({rows8[1], rows8[0]}), down8 = joined(rows8), up1 = joined({rows1[1], rows1[0]});
  const Image rows2 = {{0x10, 0x10, 0, 0}, {0x01, 0, 0, 0}};
  // 5-5-5: white, three steps of each, the unused bit; 5-6-5: red, three steps of green, one of blue.
  const Bytes pixels555 = {0xFF, 0x7F, 0x63, 0x0C, 0x00, 0x80, 9, 9}, pixels565 = {0x00, 0xF8, 0x60, 0x00, 0x01, 0x00, 9, 9};
  const Image rows555 = {{255, 255, 255, 25, 25, 25, 0, 0, 0, 0, 0, 0}}, rows565 = {{0, 0, 255, 0, 12, 0, 8, 0, 0, 0, 0, 0}};
  const Bytes masks565 = {0, 0xF8, 0, 0, 0xE0, 7, 0, 0, 0x1F, 0, 0, 0};
  // Ten bits of red, of green two that do not touch and lie among them, no blue.
  const Bytes odd = {0xFF, 3, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0}, odd_pixel = {0xFF, 5, 0, 0};
  const Bytes bgra = {0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0, 0, 0, 0, 255};
  const Bytes veiled = {0, 100, 255, 128, 7, 7, 7, 0}, unveiled = {0, 100, 255, 0, 7, 7, 7, 0};
  const Image on_white = {{127, 177, 255, 255, 255, 255, 0, 0}}, opaque = {{0, 100, 255, 7, 7, 7, 0, 0}};
  return {
    {"5-5-5", {true, 40, 3, 1, 16, 0, {}, pixels555}, 24, rows555},
    {"5-5-5, top-down", {true, 40, 3, -1, 16, 0, {}, pixels555}, 24, rows555},
    {"5-5-5, bare", {false, 40, 3, 1, 16, 0, {}, pixels555}, 24, rows555},
    {"masks behind the header", {.width = 3, .height = 1, .bits = 16, .compression = 3, .pixels = pixels565, .masks = masks565}, 24, rows565},
    {"masks in the header", {.header_bytes = 52, .width = 3, .height = -1, .bits = 16, .compression = 3, .pixels = pixels565, .masks = masks565}, 24, rows565},
    {"masks of any bits", {.width = 1, .height = 1, .bits = 32, .compression = 3, .pixels = odd_pixel, .masks = odd}, 24, {{0, 182, 127, 0}}},
    {"8 bits have no masks", {true, 40, 3, 2, 8, 3, greys, up8}, 8, rows8, greys},
    {"alpha", {.header_bytes = 56, .width = 2, .height = 1, .bits = 32, .compression = 3, .pixels = veiled, .masks = bgra}, 24, on_white},
    {"alpha behind the header", {.width = 2, .height = 1, .bits = 32, .compression = 6, .pixels = veiled, .masks = bgra}, 24, on_white},
    {"empty alpha", {.header_bytes = 124, .width = 2, .height = 1, .bits = 32, .compression = 3, .pixels = unveiled, .masks = bgra}, 24, opaque},
    {"no alpha without compression", {.header_bytes = 124, .width = 2, .height = 1, .bits = 32, .pixels = veiled, .masks = bgra}, 32, {veiled}, {}, 200},
    {"red, blue", {true, 40, 3, 2, 1, 0, two, up1}, 4, rows2, two},
    {"white, black", {true, 12, 3, 1, 1, 0, {white, black}, {0x40, 0, 0, 0}}, 1, {{0xA0, 0, 0, 0}}, bw},
    {"2 bits", {true, 40, 3, 1, 2, 0, four, {0x6C, 0, 0, 0}}, 4, {{0x12, 0x30, 0, 0}}, four},
    {"colours in use", {true, 108, 3, 2, 8, 0, few, up8, 3}, 8, rows8, {red, blue, black, black}},
    {"colours up to the pixels", {true, 40, 3, 2, 8, 0, few, up8}, 8, rows8, {red, blue, black, black}},
    {"OS/2, all fields", {true, 64, 3, -2, 8, 0, greys, down8}, 8, rows8, greys},
    {"OS/2, few fields", {true, 16, 3, 2, 8, 0, greys, up8}, 8, rows8, greys},
    {"OS/2, bare", {false, 12, 3, 1, 4, 0, grey16, {0x12, 0x30, 0, 0}}, 4, {{0x12, 0x30, 0, 0}}, grey16},
    {"no pixel offset", {.width = 3, .height = 2, .bits = 8, .palette = greys, .pixels = up8, .pixel_offset = 0}, 8, rows8, greys},
    {"pixel offset in the header", {.width = 3, .height = 2, .bits = 8, .palette = greys, .pixels = up8, .pixel_offset = 53}, 8, rows8, greys},
    {"RLE8 top-down, two lines down, one short, an end before the last", {true, 40, 7, -5, 8, 1, greys, {3, 1, 0, 2, 1, 2, 2, 9, 0, 0, 1, 3, 0, 1}}, 8,
     {{1, 1, 1, 0, 0, 0, 0, 0}, Bytes(8), {0, 0, 0, 0, 9, 9, 0, 0}, {3, 0, 0, 0, 0, 0, 0, 0}, Bytes(8)}, greys},
    {"RLE4, a line begun below", {true, 40, 5, 2, 4, 2, grey16, {2, 0x12, 0, 2, 1, 1, 1, 0x77, 0, 1}}, 4, {{0, 0x07, 0, 0}, {0x12, 0, 0, 0}}, grey16},
    {"RLE24", {true, 64, 4, 2, 24, 4, {}, {2, 1, 2, 3, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 0, 0, 1}}, 24,
     {{1, 1, 1, 2, 2, 2, 3, 3, 3, 0, 0, 0}, {1, 2, 3, 1, 2, 3, 0, 0, 0, 0, 0, 0}}},
  };
}
// clang-format on

Options shown() {
  Options options;
  EXPECT_TRUE(options.set(IMG_OPTION_READING, 1));
  return options;
}

// From memory that ends with the image, and from a stream that has it at an offset or where it
// stands.
void expect_image(const Variant& variant, const Options& options) {
  SCOPED_TRACE(variant.name);
  const Bytes file = bmp_file(variant.file);
  const GuardedBlock block(file);
  CollectingSink sinks[3];
  open_memory_stream(block.data());  // whose size is not known
  EXPECT_EQ(bmp::decode({kMemoryStream, 0, sinks[0].sink(), -1, options}), kOk);
  EXPECT_EQ(memory_position(), static_cast<std::int32_t>(file.size()));
  MemoryFile stream(joined({{'B', 'M', 'B'}, file}));
  EXPECT_EQ(bmp::decode({MemoryFile::kHandle, 3, sinks[1].sink(), -1, options}), kOk);
  stream.position = 3;
  EXPECT_EQ(bmp::decode({MemoryFile::kHandle, 0, sinks[2].sink(), 2, options}), kOk);
  BitmapInfoHeader header =
      dib_header(variant.file.width, std::abs(variant.file.height), variant.bits).header;
  header.biCompression = variant.compression;
  for (const CollectingSink& sink : sinks) {
    EXPECT_EQ(sink.headers, 1);
    EXPECT_EQ(sink.image(), variant.rows);
    EXPECT_EQ(std::memcmp(&sink.header.header, &header, sizeof header), 0);
    const Rgb* palette = sink.header.palette.data();
    EXPECT_EQ(Palette(palette, palette + variant.palette.size()), variant.palette);
  }
}

TEST(BmpDecode, EveryVariantGivesItsHeaderPaletteAndRows) {
  context().settings.read_budget = 1;  // a row at a time
  for (const Variant& variant : variants()) expect_image(variant, {});
  for (const Variant& variant : shown_variants()) expect_image(variant, shown());
}

CollectingSink decoded_as_shown(Bytes file, std::int32_t status = 0) {
  CollectingSink sink;
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(bmp::decode({.stream = kMemoryStream, .sink = sink.sink(), .options = shown()}).raw(),
            status);
  return sink;
}

TEST(BmpDecode, MasksThatStandTwiceBelongToOnePictureIfTheSizeSaysSo) {
  const Bytes masks = {0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0, 0, 0, 0, 0};
  BmpFields file{.file_header = false,
                 .header_bytes = 124,
                 .width = 1,
                 .height = 2,
                 .bits = 32,
                 .compression = 3,
                 .pixels = joined({Bytes(12, 9), {1, 2, 3, 4, 5, 6, 7, 8}}),
                 .masks = masks};
  EXPECT_EQ(decoded_as_shown(bmp_file(file)).image(), (Image{{5, 6, 7, 0}, {1, 2, 3, 0}}));
  file.pixels.push_back(0);
  EXPECT_EQ(decoded_as_shown(bmp_file(file)).image(), (Image{{9, 9, 9, 0}, {9, 9, 9, 0}}));
}

// A line of three white pixels and five black ones, below one of white ones; white is index 0.
TEST(BmpDecode, FacsimileRowsComeInTheColoursOfThePalette) {
  const Rgb black{0, 0, 0, 0}, white{255, 255, 255, 0}, red{0, 0, 255, 0};
  BmpFields file{true, 64, 8, 2, 1, 3, {white, black}, {0x00, 0x18, 0x30, 0x01, 0x98, 0, 0x10}};
  EXPECT_EQ(decoded_as_shown(bmp_file(file)).image(), (Image{{255, 0, 0, 0}, {0xE0, 0, 0, 0}}));
  file.palette = {red, white};
  EXPECT_EQ(decoded_as_shown(bmp_file(file)).image(), (Image{Bytes(4), {0, 1, 0x11, 0x11}}));
}

TEST(BmpDecode, AnotherFileInPlaceOfThePixelsIsThePicture) {
  const HeaderBlock image = grey_image(8, 1, 8);
  const Bytes jpeg = encoded(jpeg::encode_jpeg, image, {Bytes(8, 77)});
  const Bytes png = encoded(png::encode_png, image, {{1, 2, 3, 4, 5, 6, 7, 8}});
  EXPECT_EQ(decoded_as_shown(bmp_file({true, 40, 1, 1, 0, 4, {}, jpeg})).image(),
            decoded(jpeg::decode_jpeg, jpeg).image());
  EXPECT_EQ(decoded_as_shown(bmp_file({true, 124, 1, 1, 0, 5, {}, png})).image(),
            (Image{{1, 2, 3, 4, 5, 6, 7, 8}}));
}

TEST(BmpDecode, HeadersAndCompressionsOfNoKindAreNotGuessedAt) {
  for (const std::uint32_t header_bytes : {0u, 11u, 15u}) {
    decoded_as_shown(bmp_file({true, header_bytes, 1, 1, 8, 0, {}, Bytes(4)}), IMG_BAD_IMAGE);
  }
  for (const std::uint32_t compression : {1u, 2u, 7u, 11u}) {
    decoded_as_shown(bmp_file({true, 40, 1, 1, 24, compression, {}, Bytes(4)}), IMG_UNSUPPORTED);
  }
  decoded_as_shown(bmp_file({true, 40, 1, INT32_MIN, 8, 1, {}, Bytes(4)}), IMG_BAD_IMAGE);
  decoded_as_shown(bmp_file({true, 124, INT32_MAX, INT32_MAX, 32, 3, {}, Bytes(4)}),
                   IMG_OUT_OF_MEMORY);
}

TEST(BmpDecode, WhatACutOffFileLacksIsZeroAndEveryRowComes) {
  BmpFields file{.width = 2, .height = 3, .bits = 24, .pixels = Bytes(10, 7)};
  EXPECT_EQ(decoded(bmp::decode, bmp_file(file)).image(),
            (Image{Bytes(8, 0), {7, 7, 0, 0, 0, 0, 0, 0}, Bytes(8, 7)}));
  for (const std::uint32_t offset : {1000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    file.pixel_offset = offset;
    EXPECT_EQ(decoded(bmp::decode, bmp_file(file)).image(), Image(3, Bytes(8, 0))) << offset;
  }
  file.file_header = false;
  file.colours_used = 0xFFFFFFFF;
  EXPECT_EQ(decoded(bmp::decode, bmp_file(file)).image(), Image(3, Bytes(8, 0)));
}

TEST(BmpDecode, ACutOffFileIsNotReadAgainForEveryRowAndClaimsNoMoreThanItMay) {
  for (const auto [width, height, rows] :
       {std::array{1, 10000, 10000}, {1, 530000000, 1048576 + 2}, {30000000, 1, 0}}) {
    const MemoryFile stream(bmp_file({true, 40, width, height, 24, 0, {}, Bytes(10, 7)}));
    int delivered = 0;
    formats::RowSink sink{.context = &delivered};
    sink.on_row = [](void*, void* count, std::int32_t, std::int32_t) -> std::int32_t {
      ++*static_cast<int*>(count);
      return 0;
    };
    EXPECT_EQ(bmp::decode({MemoryFile::kHandle, 0, sink}), kOk);
    EXPECT_EQ(delivered, rows);
    EXPECT_LT(stream.counts.size(), 10u);
  }
}

TEST(BmpDecode, LengthsThatCannotBeEndTheRows) {
  for (const std::uint8_t length : Bytes{1, 205}) {
    const Bytes pixels = joined({{3, 0, 9, length, 0}, Bytes(400, 1)});
    EXPECT_EQ(decoded(bmp::decode, bmp_file({true, 40, 1, 2, 24, 99, {}, pixels})).image(),
              (Image{{3, 0, 9}, {}}));
  }
}

TEST(BmpDecode, ImpossibleSidesAndDepthsAreRefused) {
  constexpr std::int32_t kMost = INT32_MAX, kLeast = INT32_MIN;
  // Width, height, bits, compression, status. The last says that it holds a JPEG file.
  const std::int32_t cases[][5] = {
      {0, 1, 8, 0, -3},         {-1, 1, 8, 1, -3},         {kLeast, 1, 24, 3, -3},
      {1, 0, 4, 2, -3},         {1, kLeast, 8, 1, -3},     {kMost, kLeast, 2, 0, -3},
      {1, 1, 0, 0, -3},         {1, 1, 2, 0, -7},          {-1, 1, 64, 1, -7},
      {kMost, 1, 24, 0, -1},    {kMost, 9000, 1, 99, -1},  {kMost, 9000, 8, 1, -1},
      {9000, kMost, 16, 3, -1}, {9000, -kMost, 32, 0, -1}, {1, 1, 0, 0x4745504A, -12}};
  for (const auto& [width, height, bits, compression, status] : cases) {
    SCOPED_TRACE(testing::Message() << width << " x " << height << ", " << bits << " bits");
    const auto coding = static_cast<std::uint32_t>(compression);
    const CollectingSink sink =
        decoded(bmp::decode, bmp_file({true, 40, width, height, bits, coding}), status);
    EXPECT_EQ(sink.rows.size(), 0u);
  }
}

TEST(BmpDecode, ResolutionComesInDotsPerInchWhenBothSidesHaveOne) {
  // A file header, the values of the file, those that are delivered.
  const std::int32_t cases[][5] = {
      {1, 3780, 3780, 96, 96},       {1, 11811, 7874, 300, 200}, {1, 1, 20, 0, 1},
      {1, 3780, 0, 3780, 0},         {1, 0, 3780, 0, 3780},      {1, -3780, -3780, -95, -95},
      {0, 3780, 3780, 96, 96},       {0, 2001, 10, 51, 0},       {0, 2000, 3780, 2000, 3780},
      {1, INT32_MAX, 1, 54546085, 0}};
  for (const auto& [file_header, x, y, delivered_x, delivered_y] : cases) {
    const BitmapInfoHeader header =
        decoded(bmp::decode, bmp_file({file_header != 0, 40, 1, 1, 24, 0, {}, Bytes(4), 0, x, y}))
            .header.header;
    EXPECT_EQ(header.biXPelsPerMeter, delivered_x) << x;
    EXPECT_EQ(header.biYPelsPerMeter, delivered_y) << x;
  }
}

}  // namespace
}  // namespace tq::test
