// Graphics built record by record: every code of both kinds of runs, and what cannot be.
#include "formats/wpg/wpg.h"
#include "core/numbers.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using wpg::decode_wpg;
using wpg::encode_wpg;

void put(Bytes& file, int value, int bytes) {
  for (int i = 0; i < bytes; ++i) file.push_back(byte(value >> 8 * i));
}

struct Header {
  int version = 1, type = 0x16, key = 0, data = 16;
};

// Type and content; 16 or 2 as an end stands behind them.
using Records = std::vector<std::pair<int, Bytes>>;

Bytes graphic(const Header& header, const Records& records, int length_bytes = 1) {
  Bytes file = {0xFF, 'W', 'P', 'C'};
  put(file, header.data, 4);
  for (const int field : {1, header.type, header.version, 0}) put(file, field, 1);
  put(file, header.key, 2);
  put(file, 0, 2);
  const bool second = header.version == 2;
  for (const auto& [type, content] : records) {
    if (second) put(file, 1, 1);
    put(file, type, 1);
    if (second) put(file, 0, 1);
    const int bytes = static_cast<int>(content.size());
    if (length_bytes > 1) put(file, 0xFF, 1);
    if (length_bytes == 5) put(file, 0x8000, 2);
    put(file, bytes, length_bytes == 1 ? 1 : 2);
    file.insert(file.end(), content.begin(), content.end());
  }
  for (const int field : {1, 2, 0, 0}) {
    if (second) put(file, field, 1);
  }
  if (!second) put(file, 16, 2);
  return file;
}

Bytes first(int width, int height, int bits, const Bytes& codes) {
  Bytes out;
  for (const int field : {width, height, bits, 150, 75}) put(out, field, 2);
  out.insert(out.end(), codes.begin(), codes.end());
  return out;
}

Bytes second(int width, int height, int depth, int coding, const Bytes& codes) {
  Bytes out;
  for (const int field : {width, height, depth | coding << 8}) put(out, field, 2);
  out.insert(out.end(), codes.begin(), codes.end());
  return out;
}

// Rows of the first version, of five bytes; of the second, of six.
TEST(Wpg, EveryCodeOfBothKindsOfRuns) {
  const auto rows = [](const Header& header, int type, const Bytes& content) {
    return decoded(decode_wpg, graphic(header, {{type, content}})).image();
  };
  // A repeat before the first row, literals across rows, values, twice the row above, ones, a cut-off end.
  const Bytes old = {0, 1, 7, 1, 2, 3, 4, 5, 6, 7, 0x84, 9, 0, 2, 0x80, 6, 3, 8};
  EXPECT_EQ(rows({}, 0x0B, first(5, 8, 8, old)),
            (std::vector<Bytes>{{255, 255, 255, 255, 255, 0, 0, 0},
                                {1, 2, 3, 4, 5, 0, 0, 0},
                                {6, 7, 9, 9, 9, 0, 0, 0},
                                {9, 0, 0, 0, 0, 0, 0, 0},
                                {},
                                {},
                                {},
                                {}}));
  const Bytes whole = {7, 1, 2, 3, 4, 5, 6, 7, 0x83, 9, 0, 2, 0x80, 5, 2, 8, 8, 0x83, 7};
  EXPECT_EQ(rows({}, 0x0B, first(5, 6, 8, whole)),
            (std::vector<Bytes>{{1, 2, 3, 4, 5, 0, 0, 0},
                                {6, 7, 9, 9, 9, 0, 0, 0},
                                {6, 7, 9, 9, 9, 0, 0, 0},
                                {6, 7, 9, 9, 9, 0, 0, 0},
                                {255, 255, 255, 255, 255, 0, 0, 0},
                                {8, 8, 7, 7, 7, 0, 0, 0}}));
  const Bytes cells = {5,    1, 2, 3,    4, 5, 6, 0xFE, 0,    0x7D, 2,    0x7F, 0, 0xFF, 0,
                       0x80, 5, 6, 0xFD, 1, 0, 8, 9,    0x7D, 3,    0x81, 1,    2, 3};
  EXPECT_EQ(rows({.version = 2}, 0x0E, second(6, 5, 4, 1, cells)),
            (std::vector<Bytes>{{1, 2, 3, 4, 5, 6, 0, 0},
                                {1, 2, 3, 4, 5, 6, 0, 0},
                                {0, 0, 255, 255, 5, 6, 0, 0},
                                {5, 6, 5, 6, 8, 9, 0, 0},
                                {1, 2, 3, 1, 2, 3, 0, 0}}));
  EXPECT_EQ(rows({.version = 2}, 0x0E, second(2, 1, 8, 0, {1, 2, 3, 4, 5, 6})),
            (std::vector<Bytes>{{3, 2, 1, 6, 5, 4, 0, 0}}));
  for (const Bytes& behind : {Bytes{}, Bytes{5, 6, 5, 4, 3, 2, 1}}) {
    Bytes codes = {6, 1, 2, 3, 4, 5, 6, 7, 0x7E};
    codes.insert(codes.end(), behind.begin(), behind.end());
    decoded(decode_wpg, graphic({.version = 2}, {{0x0E, second(6, 3, 4, 1, codes)}}), -7);
  }
  // Cells of no size, or a larger one than there is: nothing behind it is read.
  for (const int size : {0, 9, 253}) {
    EXPECT_EQ(rows({.version = 2}, 0x0E,
                   second(3, 3, 4, 1,
                          {3, 1, 2, 3, 4, 0x7D, byte(size), 0x83, 1, 2, 3, 0xFD, 200, 9, 9, 9})),
              (std::vector<Bytes>{{1, 2, 3, 0}, {4, 0, 0, 0}, {}}));
  }
}

