// Photoshop documents as other programs do not write them here: rare modes, large documents, lengths
// that are wrong. What they write is in the corpus, what they read in tests/peers.
#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using simple::decode_photoshop;
using simple::encode_photoshop;

void put(Bytes& file, std::uint64_t value, int bytes) {
  while (bytes-- > 0) file.push_back(byte(value >> 8 * bytes));
}

struct Psd {
  std::uint32_t width = 3, height = 1;
  int mode = 1, depth = 8, channels = 1, coding = 0, version = 1;
  Bytes colours{}, resources{};
  Bytes data{};  // behind the coding

  Bytes file() const {
    Bytes out = {'8', 'B', 'P', 'S'};
    put(out, version, 2);
    put(out, 0, 6);
    put(out, channels, 2);
    put(out, height, 4);
    put(out, width, 4);
    put(out, depth, 2);
    put(out, mode, 2);
    for (const Bytes* section : {&colours, &resources}) {
      put(out, section->size(), 4);
      out.insert(out.end(), section->begin(), section->end());
    }
    put(out, 4, version == 2 ? 8 : 4);
    put(out, 0xABCDEF01, 4);
    put(out, coding, 2);
    out.insert(out.end(), data.begin(), data.end());
    return out;
  }
};

TEST(Photoshop, EveryModeAndDepth) {
  Bytes colours(768);
  colours[2] = 10, colours[256 + 2] = 20, colours[512 + 2] = 30;
  const struct {
    Psd psd;
    int bits;
    Bytes row;
  } cases[] = {
      {{.mode = 0, .depth = 1, .data = {0xBF}}, 1, {0x40, 0, 0, 0}},
      {{.mode = 1, .channels = 2, .data = {1, 2, 3, 9, 9, 9}}, 8, {1, 2, 3, 0}},
      {{.mode = 8, .depth = 16, .colours = {1, 2}, .data = {0, 127, 0, 129, 0xFF, 0xFF}},
       8,
       {0, 1, 255, 0}},
      {{.mode = 2, .colours = colours, .data = {2, 0, 2}}, 8, {2, 0, 2, 0}},
      {{.width = 1, .mode = 3, .channels = 4, .data = {1, 2, 3, 4}}, 24, {3, 2, 1, 0}},
      {{.width = 1, .mode = 3, .depth = 16, .channels = 3, .data = {1, 1, 2, 2, 3, 3}},
       24,
       {3, 2, 1, 0}},
      {{.width = 1, .mode = 4, .channels = 4, .data = {255, 254, 253, 0}}, 32, {0, 1, 2, 255}},
  };
  for (const auto& [psd, bits, row] : cases) {
    SCOPED_TRACE(testing::Message() << "mode " << psd.mode << ", depth " << psd.depth);
    for (const int version : {1, 2}) {
      Psd either = psd;
      either.version = version;
      const CollectingSink sink = decoded(decode_photoshop, either.file());
      EXPECT_EQ(sink.header.header.biBitCount, bits);
      EXPECT_EQ(sink.header.palette[2], psd.mode == 2 ? (Rgb{30, 20, 10, 0})
                                        : bits == 8   ? (Rgb{2, 2, 2, 0})
                                                      : (Rgb{}));
      ASSERT_EQ(sink.rows.size(), 1u);
      EXPECT_EQ(sink.rows[0].bytes, row);
    }
  }
}

// Of the second channel the codes give too much in the first row and too little in the second: the
// rows behind are where their lengths say.
TEST(Photoshop, RowsBeginWhereTheLengthsSay) {
  const Bytes rows = {0, 1, 0xFF, 2, 0xF0, 3, 3, 4, 0x80, 0xFE, 5, 0, 6};
  for (const int version : {1, 2}) {
    Bytes data;
    for (const int length : {2, 2, 2, 2, 3, 2}) put(data, length, 2 * version);
    data.insert(data.end(), rows.begin(), rows.end());
    const Psd psd{.width = 2,
                  .height = 2,
                  .mode = 3,
                  .channels = 3,
                  .coding = 1,
                  .version = version,
                  .data = data};
    const CollectingSink sink = decoded(decode_photoshop, psd.file());
    ASSERT_EQ(sink.rows.size(), 2u);
    EXPECT_EQ(sink.rows[0].bytes, (Bytes{5, 3, 1, 5, 3, 0, 0, 0}));
    EXPECT_EQ(sink.rows[1].bytes, (Bytes{6, 4, 2, 0, 0, 2, 0, 0}));
  }
}

