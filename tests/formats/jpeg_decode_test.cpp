// JPEG streams built from coefficients, decoded and compared with a plain model; damaged ones.
#include <gmock/gmock.h>

#include <random>
#include <utility>

#include "core/memory.h"
#include "formats/bmp/bmp.h"
#include "formats/jpeg/jpeg.h"
#include "tests/support/codec_runs.h"
#include "tests/support/guarded_block.h"
#include "tests/support/jpeg_file.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

using jpeg::decode_jpeg;
using testing::Each;

std::vector<int> steps(int low, int slope = 1) {
  std::vector<int> table(64);
  for (int i = 0; i < 64; ++i) table[i] = low + slope * (i % 8 + i / 8);
  return table;
}

JpegPicture picture_of(int width, int height, std::vector<JpegComponent> components) {
  JpegPicture picture{.width = width, .height = height};
  picture.components = std::move(components);
  picture.quantisers = {steps(2), steps(3)};
  return picture;
}
const std::vector<JpegComponent> kGrey = {{1, 1, 0}};
const std::vector<JpegComponent> kFullColour = {{1, 1, 0}, {1, 1, 1}, {1, 1, 1}};
const std::vector<JpegComponent> kHalvedColour = {{2, 2, 0}, {1, 1, 1}, {1, 1, 1}};

// One block for each component, with this first coefficient and nothing else.
JpegPicture flat_picture(const std::vector<int>& dc, int step, int width = 8) {
  JpegPicture picture = picture_of(width, 1, std::vector<JpegComponent>(dc.size()));
  picture.quantisers = {std::vector<int>(64, step)};
  random_coefficients(picture, 1);
  for (std::size_t i = 0; i < dc.size(); ++i) {
    picture.components[i].blocks[0].assign(64, 0);
    picture.components[i].blocks[0][0] = dc[i];
  }
  return picture;
}

struct Decoded {
  CollectingSink sink;
  Status status = kOk;
};
Decoded decode(const Bytes& file, std::int32_t offset = 0, const CollectingSink& sink = {}) {
  Decoded decoded{sink};
  const GuardedBlock block(file);
  open_memory_stream(block.data(), block.size());
  decoded.status = decode_jpeg({kMemoryStream, offset, decoded.sink.sink()});
  EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  return decoded;
}

const std::vector<JpegScan> kProgression = {
    {{0, 1, 2}, 0, 0, 0, 1}, {{0}, 1, 5, 0, 2},  {{2}, 1, 63, 0, 1},      {{1}, 1, 63, 0, 1},
    {{0}, 6, 63, 0, 2},      {{0}, 1, 63, 2, 1}, {{0, 1, 2}, 0, 0, 1, 0}, {{2}, 1, 63, 1, 0},
    {{1}, 1, 63, 1, 0},      {{0}, 1, 63, 1, 0},
};

struct LayoutCase {
  const char* name;
  std::vector<JpegComponent> components;
  std::vector<JpegScan> scans{};
  bool progressive = false;
};
const LayoutCase kLayouts[] = {
    {"grey", kGrey},
    {"grey with factors that mean nothing", {{2, 3, 0}}},
    {"4:4:4", kFullColour},
    {"4:2:2", {{2, 1, 0}, {1, 1, 1}, {1, 1, 1}}},
    {"4:2:0", kHalvedColour},
    {"4:1:1", {{4, 1, 0}, {1, 1, 1}, {1, 1, 1}}},
    {"4:4:0", {{1, 2, 0}, {1, 1, 1}, {1, 1, 1}}},
    {"uneven", {{3, 2, 0}, {2, 1, 1}, {1, 2, 1}}},
    {"chroma finer than luma", {{1, 1, 0}, {2, 1, 1}, {2, 2, 1}}},
    {"four components", {{2, 1, 0}, {1, 1, 1}, {1, 1, 1}, {2, 1, 0}}},
    {"one component per scan", kHalvedColour, {{{2}}, {{0}}, {{1}}}},
    {"two scans", kHalvedColour, {{{0}}, {{1, 2}}}},
    {"progressive", kHalvedColour, kProgression, true},
    {"progressive grey",
     kGrey,
     {{{0}, 0, 0, 0, 2},
      {{0}, 1, 63, 0, 3},
      {{0}, 1, 63, 3, 2},
      {{0}, 0, 0, 2, 1},
      {{0}, 1, 63, 2, 1},
      {{0}, 0, 0, 1, 0},
      {{0}, 1, 63, 1, 0}},
     true},
};

