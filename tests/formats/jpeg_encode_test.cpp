// JPEG files as they are written: every byte of the headers, what the settings
// do, failures, pictures that come back. tests/peers compares them with another encoder's.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>

#include "core/context.h"
#include "formats/jpeg/jpeg.h"
#include "tests/support/codec_runs.h"

namespace tq::test {
namespace {

using jpeg::decode_jpeg;
using jpeg::encode_jpeg;
using jpeg::set_jpeg_quality;
using jpeg::set_jpeg_sampling;

// Smooth rows with an edge.
std::vector<Bytes> rows_of(const HeaderBlock& image) {
  const int bytes = image.header.biBitCount / 8;
  const auto size = static_cast<std::size_t>(row_bytes(image.header.biWidth, 8 * bytes));
  std::vector<Bytes> rows(static_cast<std::size_t>(image.header.biHeight), Bytes(size));
  for (int y = 0; y < image.header.biHeight; ++y) {
    for (int i = 0; i < image.header.biWidth * bytes; ++i) {
      const int x = i / bytes, channel = i % bytes;
      const double wave = std::sin(x * 0.2 + channel) * 50 + std::cos(y * 0.15 - channel) * 40;
      rows[y][i] = static_cast<std::uint8_t>(128 + wave + (x + y > 30 ? 30 : -30));
    }
  }
  return rows;
}

struct Written {
  Status status = kOk;
  Bytes file;
};
Written save(HeaderBlock image, const std::vector<Bytes>& rows) {
  GivenRows given(rows);
  MemoryFile file;
  const Status status = encode_jpeg({MemoryFile::kHandle, &image, given.supplier()});
  EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  return {status, file.bytes};
}
Written save(const HeaderBlock& image) {
  return save(image, rows_of(image));
}

struct Segment {
  int marker;
  Bytes content;
};
// Up to SOS.
std::vector<Segment> segments(const Bytes& file) {
  std::vector<Segment> found;
  for (std::size_t at = 2; found.empty() || found.back().marker != 0xDA;) {
    const std::size_t length = std::size_t{file.at(at + 2)} * 256 + file[at + 3];
    const auto from = file.begin() + static_cast<long>(at);
    found.push_back({file[at + 1], {from + 4, from + 2 + static_cast<long>(length)}});
    at += 2 + length;
  }
  return found;
}

// The content of the first one with this marker.
Bytes segment(const Bytes& file, int marker) {
  for (const Segment& each : segments(file)) {
    if (each.marker == marker) return each.content;
  }
  return {};
}

TEST(JpegEncodeHeader, EverySegmentIsInItsPlace) {
  struct Case {
    int bits;
    Bytes markers, frame, scan;
  };
  const Case cases[] = {
      {24,
       {0xE0, 0xDB, 0xC0, 0xC4, 0xC4, 0xC4, 0xC4, 0xDA},
       {8, 0, 5, 1, 44, 3, 1, 0x21, 0, 2, 0x11, 1, 3, 0x11, 1},
       {3, 1, 0, 2, 0x11, 3, 0x11, 0, 63, 0}},
      {32,
       {0xEE, 0xE0, 0xDB, 0xC0, 0xC4, 0xC4, 0xC4, 0xC4, 0xDA},
       {8, 0, 5, 1, 44, 4, 1, 0x11, 0, 2, 0x11, 1, 3, 0x11, 1, 4, 0x11, 1},
       {4, 1, 0, 2, 0x11, 3, 0x11, 4, 0x11, 0, 63, 0}},
      {8,
       {0xE0, 0xDB, 0xC0, 0xC4, 0xC4, 0xDA},
       {8, 0, 5, 1, 44, 1, 1, 0x11, 0},
       {1, 1, 0, 0, 63, 0}},
  };
  context().settings.jpeg = {};  // as the process starts; no setter brings this state back
  for (const Case& c : cases) {
    const Bytes file = save(grey_image(300, 5, c.bits)).file;
    Bytes markers;
    for (const Segment& each : segments(file)) {
      markers.push_back(static_cast<std::uint8_t>(each.marker));
    }
    EXPECT_EQ(markers, c.markers);
    EXPECT_EQ(segment(file, 0xC0), c.frame);
    EXPECT_EQ(segment(file, 0xDA), c.scan);
    EXPECT_EQ(segment(file, 0xE0), (Bytes{'J', 'F', 'I', 'F', 0, 1, 0, 1, 0, 96, 0, 96, 0, 0}));
    if (c.bits == 32) {
      EXPECT_EQ(segment(file, 0xEE), (Bytes{'A', 'd', 'o', 'b', 'e', 1, 0, 0x40, 0, 0, 0, 2}));
    }
  }
}

TEST(JpegEncodeHeader, ResolutionIsTakenAsItStands) {
  const std::int32_t cases[][4] = {
      {0, 0, 96, 96}, {0, 300, 96, 96}, {300, 0, 300, 0}, {72, 100, 72, 100}};
  for (const auto& [x, y, x_written, y_written] : cases) {
    HeaderBlock image = grey_image(8, 8, 8);
    image.header.biXPelsPerMeter = x;
    image.header.biYPelsPerMeter = y;
    const Bytes app0 = segment(save(image).file, 0xE0);
    EXPECT_EQ(app0[8] * 256 + app0[9], x_written);
    EXPECT_EQ(app0[10] * 256 + app0[11], y_written);
  }
}

TEST(JpegEncodeHeader, QualityScalesTheBaseTables) {
  // Zigzag places of the row-major entries (0,0), (2,2), (4,0), (7,7).
  const int places[] = {0, 12, 10, 63};
  struct Case {
    int quality;
    int luminance[4], chrominance[4];
  };
  const Case cases[] = {
      {-5, {255, 255, 255, 255}, {255, 255, 255, 255}},
      {25, {32, 32, 36, 198}, {34, 132, 132, 198}},
      {50, {16, 16, 18, 99}, {17, 66, 66, 99}},
      {75, {8, 8, 9, 50}, {9, 33, 33, 50}},
      {99, {1, 1, 1, 2}, {1, 1, 1, 2}},
      {1000, {1, 1, 1, 1}, {1, 1, 1, 1}},
  };
  const auto check = [&](const Case& c) {
    const Bytes tables = segment(save(grey_image(8, 8, 24)).file, 0xDB);
    ASSERT_EQ(tables.size(), 130u);
    EXPECT_EQ(tables[65], 1);
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(tables[1 + places[i]], c.luminance[i]) << c.quality;
      EXPECT_EQ(tables[66 + places[i]], c.chrominance[i]) << c.quality;
    }
  };
  // Before any quality is set two chrominance entries are others.
  check({0, {16, 16, 18, 99}, {17, 56, 99, 99}});
  for (const Case& c : cases) {
    set_jpeg_quality(c.quality);
    check(c);
  }
}

TEST(JpegEncode, SomeImagesChangeTheSamplingForGood) {
  const auto factors = [] { return segment(save(grey_image(8, 8, 24)).file, 0xC0).at(7); };
  set_jpeg_sampling(2, 2);
  EXPECT_EQ(factors(), 0x22);
  EXPECT_EQ(segment(save(grey_image(8, 8, 32)).file, 0xC0).at(7), 0x12);
  EXPECT_EQ(factors(), 0x12);
  EXPECT_EQ(save(grey_image(8, 8, 8)).status, kOk);
  EXPECT_EQ(factors(), 0x11);
}

TEST(JpegEncode, SamplingThatCannotBeWrittenIsRefusedBeforeAnythingIs) {
  const std::int32_t cases[][3] = {{0, 1, -7}, {1, -1, -7}, {5, 1, -7}, {1, 5, -7},
                                   {4, 2, 0},  {2, 4, 0},   {3, 3, -7}, {4, 4, -7}};
  for (const auto& [h, v, answer] : cases) {
    set_jpeg_sampling(h, v);
    const Written written = save(grey_image(8, 8, 24));
    EXPECT_EQ(written.status.raw(), answer) << h << " " << v;
    EXPECT_EQ(written.file.empty(), answer != 0);
  }
  set_jpeg_sampling(1, 1);
  EXPECT_EQ(save(grey_image(65535, 1, 24)).status, kOk);
  EXPECT_EQ(save(grey_image(1, 65535, 24)).status, kOk);
}

TEST(JpegEncode, PalettesAndFourComponentsComeBack) {
  set_jpeg_quality(95);
  set_jpeg_sampling(1, 1);
  HeaderBlock image = grey_image(16, 16, 8);
  const std::vector<Bytes> rows = rows_of(image);
  // An inverted grey palette is looked up, not taken for the identity.
  std::reverse(image.palette.begin(), image.palette.end());
  const std::vector<Bytes> greys = decoded(decode_jpeg, save(image).file).image();
  for (Rgb& entry : image.palette) entry.red = 100;
  const std::vector<Bytes> colours = decoded(decode_jpeg, save(image).file).image();
  ASSERT_EQ(colours[0].size(), 48u);
  for (int i = 0; i < 256; ++i) {
    const int x = i % 16, y = i / 16;
    EXPECT_NEAR(greys[y][x], 255 - rows[y][x], 8);
    EXPECT_NEAR(colours[y][3 * x], 255 - rows[y][x], 16);
    EXPECT_NEAR(colours[y][3 * x + 2], 100, 16);
  }
  const std::vector<Bytes> four = rows_of(grey_image(16, 16, 32));
  const std::vector<Bytes> back = decoded(decode_jpeg, save(grey_image(16, 16, 32)).file).image();
  for (int i = 0; i < 16 * 64; ++i) EXPECT_NEAR(back[i / 64][i % 64], four[i / 64][i % 64], 24);
}

}  // namespace
}  // namespace tq::test
