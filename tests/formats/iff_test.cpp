// IFF pictures as other programs do not write them here: every count of planes, masks, modes, runs
// that go too far, chunks that are cut off. What they write is in the corpus.
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using simple::decode_iff;
using simple::encode_iff;

Bytes chunk(const char* name, Bytes data, std::size_t claimed = SIZE_MAX) {
  const std::size_t size = claimed == SIZE_MAX ? data.size() : claimed;
  Bytes bytes(name, name + 4);
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(byte(size >> shift));
  if (data.size() % 2 != 0) data.push_back(0);
  return joined({bytes, data});
}

struct Iff {
  int width = 3, height = 1, planes = 1, masking = 0, compression = 0, transparent = 0;
  Bytes body{}, before{};  // pixels, other chunks
  const char* type = "ILBM";

  Bytes header() const {
    return chunk("BMHD", {byte(width >> 8),
                          byte(width),
                          byte(height >> 8),
                          byte(height),
                          0,
                          0,
                          0,
                          0,
                          byte(planes),
                          byte(masking),
                          byte(compression),
                          0,
                          0,
                          byte(transparent),
                          1,
                          1,
                          0,
                          0,
                          0,
                          0});
  }
  Bytes file() const {
    const Bytes chunks = joined({header(), before, chunk("BODY", body)});
    return chunk("FORM", joined({Bytes(type, type + 4), chunks}));
  }
};

CollectingSink shown(const Iff& iff) {
  return decoded(decode_iff, iff.file());
}

Bytes first_row(const Iff& iff) {
  return shown(iff).rows.at(0).bytes;
}

// A row of one plane is two bytes here; pixel 0 has all bits, pixel 1 the highest, pixel 2 none.
TEST(Iff, EveryCountOfPlanes) {
  for (int planes = 1; planes <= 8; ++planes) {
    Iff iff{.planes = planes};
    for (int i = 0; i < planes; ++i)
      iff.body.push_back(i + 1 < planes ? 0x80 : 0xC0), iff.body.push_back(0);
    const CollectingSink sink = shown(iff);
    const int bits = planes == 1 ? 1 : planes <= 4 ? 4 : 8;
    const std::uint32_t all = (1u << planes) - 1, highest = 1u << (planes - 1);
    EXPECT_EQ(sink.header.header.biBitCount, bits);
    EXPECT_EQ(unpack(sink.rows[0].bytes, 3, bits), (Pixels{all, highest, 0}));
    EXPECT_EQ(sink.header.palette[all], (Rgb{255, 255, 255, 0}));
  }
  for (const int planes : {24, 32}) {
    Iff iff{.width = 1, .planes = planes};
    for (int i = 0; i < planes; ++i)
      iff.body.push_back(i == 0 || i == 9 || i == 18 ? 0x80 : 0), iff.body.push_back(0);
    EXPECT_EQ(first_row(iff), (Bytes{4, 2, 1, 0}));
  }
  // Bytes, of an even number.
  const CollectingSink bytes =
      shown({.height = 2, .planes = 8, .body = {1, 2, 3, 9, 4, 5, 6}, .type = "PBM "});
  EXPECT_EQ(bytes.image(), (std::vector<Bytes>{{1, 2, 3, 0}, {4, 5, 6, 0}}));
}

TEST(Iff, ColoursOfTheMap) {
  const Bytes red_blue = chunk("CMAP", {255, 0, 0, 0, 0, 255});
  EXPECT_EQ(shown({.body = {0x40, 0}, .before = red_blue}).header.header.biBitCount, 4);
  // White comes first, and is transparent.
  const CollectingSink turned =
      shown({.masking = 2, .body = {0x40, 0}, .before = chunk("CMAP", {255, 255, 255, 0, 0, 0})});
  EXPECT_EQ(turned.rows[0].bytes[0], 0xA0);
  EXPECT_EQ(turned.header.header.biClrUsed, 0x1001u);
  EXPECT_EQ(shown({.planes = 3, .masking = 2, .transparent = 7, .body = Bytes(6)})
                .header.header.biClrUsed,
            0x1007u);
  const CollectingSink half = shown({.planes = 6,
                                     .body = Bytes(12),
                                     .before = joined({chunk("CAMG", {0, 0, 0, 0x80}),
                                                       chunk("DPI ", {1, 44, 0, 150}), red_blue})});
  EXPECT_EQ(half.header.palette[32], (Rgb{0, 0, 127, 0}));
  EXPECT_EQ(half.header.palette[33], (Rgb{127, 0, 0, 0}));
  EXPECT_EQ(half.header.header.biXPelsPerMeter, 300);
  EXPECT_EQ(half.header.header.biYPelsPerMeter, 150);
}

