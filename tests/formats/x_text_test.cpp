// X bitmaps and X pixmaps as other programs do not write them here: odd text, keys and colours of
// every kind, what is cut off. What they write is in the corpus, what they read in tests/peers.
#include <string>

#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using namespace simple;

Bytes bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

CollectingSink xbm(const std::string& text, int status = 0) {
  return decoded(decode_xbm, bytes_of(text), status);
}

TEST(Xbm, NamesNumbersAndBlanksMayBeAnything) {
  const std::vector<Bytes> rows = {{0x5F, 0x80, 0, 0}, {0xFF, 0, 0, 0}};
  for (const std::string& text : {
           std::string("#define a_width 9\n#define a_height 2\nstatic char a_bits[] = {0x05, "
                       "0xfe,0x00 , 0xFf};"),
           "#define " + std::string(9000, 'n') +
               "_width 0x9\n#define height 2\nstatic unsigned char x[99]={5,254,0,255}",
           std::string("#/* { */define width 9 /* 7 * / */\n#define x_x_hot 3\n# define "
                       "_height\t2\r\n{0X5/**/,0XFE,0x0,0x1FF,77};"),
           std::string("#define 3-d.x_width 9\n#define 3-d.x_height 2\nstatic short 3-d.x[] = "
                       "{0xFE05, 0xFF00};"),
       }) {
    const CollectingSink sink = xbm(text);
    EXPECT_EQ(sink.header.header.biBitCount, 1);
    ASSERT_EQ(sink.rows.size(), 2u) << text;
    EXPECT_EQ(sink.rows[0].bytes, rows[0]) << text;
    EXPECT_EQ(sink.rows[1].bytes[0], rows[1][0]) << text;
  }
}

TEST(Xbm, KeepsRowsOfWhatIsCutOffAndRefusesWhatIsNoPicture) {
  const std::string size = "#define a_width 9\n#define a_height 3\n";
  EXPECT_EQ(xbm(size + "{1,2,3").image(),
            (std::vector<Bytes>{{0x7F, 0x80, 0, 0}, {0x3F, 0x80, 0, 0}, {}}));
  EXPECT_EQ(xbm(size + "{1,2,x,3,4").rows.size(), 1u);
  xbm(size, -3);
  xbm(size + "/* {1,2,3,4}", -3);
  xbm("#define a_height 3\n{1}", -3);
  xbm("#define a_width 0\n#define a_height 3\n{1}", -3);
  xbm("#define a_width -1\n#define a_height 3\n{1}", -3);
  xbm("#define a_width 32768\n#define a_height 3\n{1}", -3);
  xbm("#define a_width 99999999999999999999999\n#define a_height 3\n{1}", -3);
  xbm("#define PATH_MAX 255\nint f(void) { return 0; }\n", -3);
}

CollectingSink xpm(const std::string& strings, int status = 0) {
  return decoded(decode_xpm, bytes_of("/* XPM */\n" + strings), status);
}

Rgb colour(const std::string& definition) {
  return xpm("\"1 1 1 1\",\"a " + definition + "\",\"a\"").header.palette[0];
}

TEST(Xpm, ColoursByNameAndNumber) {
  const struct {
    const char* definition;
    Rgb rgb;
  } colours[] = {
      {"c #123", {0x33, 0x22, 0x11, 0}},
      {"c #aBcDeF", {0xEF, 0xCD, 0xAB, 0}},
      {"c #123456789", {0x78, 0x45, 0x12, 0}},
      {"c #123456789ABC", {0x9A, 0x56, 0x12, 0}},
      {"c #12345", {}},
      {"c #12345g", {}},
      {"c #", {}},
      {"c Green", {0, 255, 0, 0}},
      {"c  light Goldenrod \t yellow", {210, 250, 250, 0}},
      {"c DarkSlateGrey", {79, 79, 47, 0}},
      {"c grey", {190, 190, 190, 0}},
      {"c gray51", {130, 130, 130, 0}},
      {"c grey 100", {255, 255, 255, 0}},
      {"c gray101", {}},
      {"c AliceBlue", {255, 248, 240, 0}},
      {"c yellowgreen", {50, 205, 154, 0}},
      {"c nobody knows this name, which is longer than any other", {}},
      {"m black s c1 g4 red g blue", {255, 0, 0, 0}},
      {"g4 red m white", {0, 0, 255, 0}},
      {"s name m white", {255, 255, 255, 0}},
      {"s red", {}},
      {"", {}},
  };
  for (const auto& [definition, rgb] : colours) EXPECT_EQ(colour(definition), rgb) << definition;
}

TEST(Xpm, StringsOutsideOfCommentsCount) {
  const CollectingSink sink =
      xpm("static char *x[] = { /* \"9 9 9 9\" */\n\"4 2 3 2 1 1 XPMEXT\", // not a "
          "comment\n\"\\\"a c red\", \"  c blue\","
          "\"\\\\\\\\ c lime\",\"\\\\\\\\\\\"a  zz\", /* \" */ \"/*\\\\\\\\\", \"XPMEXT\"}");
  EXPECT_EQ(sink.header.header.biBitCount, 4);
  EXPECT_EQ(sink.image(), (std::vector<Bytes>{{0x20, 0x10, 0, 0}, {0x02, 0, 0, 0}}));
}

