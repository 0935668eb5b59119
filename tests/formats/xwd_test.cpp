// X window dumps as other programs do not write them here: every order of bytes and bits, planes
// apart, masks, tables of colours. What they write is in the corpus, what they read in tests/peers.
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using simple::decode_xwd;
using simple::encode_xwd;

struct Xwd {
  std::uint32_t format = 2, depth = 8, width = 3, height = 1, high_byte = 1, unit = 8, high_bit = 1;
  std::uint32_t bits = 8, line = 4, kind = 3, red = 0, green = 0, blue = 0, colours = 0;
  Bytes body{};  // colours and pixels
  std::uint32_t header_bytes = 103;

  Bytes file() const {
    Bytes file;
    for (const std::uint32_t field :
         {header_bytes, 7u,      format, depth,  width, height, 0u,    high_byte, unit,
          high_bit,     8u,      bits,   line,   kind,  red,    green, blue,      8u,
          256u,         colours, width,  height, 0u,    0u,     0u}) {
      for (int shift = 24; shift >= 0; shift -= 8) file.push_back(byte(field >> shift));
    }
    return joined({file, {'x', 'y', 0}, body});
  }
};

CollectingSink shown(const Xwd& xwd) {
  return decoded(decode_xwd, xwd.file());
}

Bytes first_row(const Xwd& xwd) {
  return shown(xwd).rows.at(0).bytes;
}

// Pixels 0 and 9 of 17 are set, whatever the order; white where nothing says what 1 is.
TEST(Xwd, BitsInUnitsOfEitherOrder) {
  const struct {
    std::uint32_t unit, high_byte, high_bit;
    Bytes line;
  } lines[] = {
      {8, 0, 1, {0x80, 0x40, 0}},     {8, 1, 0, {0x01, 0x02, 0}},
      {16, 1, 1, {0x80, 0x40, 0, 0}}, {16, 0, 1, {0x40, 0x80, 0, 0}},
      {16, 0, 0, {0x01, 0x02, 0, 0}}, {16, 1, 0, {0x02, 0x01, 0, 0}},
      {32, 1, 1, {0x80, 0x40, 0, 0}}, {32, 0, 1, {0, 0, 0x40, 0x80}},
      {32, 0, 0, {0x01, 0x02, 0, 0}}, {32, 1, 0, {0, 0, 0x02, 0x01}},
  };
  for (const auto& [unit, high_byte, high_bit, line] : lines) {
    Xwd xwd{.depth = 1,
            .width = 17,
            .high_byte = high_byte,
            .unit = unit,
            .high_bit = high_bit,
            .bits = 1,
            .line = std::uint32_t(line.size()),
            .kind = 1,
            .body = line};
    EXPECT_EQ(first_row(xwd), (Bytes{0x80, 0x40, 0, 0})) << unit << high_byte << high_bit;
    xwd.kind = 0;
    EXPECT_EQ(first_row(xwd), (Bytes{0x7F, 0xBF, 0x80, 0}));
    xwd.kind = 1;
    xwd.format = 0;
    EXPECT_EQ(first_row(xwd), (Bytes{0x7F, 0xBF, 0x80, 0}));
    xwd.format = 1;
    EXPECT_EQ(first_row(xwd), (Bytes{0x80, 0x40, 0, 0}));
  }
}

Bytes entry(std::uint32_t pixel, int red, int green, int blue) {
  return {0,
          0,
          byte(pixel >> 8),
          byte(pixel),
          byte(red >> 8),
          byte(red),
          byte(green >> 8),
          byte(green),
          byte(blue >> 8),
          byte(blue),
          7,
          0};
}

TEST(Xwd, ColoursAreThoseOfTheirPixel) {
  const Bytes table =
      joined({entry(1, 0xFF80, 0xFF7F, 0x80), entry(0x100, 1, 1, 1), entry(0, 0xFFFF, 0, 0)});
  const CollectingSink bytes = shown({.colours = 3, .body = joined({table, {0, 1, 2, 9}})});
  EXPECT_EQ(bytes.rows[0].bytes, (Bytes{0, 1, 2, 0}));
  EXPECT_EQ(bytes.header.palette[0], (Rgb{0, 0, 255, 0}));
  EXPECT_EQ(bytes.header.palette[1], (Rgb{0, 255, 255, 0}));
  EXPECT_EQ(bytes.header.palette[2], (Rgb{}));
  const Bytes pairs = joined({table, {0x12, 0x34, 0, 0}});
  EXPECT_EQ(first_row({.depth = 4, .bits = 4, .colours = 3, .body = pairs}),
            (Bytes{0x12, 0x30, 0, 0}));
  EXPECT_EQ(first_row({.depth = 4, .high_byte = 0, .bits = 4, .colours = 3, .body = pairs}),
            (Bytes{0x21, 0x40, 0, 0}));
  const Bytes white_black = joined({entry(0, 0xFFFF, 0xFFFF, 0xFFFF), entry(1, 0, 0, 0), {0x40}});
  EXPECT_EQ(first_row({.depth = 1, .bits = 1, .line = 1, .colours = 2, .body = white_black}),
            (Bytes{0xA0, 0, 0, 0}));
  EXPECT_EQ(shown({.body = {0, 1, 2, 9}}).header.palette[7], (Rgb{7, 7, 7, 0}));
  EXPECT_EQ(shown({.bits = 4, .body = {0, 1, 2, 9}}).header.palette[7], (Rgb{119, 119, 119, 0}));
}