JpegPicture picture_of(int width, int height, const LayoutCase& layout, int interval,
                       unsigned seed) {
  JpegPicture picture = picture_of(width, height, layout.components);
  picture.scans = layout.scans;
  picture.progressive = layout.progressive;
  picture.restart_interval = interval;
  random_coefficients(picture, seed);
  return picture;
}

TEST(JpegDecode, EveryLayoutGivesTheModelsPicture) {
  unsigned seed = 0;
  for (const LayoutCase& layout : kLayouts) {
    const std::size_t count = layout.components.size();
    for (const auto& [width, height] : {std::pair{1, 1}, {8, 8}, {37, 29}, {66, 50}}) {
      for (const int interval : {0, 1, 3}) {
        const JpegPicture picture = picture_of(width, height, layout, interval, ++seed);
        const Decoded decoded = decode(jpeg_file(picture));
        ASSERT_EQ(decoded.status, kOk) << layout.name << " " << width;
        const Difference d = difference(model_rows(picture), decoded.sink.image());
        EXPECT_LT(d.largest, count == 3 ? 4 : 1.5) << layout.name << " " << width;
        EXPECT_LT(d.mean, width <= 8 ? 2 : count == 3 ? 0.45 : 0.32) << layout.name;
        EXPECT_EQ(decoded.sink.header.header.biBitCount, 8 * count);
        for (const auto& row : decoded.sink.image()) {
          EXPECT_EQ(std::count(row.begin() + static_cast<long>(count) * width, row.end(), 0),
                    -static_cast<long>(count) * width & 3);
        }
      }
    }
  }
}

TEST(JpegDecode, EndOfBandRunsOfManyBlocks) {
  // Only the last of them has more than its first coefficient.
  const auto last_block = [](int width, int height) {
    JpegPicture picture = picture_of(width, height, kLayouts[13], 0, 1);
    for (auto& block : picture.components[0].blocks) block.assign(64, 0);
    picture.components[0].blocks.back()[9] = 43;
    return decode(jpeg_file(picture)).sink.image();
  };
  const std::vector<Bytes> wide = last_block(8 * 8190, 8 * 4), alone = last_block(8, 8);
  ASSERT_EQ(wide.size(), 32u);
  for (std::size_t y = 0; y < 32; ++y) {
    const auto end = wide[y].end() - 8;
    EXPECT_EQ(std::count(wide[y].begin(), end, 128), 8 * 8189) << y;
    EXPECT_EQ(Bytes(end, wide[y].end()), y < 24 ? Bytes(8, 128) : alone[y - 24]) << y;
  }
}

TEST(JpegDecode, FarTooBrightSamplesCountAsDark) {
  const int cases[][2] = {{-8 * 500, 0},      {-8 * 128, 0},    {8 * 127, 255}, {8 * 128, 255},
                          {8 * 383 + 3, 255}, {8 * 383 + 4, 0}, {8 * 1000, 0}};
  for (const auto& [dc, grey] : cases) {
    EXPECT_THAT(decode(jpeg_file(flat_picture({dc}, 1))).sink.image(), Each(Each(grey))) << dc;
  }
}

TEST(JpegDecode, TwelveBitGreyFillsTheUpperBits) {
  const int cases[][2] = {
      {-8 * 2048, 0}, {-8 * 2047, 0}, {0, 2047 << 4}, {8 * 1000, 3047 << 4}, {8 * 2048, 4095 << 4}};
  for (const auto& [dc, grey] : cases) {
    JpegPicture picture = flat_picture({dc / 4}, 4, 3);
    picture.precision = 12;
    picture.quantisers[0][63] = 256;  // the table has 16 bits then
    const Decoded decoded = decode(jpeg_file(picture));
    const auto low = static_cast<std::uint8_t>(grey), high = static_cast<std::uint8_t>(grey >> 8);
    EXPECT_EQ(decoded.sink.image(), (std::vector<Bytes>{{low, high, low, high, low, high, 0, 0}}));
    EXPECT_EQ(decoded.sink.header.header.biBitCount, 16);
    EXPECT_EQ(decoded.sink.header.palette[200].green, 200);
  }
}