TEST(Xpm, DepthByTheNumberOfColours) {
  const auto two = [](const char* first, const char* second) {
    return xpm(std::string("\"2 1 2 1\",\"a c ") + first + "\",\"b c " + second + "\",\"ab\"");
  };
  EXPECT_EQ(two("black", "#fff").rows[0].bytes[0], 0x40);
  EXPECT_EQ(two("white", "#000").rows[0].bytes[0], 0x80);
  EXPECT_EQ(two("NONE", "black").header.header.biClrUsed, 0x1001u);
  EXPECT_EQ(two("black", "None").header.header.biClrUsed, 0x1001u);
  EXPECT_EQ(two("None", "None").header.header.biClrUsed, 0u);
  EXPECT_EQ(two("red", "black").header.header.biBitCount, 4);
  for (const int count : {16, 17, 256, 257}) {
    std::string text = "\"2 1 " + std::to_string(count) + " 3\"";
    for (int i = 0; i < count; ++i) {
      char line[40];
      std::snprintf(line, sizeof line, ",\"%03d c #%02X%02X07\"", (i * 37 + 5) % 1000, i >> 8,
                    i & 255);
      text += line;
    }
    const CollectingSink sink = xpm(text + ",\"042005\"");  // colours 1 and 0
    const int bits = count == 16 ? 4 : count <= 256 ? 8 : 24;
    ASSERT_EQ(sink.header.header.biBitCount, bits);
    const Pixels indices = {1, 0}, colours = {0x000107, 0x000007};
    EXPECT_EQ(unpack(sink.rows.at(0).bytes, 2, bits), bits == 24 ? colours : indices);
  }
}

TEST(Xpm, KeepsRowsOfWhatIsCutOff) {
  const CollectingSink sink =
      xpm("\"3 4 3 1\",\"a c red\",\"b c lime\",\"b c blue\",\"bbb\",\"?\",\"b");
  EXPECT_EQ(sink.image(),
            (std::vector<Bytes>{{0x22, 0x20, 0, 0}, {0, 0, 0, 0}, {0x20, 0, 0, 0}, {}}));
}

TEST(Xpm, RefusesWhatCannotBe) {
  const std::string rest = ",\"a c red\",\"a\"";
  for (const char* size : {"1 1 1", "x 1 1 1", "1 1 1 0", "1 1 1 9", "0 1 1 1", "1 0 1 1",
                           "1 1 0 1", "1 1 16777217 1", "1 1 99 1", "99999999999 1 1 1"}) {
    xpm("\"" + std::string(size) + "\"" + rest, -3);
  }
  xpm("\"2000000000 2000000000 1 1\"" + rest, -1);
  xpm("\"1 1 1 1\",\"a c %0.1,0.2,0.3\",\"a\"", -7);
  xpm("\"1 1 3 1\"" + rest, -12);
  xpm("static char", -12);
}

TEST(XText, SavesWhatItReads) {
  for (const int bits : {1, 4, 8}) {
    HeaderBlock image = grey_image(300, 2, bits);
    if (bits > 1) image.header.biClrUsed = 0x1003;
    if (bits > 1) image.palette[3] = {255, 255, 255, 0};
    Pixels pixels = Random(static_cast<std::uint32_t>(bits)).pixels(300, bits);
    const auto rows = {Bytes(std::size_t(row_bytes(300, bits))), pack(pixels, bits)};
    const CollectingSink back = decoded(decode_xpm, encoded(encode_xpm, image, rows));
    EXPECT_EQ(back.header.palette, image.palette);
    EXPECT_EQ(back.header.header.biClrUsed, image.header.biClrUsed);
    EXPECT_EQ(unpack(back.image().at(1), 300, bits), pixels);
    if (bits > 1) continue;
    for (const bool turned : {false, true}) {
      if (turned) std::swap(image.palette[0], image.palette[1]);
      if (turned) std::ranges::for_each(pixels, [](auto& pixel) { pixel ^= 1; });
      const CollectingSink bitmap = decoded(decode_xbm, encoded(encode_xbm, image, rows));
      EXPECT_EQ(unpack(bitmap.image().at(1), 300, 1), pixels);
    }
  }
  const auto refused = [](formats::EncodeCheck check, int width, int bits) {
    HeaderBlock image = dib_header(width, 1, bits);
    return check({.stream{}, .image = &image, .rows{}}).raw();
  };
  EXPECT_EQ(refused(can_encode_xbm, 1, 4), -21);
  EXPECT_EQ(refused(can_encode_xbm, 32768, 1), -7);
  EXPECT_EQ(refused(can_encode_xpm, 1, 24), -21);
}

}  // namespace
}  // namespace tq::test