// Red of the colour before, an entry, green, blue, of 4 bits and of 6; entry 0 is before the first.
TEST(Iff, HeldColoursAreModified) {
  const auto planes_of = [](const Bytes& pixels, int planes) {
    Bytes body;
    for (int i = 0; i < planes; ++i) {
      int bits = 0;
      for (const int pixel : pixels) bits = bits << 1 | (pixel >> i & 1);
      body.push_back(byte(bits << (8 - pixels.size())));
      body.push_back(0);
    }
    return body;
  };
  const Bytes chunks = joined({chunk("CAMG", {0, 0, 8, 0}), chunk("CMAP", {1, 2, 3, 4, 5, 6})});
  EXPECT_EQ(first_row({.width = 4,
                       .planes = 6,
                       .body = planes_of({0x2F, 0x01, 0x31, 0x12}, 6),
                       .before = chunks}),
            (Bytes{3, 2, 255, 6, 5, 4, 6, 17, 4, 34, 17, 4}));
  EXPECT_EQ(first_row({.width = 4,
                       .planes = 8,
                       .body = planes_of({0xBF, 0x01, 0xE1, 0x42}, 8),
                       .before = chunks}),
            (Bytes{3, 2, 255, 6, 5, 4, 6, 134, 4, 8, 134, 4}));
  EXPECT_EQ(first_row({.width = 1,
                       .planes = 6,
                       .body = planes_of({0x2F}, 6),
                       .before = chunk("CAMG", {0, 0, 8, 0})}),
            (Bytes{0, 0, 255, 0}));
}

// Two rows of two planes and a mask: what a run or a literal has beyond its plane is lost.
TEST(Iff, RunsEndWithTheRowOfTheirPlane) {
  const Iff iff{.height = 2,
                .planes = 2,
                .masking = 1,
                .compression = 1,
                .body = {0xF0, 0xE0, 0x80, 1, 0x40, 0, 0x80, 3, 1, 2, 3, 4, 4, 0x20, 0, 7, 7, 7}};
  EXPECT_EQ(shown(iff).image(), (std::vector<Bytes>{{0x13, 0x10, 0, 0}, {0, 0x10, 0, 0}}));
  // A mask between plain rows; the second row has one plane, and half of the other is missing.
  EXPECT_EQ(
      shown(
          {.height = 3, .planes = 2, .masking = 1, .body = {0x80, 0, 0x40, 0, 9, 9, 0x20, 0, 0x40}})
          .image(),
      (std::vector<Bytes>{{0x12, 0, 0, 0}, {0x02, 0x10, 0, 0}, {}}));
}

TEST(Iff, RefusesWhatCannotBe) {
  const auto status = [](const Bytes& file, int expected) { decoded(decode_iff, file, expected); };
  const Iff plain{.body = {0x80, 0}};
  status(Iff{.body = {0}, .type = "8SVX"}.file(), -7);
  status(Iff{.compression = 2, .body = {0}}.file(), -7);
  for (const int planes : {0, 9, 25, 33}) status(Iff{.planes = planes}.file(), -3);
  status(Iff{.planes = 4, .type = "PBM "}.file(), -3);
  status(Iff{.width = 0}.file(), -3);
  status(Iff{.width = 0xFFFF, .height = 0xFFFF, .planes = 24}.file(), -1);
  const Bytes start = {'F', 'O', 'R', 'M', 0, 0, 0, 0, 'I', 'L', 'B', 'M'};
  status(joined({start, chunk("BODY", Bytes(9))}), -3);
  status(joined({start, plain.header()}), -3);
  status(joined({start, chunk("JUNK", {}, 0xFFFFFFFF), plain.header()}), -3);
  status(joined({start, {'B', 'M', 'H', 'D', 0, 0, 0, 20, 0, 3}}), -12);
  status(Bytes(start.begin(), start.begin() + 11), -12);
  status(joined({Bytes(start), plain.header(), chunk("BODY", {0x80, 0}, 0xFFFFFFFF)}), 0);
}

TEST(Iff, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    HeaderBlock image = grey_image(35, 2, bits);
    image.header.biXPelsPerMeter = 300;
    image.header.biYPelsPerMeter = 400;
    if (bits <= 8) image.header.biClrUsed = 0x1001;
    if (bits == 4) image.palette[3] = {1, 2, 3, 0};
    Pixels pixels = Random(static_cast<std::uint32_t>(bits)).pixels(35, bits);
    const Bytes file = encoded(encode_iff, image, {pack(pixels, bits), pack(Pixels(35), bits)});
    EXPECT_EQ(file.size(), 8u + (file[4] << 24 | file[5] << 16 | file[6] << 8 | file[7]));
    EXPECT_EQ(file.size() % 2, 0u);
    const CollectingSink back = decoded(decode_iff, file);
    if (bits == 32) std::ranges::for_each(pixels, [](auto& pixel) { pixel &= 0xFFFFFF; });
    EXPECT_EQ(unpack(back.image().at(0), 35, std::min(bits, 24)), pixels);
    EXPECT_EQ(back.header.header.biYPelsPerMeter, 400);
    if (bits <= 8) {
      EXPECT_EQ(back.header.palette, image.palette);
      EXPECT_EQ(back.header.header.biClrUsed, 0x1001u);
    }
  }
}

}  // namespace
}  // namespace tq::test