TEST(JpegDecode, AdobeSegmentSaysWhatTheComponentsAre) {
  const auto pixel = [](std::size_t components, const Bytes& extra) {
    std::vector<int> levels = {-28, 50, -60, 100};  // around 128
    levels.resize(components);
    JpegPicture picture = flat_picture(levels, 8, 1);
    picture.extra = extra;
    return decode(jpeg_file(picture)).sink.image().at(0);
  };
  const Bytes converted = {188, 125, 16, 0};  // blue, green, red
  EXPECT_EQ(pixel(3, {}), converted);
  EXPECT_EQ(pixel(3, adobe_segment(1)), converted);
  EXPECT_EQ(pixel(3, adobe_segment(0)), (Bytes{68, 178, 100, 0}));
  EXPECT_EQ(pixel(4, {}), (Bytes{100, 178, 68, 228}));
  EXPECT_EQ(pixel(4, adobe_segment(0)), (Bytes{155, 77, 187, 27}));
  EXPECT_EQ(pixel(4, adobe_segment(2)), (Bytes{16, 125, 188, 27}));
  EXPECT_EQ(pixel(4, jpeg_segment(0xEE, {'a', 'd', 'o', 'b', 'e', 0, 0, 0, 0, 0, 0, 2})),
            (Bytes{100, 178, 68, 228}));
}

Bytes small_file() {
  return jpeg_file(picture_of(20, 20, kLayouts[0], 0, 7));
}
// The first place of these bytes.
auto find(Bytes& file, const Bytes& bytes) {
  const auto found = std::search(file.begin(), file.end(), bytes.begin(), bytes.end());
  EXPECT_NE(found, file.end());
  return found;
}

TEST(JpegHeader, GarbageAndFillBytesAreSkipped) {
  const Bytes file = small_file();
  const auto expected = decode(file).sink.image();
  for (const int garbage : {1, 4999, 5000, 5001}) {
    const Bytes shifted = joined({Bytes(static_cast<std::size_t>(garbage), 0xFF), file});
    const Decoded decoded = decode(shifted);
    EXPECT_EQ(decoded.status.raw(), garbage <= 5000 ? 0 : -3);
    if (decoded.sink.headers != 0) {
      EXPECT_EQ(decoded.sink.image(), expected);
    }
    EXPECT_EQ(decode(shifted, static_cast<std::uint32_t>(garbage)).sink.image(), expected);
  }
  Bytes filled = file;
  filled.insert(filled.begin() + 2, {0x12, 0x34, 0xFF, 0x01, 0xFF, 0xD3, 0xFF, 0xFF});
  EXPECT_EQ(decode(filled).sink.image(), expected);
  EXPECT_EQ(decode({}).status.raw(), -12);
  EXPECT_EQ(decode({0xFF}).status.raw(), -3);
  EXPECT_EQ(decode(file, static_cast<std::uint32_t>(file.size())).status.raw(), -12);
}

TEST(JpegHeader, DensityIsTakenAsItStands) {
  for (const int units : {0, 1, 2}) {
    JpegPicture picture = flat_picture({0}, 1, 1);
    picture.extra = jpeg_segment(
        0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, static_cast<std::uint8_t>(units), 1, 44, 0, 118, 0, 0});
    const BitmapInfoHeader header = decode(jpeg_file(picture)).sink.header.header;
    EXPECT_EQ(header.biXPelsPerMeter, units == 0 ? 0 : 300);
    EXPECT_EQ(header.biYPelsPerMeter, units == 0 ? 0 : 118);
    EXPECT_EQ(header.biSizeImage, 4u);
  }
}

TEST(JpegHeader, SlotsThatDoNotExistReuseTheOneChosenLast) {
  const Bytes plain = small_file();
  Bytes renumbered = plain;
  find(renumbered, {0xFF, 0xDB, 0, 67, 0})[4] = 0x09;       // the first quantiser slot
  find(renumbered, {0xFF, 0xC4, 1, 0x13, 0x00})[4] = 0x23;  // the first DC slot
  EXPECT_EQ(decode(renumbered).sink.image(), decode(plain).sink.image());
}