TEST(Wpg, DepthsAndColours) {
  const Bytes map = {1, 0, 2, 0, 1, 2, 3, 4, 5, 6},
              map2 = {0, 0, 2, 0, 255, 255, 255, 0, 0, 0, 0, 0};
  const struct {
    Header header;
    Records records;
    int bits;
    Rgb colour;  // the second
    std::uint8_t row;
  } cases[] = {
      {{}, {{0x0E, map}, {0x0B, first(3, 1, 1, {1, 0xA0})}}, 1, {255, 255, 255, 0}, 0xA0},
      {{}, {{0x0B, first(3, 1, 2, {1, 0x6C})}}, 4, {0xAA, 0xAA, 0, 0}, 0x12},
      {{}, {{0x0B, first(2, 1, 4, {1, 0x12})}}, 4, {0xA8, 0, 0, 0}, 0x12},
      {{}, {{0x0E, map}, {0x0B, first(1, 1, 8, {1, 7})}}, 8, {3, 2, 1, 0}, 7},
      {{},
       {{0x14,
         [] {
           Bytes b(10);
           const Bytes f = first(1, 1, 8, {1, 7});
           b.insert(b.end(), f.begin(), f.end());
           return b;
         }()}},
       8,
       {0xA8, 0, 0, 0},
       7},
      {{},
       {{0x0B, first(1, 1, 8, {1, 7})},
        {0x0E, map},
        {0x0B, first(2, 2, 8, {4, 8, 8, 8, 8})},
        {0x0B, first(3, 1, 8, {3, 9, 9, 9})}},
       8,
       {3, 2, 1, 0},
       8},
      {{.version = 2}, {{0x0E, second(3, 1, 1, 0, {0xA0})}}, 1, {255, 255, 255, 0}, 0xA0},
      {{.version = 2},
       {{0x0C, map2}, {0x0E, second(3, 1, 1, 0, {0xA0})}},
       1,
       {255, 255, 255, 0},
       0x40},
      {{.version = 2}, {{0x0E, second(2, 1, 3, 0, {0x12})}}, 4, {0xA8, 0, 0, 0}, 0x12},
  };
  for (const auto& [header, records, bits, colour, row] : cases) {
    for (const int length_bytes : {1, 3, 5}) {
      const CollectingSink sink = decoded(decode_wpg, graphic(header, records, length_bytes));
      EXPECT_EQ(sink.header.header.biBitCount, bits);
      EXPECT_EQ(sink.header.header.biXPelsPerMeter, header.version == 1 ? 150 : 0);
      EXPECT_EQ(sink.header.palette[1], colour);
      EXPECT_EQ(sink.image().at(0).at(0), row);
    }
  }
  // Of the colours that a file without a map has: hues of nine rings.
  const CollectingSink sink = decoded(decode_wpg, graphic({}, {{0x0B, first(1, 1, 8, {1, 7})}}));
  EXPECT_EQ(sink.header.palette[6], (Rgb{0, 0x54, 0xA8, 0}));
  EXPECT_EQ(sink.header.palette[32], (Rgb{252, 0, 0, 0}));
  EXPECT_EQ(sink.header.palette[33], (Rgb{252, 0, 64, 0}));
  EXPECT_EQ(sink.header.palette[36], (Rgb{252, 0, 252, 0}));
  EXPECT_EQ(sink.header.palette[39], (Rgb{64, 0, 252, 0}));
  EXPECT_EQ(sink.header.palette[41], (Rgb{0, 64, 252, 0}));
  EXPECT_EQ(sink.header.palette[247], (Rgb{64, 48, 44, 0}));
  EXPECT_EQ(sink.header.palette[248], (Rgb{0, 0, 0, 0}));
}