// Highest planes first, each of all rows.
TEST(Xwd, PlanesLieApart) {
  Xwd xwd{.format = 1,
          .depth = 3,
          .height = 2,
          .line = 2,
          .body = {0x80, 9, 0, 9, 0xC0, 9, 0, 9, 0xE0, 9, 0x20}};
  EXPECT_EQ(shown(xwd).image(), (std::vector<Bytes>{{0x73, 0x10, 0, 0}, {0, 0x10, 0, 0}}));
  xwd = {.format = 1,
         .depth = 12,
         .height = 1,
         .line = 1,
         .kind = 4,
         .red = 0xF00,
         .green = 0xF0,
         .blue = 0xF};
  xwd.body = {0x80, 0, 0, 0, 0, 0x40, 0, 0, 0, 0, 0x20, 0};  // bits 11, 6 and 1
  EXPECT_EQ(first_row(xwd), (Bytes{0, 0, 136, 0, 68, 0, 34, 0, 0, 0, 0, 0}));
}

TEST(Xwd, MasksSayWhereColoursAre) {
  const Xwd words{.depth = 16,
                  .width = 1,
                  .bits = 16,
                  .line = 2,
                  .kind = 4,
                  .red = 0xF800,
                  .green = 0x7E0,
                  .blue = 0x1F,
                  .body = {0x18, 0x43}};
  EXPECT_EQ(first_row(words), (Bytes{24, 8, 24, 0}));
  const Xwd bytes{
      .width = 1, .line = 1, .kind = 5, .red = 7, .green = 0x38, .blue = 0xC0, .body = {0x8F}};
  EXPECT_EQ(first_row(bytes), (Bytes{170, 36, 255, 0}));
  Xwd three{.depth = 24,
            .width = 1,
            .bits = 24,
            .line = 9,
            .kind = 4,
            .red = 0xFF0000,
            .green = 0xFF00,
            .blue = 0xFF,
            .body = {1, 2, 3}};
  EXPECT_EQ(first_row(three), (Bytes{3, 2, 1, 0}));
  three.high_byte = 0;
  EXPECT_EQ(first_row(three), (Bytes{1, 2, 3, 0}));
  three.height = 3;
  three.body = {1, 2, 3, 9, 9, 9, 9, 9, 9, 4, 5, 6};
  EXPECT_EQ(shown(three).image(), (std::vector<Bytes>{{1, 2, 3, 0}, {4, 5, 6, 0}, {}}));
}

TEST(Xwd, RefusesWhatCannotBe) {
  const auto status = [](Xwd xwd, int expected) {
    xwd.body = Bytes(20);
    decoded(decode_xwd, xwd.file(), expected);
  };
  status({.format = 3}, -3);
  status({.depth = 33}, -7);
  status({.bits = 12}, -7);
  status({.depth = 0}, -3);
  status({.format = 0, .depth = 8}, -3);
  status({.depth = 1, .unit = 24, .bits = 1}, -3);
  status({.width = 0}, -3);
  status({.width = 0x80000000}, -3);
  status({.width = 5}, -3);
  status({.depth = 24, .bits = 32, .line = 12, .kind = 4}, -3);
  status({.colours = 2}, -12);
  status({.colours = 0xFFFFFFFF}, -12);
  status({.header_bytes = 99}, -3);
  status({.header_bytes = 100 + 65537}, -3);
  status({.width = 0xFFFF, .height = 0xFFFF, .line = 0xFFFFFFFF}, -1);
  status({.height = 9, .line = 0xFFFFFFFF}, 0);
  decoded(decode_xwd, Bytes(99), -12);
}

TEST(Xwd, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    HeaderBlock image = grey_image(35, 2, bits);
    if (bits == 4) image.palette[3] = {1, 2, 3, 0};
    Pixels pixels = Random(static_cast<std::uint32_t>(bits)).pixels(35, bits);
    const auto rows = {Bytes(std::size_t(row_bytes(35, bits))), pack(pixels, bits)};
    const CollectingSink back = decoded(decode_xwd, encoded(encode_xwd, image, rows));
    if (bits == 32) std::ranges::for_each(pixels, [](auto& pixel) { pixel &= 0xFFFFFF; });
    EXPECT_EQ(unpack(back.image().at(1), 35, back.header.header.biBitCount), pixels);
    if (bits <= 8) {
      EXPECT_EQ(back.header.palette, image.palette);
    }
  }
}

}  // namespace
}  // namespace tq::test