TEST(JpegHeader, WhatCannotBeIsRefused) {
  struct Case {
    const char* name;
    int answer;
    Bytes place, changed;  // what stands behind the place becomes this
  };
  const Bytes sof = {0xFF, 0xC1, 0, 11}, sos = {0xFF, 0xDA, 0, 8};
  const Case cases[] = {
      {"precision 12 is fine", 0, sof, {12}},
      {"precision 9", -7, sof, {9}},
      {"no height", -3, sof, {8, 0, 0}},
      {"no width", -3, sof, {8, 0, 20, 0, 0}},
      {"two components", -7, sof, {8, 0, 20, 0, 20, 2}},
      {"five components", -7, sof, {8, 0, 20, 0, 20, 5}},
      {"factor 0", -3, sof, {8, 0, 20, 0, 20, 1, 1, 0x01}},
      {"quantiser 4", -3, sof, {8, 0, 20, 0, 20, 1, 1, 0x11, 4}},
      {"too large for any block", -1, sof, {8, 0xFF, 0xFF, 0xFF, 0xFF, 1}},
      {"unknown component", -3, sos, {1, 9}},
      {"no component", -3, sos, {0}},
      {"table 3", -3, sos, {1, 1, 0x30}},
      {"table that was not defined", -3, sos, {1, 1, 0x01}},
      {"quantiser precision 2", -3, {0xFF, 0xDB, 0, 67}, {0x20}},
      {"more than 256 codes", -3, {0xFF, 0xC4, 1, 0x13, 0, 0, 0, 0, 0, 0, 0, 0}, {255}},
      {"more codes than fit", -3, {0xFF, 0xC4, 1, 0x13, 0}, {3}},
      {"length below 2", -3, {0xFF, 0xDB}, {0, 1}},
  };
  for (const Case& c : cases) {
    Bytes file = small_file();
    const auto place = find(file, c.place);
    std::copy(c.changed.begin(), c.changed.end(), place + static_cast<long>(c.place.size()));
    EXPECT_EQ(decode(file).status.raw(), c.answer) << c.name;
  }
  Bytes lossless = small_file();
  find(lossless, sof)[1] = 0xC3;  // skipped, so that there is no frame
  EXPECT_EQ(decode(lossless).status.raw(), -3);
}

// Files of every kind, small enough to be cut everywhere.
std::vector<Bytes> small_files() {
  std::vector<Bytes> files;
  for (const LayoutCase& layout : kLayouts) {
    const int interval = static_cast<int>(files.size()) % 3;
    files.push_back(jpeg_file(picture_of(18, 17, layout, interval, 11)));
  }
  return files;
}

TEST(JpegDamage, CutAnywhereGivesAStatusOrTheFirstRows) {
  for (const Bytes& file : small_files()) {
    const auto whole = decode(file).sink.image();
    const bool streamed = std::count(file.begin(), file.end(), 0xDA) == 1;
    for (std::size_t size = 0; size < file.size(); ++size) {
      const Decoded decoded = decode(Bytes(file.begin(), file.begin() + static_cast<long>(size)));
      if (decoded.sink.headers == 0) {
        EXPECT_LT(decoded.status.raw(), 0);
        continue;
      }
      EXPECT_EQ(decoded.status, kOk);
      int y = 0;
      for (const CollectedRow& row : decoded.sink.rows) {
        ASSERT_EQ(row.y, y);
        if (streamed) {
          EXPECT_EQ(row.bytes, whole[static_cast<std::size_t>(y)]) << size;
        }
        ++y;
      }
    }
  }
}

TEST(JpegDamage, RestartMarkersAreFoundBehindGarbage) {
  Bytes file = jpeg_file(picture_of(24, 8, kLayouts[0], 1, 2));
  const auto expected = decode(file).sink.image();
  const auto marker = find(file, {0xFF, 0xD0});
  for (const int garbage : {0, 1, 50, 51}) {
    const Bytes damaged = joined({Bytes(file.begin(), marker),
                                  Bytes(static_cast<std::size_t>(garbage), 0x55),
                                  {0xFF, 0xD6},  // any number will do
                                  Bytes(marker + 2, file.end())});
    const Decoded decoded = decode(damaged);
    EXPECT_EQ(decoded.status, kOk);
    EXPECT_EQ(decoded.sink.image(), garbage <= 50 ? expected : std::vector<Bytes>(8)) << garbage;
  }
}

TEST(JpegDecode, EveryRefusedAllocationIsReported) {
  for (const Bytes& file : small_files()) {
    EXPECT_EQ(with_every_refusal([&] { return decode(file).status.raw(); }), 0);
  }
}

TEST(JpegDecode, InsideABitmapItIsTheSamePicture) {
  const Bytes jpeg = small_file();
  BmpFields fields{.width = 5, .height = 5, .bits = 24, .compression = 0x4745504A};
  fields.pixels = jpeg;
  const Bytes bmp = bmp_file(fields);
  const CollectingSink sink = decoded(formats::decode_bmp, bmp);
  EXPECT_EQ(sink.headers, 1);
  EXPECT_EQ(sink.image(), decode(jpeg).sink.image());
}

}  // namespace
}  // namespace tq::test