TEST(Wpg, RefusesWhatCannotBe) {
  const Records lines = {{0x05, {1, 2, 3, 4}}};
  const Records bitmap = {{0x0B, first(1, 1, 8, {1, 7})}};
  const struct {
    Bytes file;
    int status;
  } cases[] = {
      {graphic({}, lines), -7},
      {graphic({.type = 0x0A}, bitmap), -7},
      {graphic({.version = 3}, bitmap), -7},
      {graphic({.key = 1}, bitmap), -7},
      {graphic({.data = 15}, bitmap), -3},
      {graphic({.data = 5000}, bitmap), -12},
      {graphic({}, {{0x0B, first(1, 1, 3, {})}}), -7},
      {graphic({.version = 2}, {{0x0E, second(1, 1, 4, 2, {})}}), -7},
      {graphic({}, {{0x0B, first(0, 1, 8, {})}}), -7},
      {Bytes{0xFF, 'W', 'P', 'C', 16}, -12},
      {Bytes(20, 'W'), -3},
  };
  for (const auto& [file, status] : cases) decoded(decode_wpg, file, status);
}

TEST(Wpg, SavesWhatItReads) {
  Random random(3);
  for (const int bits : {1, 4, 8, 24, 32}) {
    HeaderBlock image = grey_image(300, 3, bits);
    image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = 200;
    const Pixels noise = random.pixels(300, bits), flat(300, 1);
    Pixels both = flat;
    std::copy_n(noise.begin(), 10, both.begin() + 140);
    const std::vector<Pixels> rows = {noise, flat, both};
    const CollectingSink back = decoded(
        decode_wpg,
        encoded(encode_wpg, image, {pack(noise, bits), pack(flat, bits), pack(both, bits)}));
    const int depth = back.header.header.biBitCount;
    EXPECT_EQ(depth, bits == 32 ? 24 : bits);
    EXPECT_EQ(back.header.header.biXPelsPerMeter, bits <= 8 ? 200 : 0);
    for (std::size_t y = 0; y < 3; ++y) {
      Pixels expected = rows[y];
      for (std::uint32_t& pixel : expected) pixel &= bits == 32 ? 0xFFFFFF : 0xFFFFFFFF;
      EXPECT_EQ(unpack(back.image().at(y), 300, depth), expected);
    }
  }
}

}  // namespace
}  // namespace tq::test
