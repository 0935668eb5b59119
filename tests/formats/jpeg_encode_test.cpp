// What the settings do to the headers of JPEG files, and what is refused. The files themselves are
// in jpeg_digest_test.cpp.
#include <gtest/gtest.h>

#include "core/context.h"
#include "core/memory.h"
#include "formats/jpeg/jpeg.h"
#include "tests/support/codec_runs.h"

namespace tq::test {
namespace {

using jpeg::set_jpeg_quality;
using jpeg::set_jpeg_sampling;

struct Written {
  Status status = kOk;
  Bytes file;
};
Written save(HeaderBlock image) {
  const BitmapInfoHeader& header = image.header;
  const auto bytes = static_cast<std::size_t>(row_bytes(header.biWidth, header.biBitCount));
  GivenRows given(std::vector(static_cast<std::size_t>(header.biHeight), Bytes(bytes, 128)));
  const MemoryFile file;
  const Status status = jpeg::encode_jpeg({MemoryFile::kHandle, &image, given.supplier()});
  EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  return {status, file.bytes};
}

// The content of the first segment with this marker.
Bytes segment(const Bytes& file, int marker) {
  std::size_t at = 2;
  while (file.at(at + 1) != marker) at += 2 + file.at(at + 2) * 256u + file.at(at + 3);
  return {file.begin() + static_cast<long>(at) + 4, file.end()};
}

// Luminance, chrominance: the entries (0,0), (2,2), (4,0), (7,7).
std::vector<int> table_entries() {
  const Bytes tables = segment(save(grey_image(8, 8, 24)).file, 0xDB);
  std::vector<int> entries;
  for (const std::size_t table : {0, 65}) {
    for (const std::size_t zigzag_place : {0, 12, 10, 63}) {
      entries.push_back(tables.at(table + 1 + zigzag_place));
    }
  }
  return entries;
}

int factors(int bits) {
  return segment(save(grey_image(8, 8, bits)).file, 0xC0).at(7);
}

TEST(JpegEncode, BeforeAnySettingTwoChrominanceStepsAreOthers) {
  context().settings.jpeg = {};  // as the process starts; no setter brings this state back
  EXPECT_EQ(factors(24), 0x21);
  EXPECT_EQ(table_entries(), (std::vector{16, 16, 18, 99, 17, 56, 99, 99}));
  set_jpeg_quality(50);
  EXPECT_EQ(table_entries(), (std::vector{16, 16, 18, 99, 17, 66, 66, 99}));
  set_jpeg_quality(-5);
  EXPECT_EQ(table_entries(), std::vector(8, 255));
  set_jpeg_quality(1000);
  EXPECT_EQ(table_entries(), std::vector(8, 1));
}

TEST(JpegEncode, ResolutionIsTakenAsItStands) {
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

TEST(JpegEncode, SomeImagesChangeTheSamplingForGood) {
  set_jpeg_sampling(2, 2);
  EXPECT_EQ(factors(24), 0x22);
  EXPECT_EQ(factors(32), 0x12);
  EXPECT_EQ(factors(24), 0x12);
  EXPECT_EQ(save(grey_image(8, 8, 8)).status, kOk);
  EXPECT_EQ(factors(24), 0x11);
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

}  // namespace
}  // namespace tq::test