TEST(Photoshop, ResolutionAndTransparentIndex) {
  Bytes resources = {'8', 'B', 'I', 'M', 3, 237, 2, 'a', 'b', 0, 0, 0, 0, 16};
  for (const std::uint32_t dots : {0x012C8000u, 0x00960000u}) {
    put(resources, dots, 4);
    put(resources, 0x00010001, 4);
  }
  const Bytes more = {'8', 'B', 'I', 'M', 9, 9,  0, 0, 0, 0, 0, 1, 7, 0,
                      '8', 'B', 'I', 'M', 4, 23, 0, 0, 0, 0, 0, 2, 0, 5};
  resources.insert(resources.end(), more.begin(), more.end());
  const Psd psd{.mode = 2, .colours = Bytes(768), .resources = resources, .data = {1, 2, 3}};
  const BitmapInfoHeader header = decoded(decode_photoshop, psd.file()).header.header;
  EXPECT_EQ(header.biXPelsPerMeter, 301);
  EXPECT_EQ(header.biYPelsPerMeter, 150);
  EXPECT_EQ(header.biClrUsed, kTransparent | 5);
}

TEST(Photoshop, RefusesWhatCannotBe) {
  const auto status = [](const Psd& psd, int expected) {
    SCOPED_TRACE(testing::Message() << "mode " << psd.mode << ", depth " << psd.depth);
    decoded(decode_photoshop, psd.file(), expected);
  };
  status({.version = 3}, -3);
  status({.channels = 0}, -3);
  status({.channels = 57}, -3);
  status({.width = 30001}, -3);
  status({.width = 300000, .height = 300000, .version = 2}, -1);
  status({.height = 0x80000001, .version = 2}, -3);
  status({.width = 0}, -3);
  status({.mode = 3, .channels = 2}, -3);
  status({.mode = 5}, -3);
  status({.mode = 7}, -7);
  status({.mode = 9, .channels = 3}, -7);
  status({.depth = 32}, -7);
  status({.depth = 1}, -3);
  status({.mode = 0, .depth = 8}, -3);
  status({.mode = 2, .colours = Bytes(767)}, -3);
  status({.coding = 2}, -7);
  status({.coding = 4}, -3);
  Bytes file = Psd{}.file();
  file[26] = 0x7F;  // the length of the colours
  decoded(decode_photoshop, file, -3);
  file.resize(25);
  decoded(decode_photoshop, file, -12);
}

TEST(Photoshop, SavesWhatItReads) {
  const auto back = [](HeaderBlock image, const std::vector<Bytes>& rows, bool cmyk = false) {
    GivenRows given(rows);
    const MemoryFile file({7, 7, 7});  // the document begins behind these
    seek(MemoryFile::kHandle, 3, Origin::start);
    image.header.biXPelsPerMeter = 300;
    image.header.biYPelsPerMeter = 65535;
    EXPECT_EQ(encode_photoshop({.stream = MemoryFile::kHandle,
                                .image = &image,
                                .rows = given.supplier(),
                                .cmyk = cmyk}),
              kOk);
    CollectingSink sink;
    EXPECT_EQ(decode_photoshop({.stream = MemoryFile::kHandle, .offset = 3, .sink = sink.sink()}),
              kOk);
    EXPECT_EQ(sink.header.header.biXPelsPerMeter, 300);
    EXPECT_EQ(sink.header.header.biYPelsPerMeter, 65535);
    return sink;
  };
  for (const int bits : {1, 4, 8, 24, 32}) {
    HeaderBlock image = grey_image(5, 2, bits);
    if (bits == 8) image.palette[3] = {1, 2, 3, 0};
    const std::vector<Bytes> rows = {Bytes(std::size_t(row_bytes(5, bits)), 0),
                                     pack({1, 0, 1, 1, 0}, bits)};
    const CollectingSink sink = back(image, rows, bits == 32);
    EXPECT_EQ(unpack(sink.rows.at(1).bytes, 5, sink.header.header.biBitCount),
              (Pixels{1, 0, 1, 1, 0}));
    if (bits <= 8) {
      EXPECT_EQ(sink.header.palette[3], image.palette[3]);
    }
  }
  EXPECT_EQ(back(dib_header(1, 1, 32), {{1, 2, 3, 4}}).rows.at(0).bytes, (Bytes{1, 2, 3, 0}));
  HeaderBlock image = dib_header(30001, 1, 8);
  EXPECT_EQ(simple::can_encode_photoshop({.stream{}, .image = &image, .rows{}}).raw(), -7);
  image = dib_header(1, 1, 16);
  EXPECT_EQ(simple::can_encode_photoshop({.stream{}, .image = &image, .rows{}}).raw(), -21);
}

}  // namespace
}  // namespace tq::test
