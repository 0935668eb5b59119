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

Options with(std::initializer_list<std::int32_t> numbers) {
  Options options;
  for (const std::int32_t number : numbers) options.set(number, 1);
  return options;
}

// Slopes with edges and some noise; palettes are colours.
HeaderBlock image_of(int width, int height, int bits, std::vector<Bytes>& rows) {
  HeaderBlock image = grey_image(width, height, bits);
  rows.assign(height, Bytes(static_cast<std::size_t>(row_bytes(width, bits))));
  std::uint32_t random = 7;
  for (int y = 0; y < height; ++y) {
    for (std::ptrdiff_t i = 0; i < std::ssize(rows[y]); ++i) {
      random = random * 1664525 + 1013904223;
      rows[y][i] =
          byte(i / (bits / 8) * 3 + y * (i % 3 + 2) + (i / 40 + y / 9) % 2 * 90 + (random >> 27));
    }
  }
  return image;
}

Bytes encoded_with(const Options& options, HeaderBlock image, const std::vector<Bytes>& rows,
                   bool cmyk = true) {
  GivenRows given(rows);
  const MemoryFile file;
  EXPECT_EQ(jpeg::encode_jpeg({.stream = MemoryFile::kHandle,
                               .image = &image,
                               .rows = given.supplier(),
                               .cmyk = cmyk,
                               .options = options,
                               .resolution = resolution_of(image.header)}),
            kOk);
  EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  return file.bytes;
}

// The coding of a file says nothing about its picture: for all sizes in which MCUs end in blocks that
// have no pixel, all depths, and coefficients from none to the largest.
TEST(JpegEncode, EveryCodingShowsTheSamePicture) {
  constexpr int kExact = IMG_OPTION_JPEG_WRITING, kOptimised = IMG_OPTION_JPEG_OPTIMISE,
                kProgressive = IMG_OPTION_JPEG_PROGRESSIVE;
  const struct {
    int width, height, bits, h, v, quality;
  } cases[] = {{1, 1, 24, 2, 2, 75},    {17, 33, 24, 2, 2, 75}, {200, 150, 24, 2, 1, 100},
               {131, 67, 24, 1, 1, 30}, {57, 40, 24, 4, 2, 90}, {61, 45, 24, 1, 2, 90},
               {99, 70, 8, 2, 2, 1},    {70, 51, 32, 2, 2, 85}, {640, 300, 24, 2, 2, 10}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.height << ", " << c.bits << " bits");
    std::vector<Bytes> rows;
    const HeaderBlock image = image_of(c.width, c.height, c.bits, rows);
    for (const bool exact : {false, true}) {
      const auto file = [&](std::initializer_list<std::int32_t> numbers) {
        Options options = with(numbers);
        options.set(kExact, exact ? 1 : 0);
        set_jpeg_sampling(c.h, c.v);
        set_jpeg_quality(c.quality);
        return encoded_with(options, image, rows);
      };
      const Bytes plain = file({}), optimised = file({kOptimised}),
                  progressive = file({kProgressive});
      const auto picture = decoded(jpeg::decode_jpeg, plain).image();
      EXPECT_EQ(decoded(jpeg::decode_jpeg, optimised).image(), picture);
      EXPECT_EQ(decoded(jpeg::decode_jpeg, progressive).image(), picture);
      EXPECT_LE(optimised.size(), plain.size());
      if (c.width > 100) {
        EXPECT_LT(progressive.size(), plain.size());
      }
    }
  }
}

TEST(JpegEncode, ExactFilesAreWhatOthersExpect) {
  context().settings.jpeg = {};
  const Options exact = with({IMG_OPTION_JPEG_WRITING});
  std::vector<Bytes> rows;
  const auto file = [&](int bits, bool cmyk = true, std::int32_t x = 0) {
    HeaderBlock image = image_of(24, 24, bits, rows);
    image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = x;
    return encoded_with(exact, image, rows, cmyk);
  };
  set_jpeg_sampling(2, 2);
  EXPECT_EQ(segment(file(24), 0xDB)[1], 8);  // the first step of quality 75
  // Components with their factors and tables.
  const auto frame = [](const Bytes& jpeg) {
    const Bytes content = segment(jpeg, 0xC0);
    return Bytes(content.begin() + 5, content.begin() + 6 + 3 * content[5]);
  };
  EXPECT_EQ(segment(file(8), 0xC0)[7], 0x11);
  EXPECT_EQ(frame(file(24)), (Bytes{3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1}));
  EXPECT_EQ(frame(file(32, false)), (Bytes{3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1}));
  EXPECT_EQ(frame(file(32)), (Bytes{4, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1, 4, 0x22, 0}));
  EXPECT_EQ(factors(24), 0x22);  // as they were set
  const auto density = [](const Bytes& jpeg) {
    const Bytes app0 = segment(jpeg, 0xE0);
    return Bytes(app0.begin() + 7, app0.begin() + 12);
  };
  EXPECT_EQ(density(file(24)), (Bytes{0, 0, 1, 0, 1}));
  EXPECT_EQ(density(file(24, true, 300)), (Bytes{1, 1, 44, 1, 44}));
}

}  // namespace
}  // namespace tq::test
