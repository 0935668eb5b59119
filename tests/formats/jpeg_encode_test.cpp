// JPEG files as they are written: every byte of the headers, the end of the data, what the settings
// do, failures; and the picture, against a plain model of the encoder.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "core/memory.h"
#include "formats/jpeg/encoder_settings.h"
#include "formats/jpeg/jpeg.h"
#include "tests/support/bmp_file.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/jpeg_file.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

using formats::encode_jpeg;
using formats::set_jpeg_quality;
using formats::set_jpeg_sampling;

HeaderBlock image_of(int width, int height, int bits) {
  HeaderBlock image = dib_header(width, height, bits);
  if (bits == 8) {
    const auto palette = grey_palette(256);
    std::copy(palette.begin(), palette.end(), image.palette.begin());
  }
  return image;
}

// Smooth rows with an edge.
std::vector<Bytes> rows_of(const HeaderBlock& image) {
  const BitmapInfoHeader& h = image.header;
  std::vector<Bytes> rows;
  for (int y = 0; y < h.biHeight; ++y) {
    Bytes row(static_cast<std::size_t>(row_bytes(h.biWidth, h.biBitCount)));
    const int bytes = h.biBitCount / 8;
    for (int x = 0; x < h.biWidth * bytes; ++x) {
      const int pixel = x / bytes, channel = x % bytes;
      const double wave = std::sin(pixel * 0.2 + channel) * 50 + std::cos(y * 0.15 - channel) * 40;
      row[static_cast<std::size_t>(x)] =
          static_cast<std::uint8_t>(128 + wave + (pixel + y > 30 ? 30 : -30));
    }
    rows.push_back(row);
  }
  return rows;
}

struct Written {
  Status status = kOk;
  Bytes file;
  std::vector<std::int32_t> counts;  // of the writes
};
Written save(HeaderBlock image, const std::vector<Bytes>& rows) {
  GivenRows given(rows);
  MemoryFile file;
  Written written;
  written.status = encode_jpeg({MemoryFile::kHandle, &image, given.supplier()});
  written.file = file.bytes;
  written.counts = file.counts;
  EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  return written;
}
Written save(const HeaderBlock& image) {
  return save(image, rows_of(image));
}

std::vector<Bytes> read_back(const Bytes& file) {
  CollectingSink sink;
  const MemoryFile stream(file);
  EXPECT_EQ(formats::decode_jpeg({MemoryFile::kHandle, 0, sink.sink()}), kOk);
  return sink.image();
}

// The content of the first segment with this marker that begins with these bytes.
Bytes segment(const Bytes& file, int marker, const Bytes& begins = {}) {
  for (std::size_t at = 2; at + 4 <= file.size();) {
    const std::size_t length = std::size_t{file[at + 2]} * 256 + file[at + 3];
    const Bytes content(file.begin() + static_cast<long>(at) + 4,
                        file.begin() + static_cast<long>(at + 2 + length));
    if (file[at + 1] == marker && std::equal(begins.begin(), begins.end(), content.begin())) {
      return content;
    }
    if (file[at + 1] == 0xDA) break;
    at += 2 + length;
  }
  return {};
}

std::uint32_t fnv(const Bytes& bytes) {
  std::uint32_t hash = 0x811C9DC5;
  for (const std::uint8_t byte : bytes) hash = (hash ^ byte) * 0x01000193;
  return hash;
}

// Everything up to SOS, of tables only the beginning.
Bytes outline(const Bytes& file) {
  Bytes out{0xFF, 0xD8};
  for (std::size_t at = 2; file[at + 1] != 0xDA;) {
    const std::size_t length = std::size_t{file[at + 2]} * 256 + file[at + 3];
    const int here = file[at + 1];
    const bool table = here == 0xDB || here == 0xC4;
    const auto from = file.begin() + static_cast<long>(at);
    out.insert(out.end(), from, from + (table ? 5 : static_cast<long>(2 + length)));
    at += 2 + length;
  }
  return out;
}

// As the process starts; no setter brings this state back.
const formats::JpegEncoderSettings kUnset = formats::jpeg_encoder_settings();

TEST(JpegEncodeHeader, EverySegmentIsInItsPlace) {
  const Bytes app0 = {0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 0, 1, 0, 96, 0, 96, 0, 0};
  const Bytes dqt = {0xFF, 0xDB, 0, 132, 0};
  const Bytes dht[] = {{0xFF, 0xC4, 0, 31, 0x00},
                       {0xFF, 0xC4, 0, 181, 0x10},
                       {0xFF, 0xC4, 0, 31, 0x01},
                       {0xFF, 0xC4, 0, 181, 0x11}};
  const Bytes soi = {0xFF, 0xD8};
  formats::jpeg_encoder_settings() = kUnset;
  const Bytes colour = save(image_of(300, 5, 24)).file;
  EXPECT_EQ(outline(colour),
            joined({soi,
                    app0,
                    dqt,
                    {0xFF, 0xC0, 0, 17, 8, 0, 5, 1, 44, 3, 1, 0x21, 0, 2, 0x11, 1, 3, 0x11, 1},
                    dht[0],
                    dht[1],
                    dht[2],
                    dht[3]}));
  EXPECT_EQ(segment(colour, 0xDA), (Bytes{3, 1, 0, 2, 0x11, 3, 0x11, 0, 63, 0}));
  const Bytes four = save(image_of(300, 5, 32)).file;
  EXPECT_EQ(outline(four),
            joined({soi,
                    {0xFF, 0xEE, 0, 14, 'A', 'd', 'o', 'b', 'e', 1, 0, 0x40, 0, 0, 0, 2},
                    app0,
                    dqt,
                    {0xFF, 0xC0, 0, 20,   8, 0, 5,    1, 44, 4,    1,
                     0x11, 0,    2, 0x11, 1, 3, 0x11, 1, 4,  0x11, 1},
                    dht[0],
                    dht[1],
                    dht[2],
                    dht[3]}));
  EXPECT_EQ(segment(four, 0xDA), (Bytes{4, 1, 0, 2, 0x11, 3, 0x11, 4, 0x11, 0, 63, 0}));
  const Bytes grey = save(image_of(300, 5, 8)).file;
  EXPECT_EQ(
      outline(grey),
      joined({soi, app0, dqt, {0xFF, 0xC0, 0, 11, 8, 0, 5, 1, 44, 1, 1, 0x11, 0}, dht[0], dht[1]}));
  EXPECT_EQ(segment(grey, 0xDA), (Bytes{1, 1, 0, 0, 63, 0}));
  // The typical tables, by hashes of what another encoder writes.
  EXPECT_EQ(fnv(segment(colour, 0xC4, {0x00})), 0x8C4FCF27u);
  EXPECT_EQ(fnv(segment(colour, 0xC4, {0x01})), 0x3DCEACBCu);
  EXPECT_EQ(fnv(segment(colour, 0xC4, {0x10})), 0x6569BE85u);
  EXPECT_EQ(fnv(segment(colour, 0xC4, {0x11})), 0xAA231D1Cu);
}

TEST(JpegEncodeHeader, ResolutionIsTakenAsItStands) {
  const std::int32_t cases[][4] = {
      {0, 0, 96, 96}, {0, 300, 96, 96}, {300, 0, 300, 0}, {72, 100, 72, 100}};
  for (const auto& [x, y, x_written, y_written] : cases) {
    HeaderBlock image = image_of(8, 8, 8);
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
      {1, {255, 255, 255, 255}, {255, 255, 255, 255}},
      {25, {32, 32, 36, 198}, {34, 132, 132, 198}},
      {50, {16, 16, 18, 99}, {17, 66, 66, 99}},
      {75, {8, 8, 9, 50}, {9, 33, 33, 50}},
      {99, {1, 1, 1, 2}, {1, 1, 1, 2}},
      {100, {1, 1, 1, 1}, {1, 1, 1, 1}},
      {1000, {1, 1, 1, 1}, {1, 1, 1, 1}},
  };
  const auto check = [&](const Case& c) {
    const Bytes tables = segment(save(image_of(8, 8, 24)).file, 0xDB);
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
  const auto factors = [] { return segment(save(image_of(8, 8, 24)).file, 0xC0).at(7); };
  set_jpeg_sampling(2, 2);
  EXPECT_EQ(factors(), 0x22);
  EXPECT_EQ(segment(save(image_of(8, 8, 32)).file, 0xC0).at(7), 0x12);
  EXPECT_EQ(factors(), 0x12);
  EXPECT_EQ(save(image_of(8, 8, 8)).status, kOk);
  EXPECT_EQ(factors(), 0x11);
}

TEST(JpegEncode, WhatCannotBeWrittenIsRefusedBeforeAnythingIs) {
  set_jpeg_sampling(2, 1);
  for (const int bits : {1, 4, 16}) {
    const Written written = save(image_of(8, 8, bits));
    EXPECT_EQ(written.status.raw(), -21);
    EXPECT_TRUE(written.file.empty());
  }
  const std::int32_t cases[][3] = {{0, 1, -7}, {1, -1, -7}, {5, 1, -7}, {1, 5, -7},
                                   {4, 2, 0},  {2, 4, 0},   {3, 3, -7}, {4, 4, -7}};
  for (const auto& [h, v, answer] : cases) {
    set_jpeg_sampling(h, v);
    const Written written = save(image_of(8, 8, 24));
    EXPECT_EQ(written.status.raw(), answer) << h << " " << v;
    EXPECT_EQ(written.file.empty(), answer != 0);
  }
  set_jpeg_sampling(1, 1);
  EXPECT_EQ(save(image_of(65536, 1, 24)).status.raw(), -7);
  EXPECT_EQ(save(image_of(65535, 1, 24)).status, kOk);
  EXPECT_EQ(save(image_of(1, 65535, 24)).status, kOk);
}

TEST(JpegEncode, DataEndInWholeWordsOfZeroBits) {
  // One flat grey block: DC of size 0 is 00, EOB 1010; ten more bits are zeros.
  Written written = save(image_of(8, 8, 8), std::vector<Bytes>(8, Bytes(8, 128)));
  const std::size_t size = written.file.size();
  EXPECT_EQ(Bytes(written.file.begin() + static_cast<long>(size) - 4, written.file.end()),
            (Bytes{0b00101000, 0, 0xFF, 0xD9}));
  // Stuffed bytes do not count for the padding.
  for (int width = 8; width <= 160; width += 8) {
    HeaderBlock image = image_of(width, 16, 8);
    written = save(image);
    const Bytes marker = {0xFF, 0xDA};
    const auto sos =
        std::search(written.file.begin(), written.file.end(), marker.begin(), marker.end());
    int bytes = 0;
    for (auto at = sos + 10; at != written.file.end() - 2; ++at, ++bytes) {
      if (*at == 0xFF) ++at;
    }
    EXPECT_EQ(bytes % 2, 0) << width;
    EXPECT_EQ(read_back(written.file).size(), 16u);
  }
}

TEST(JpegEncode, DataAreWrittenInPiecesOf20000Bytes) {
  set_jpeg_quality(100);
  set_jpeg_sampling(1, 1);
  HeaderBlock image = image_of(300, 200, 24);
  std::vector<Bytes> rows = rows_of(image);
  unsigned noise = 1;
  for (Bytes& row : rows) {
    for (std::uint8_t& byte : row)
      byte = static_cast<std::uint8_t>((noise = noise * 69069 + 1) >> 24);
  }
  const Written written = save(image, rows);
  ASSERT_GT(written.counts.size(), 5u);
  for (std::size_t i = 1; i + 2 < written.counts.size(); ++i) EXPECT_EQ(written.counts[i], 20000);
  EXPECT_LT(written.counts[written.counts.size() - 2], 20000);
  EXPECT_EQ(written.counts.back(), 2);
  EXPECT_EQ(read_back(written.file).size(), 200u);
}

double psnr(const std::vector<Bytes>& a, const std::vector<Bytes>& b) {
  double sum = 0, count = 0;
  for (std::size_t y = 0; y < a.size(); ++y) {
    for (std::size_t x = 0; x < a[y].size(); ++x, ++count) sum += std::pow(a[y][x] - b[y][x], 2);
  }
  return 10 * std::log10(255.0 * 255.0 / (sum / count + 1e-9));
}

// Quantised coefficients of a picture, in real numbers up to the quantisation.
JpegPicture model_of(const std::vector<Bytes>& rows, int width, int height, int h, int v,
                     const Bytes& tables) {
  JpegPicture picture{.width = width, .height = height};
  picture.components = {{h, v, 0}, {1, 1, 1}, {1, 1, 1}};
  random_coefficients(picture, 1);
  for (int t = 0; t < 2; ++t) {
    std::vector<int> steps(64);
    int i = 0;
    for (int sum = 0; sum < 15; ++sum) {
      for (int k = 0; k <= sum; ++k) {
        const int row = sum % 2 == 0 ? sum - k : k, column = sum - row;
        if (row < 8 && column < 8) steps[8 * row + column] = tables[65 * t + 1 + i++];
      }
    }
    picture.quantisers.push_back(steps);
  }
  for (int c = 0; c < 3; ++c) {
    JpegComponent& component = picture.components[c];
    const int dx = c == 0 ? 1 : h, dy = c == 0 ? 1 : v;
    const int columns = (width + dx - 1) / dx, lines = (height + dy - 1) / dy;
    for (int b = 0; b < component.columns * component.rows; ++b) {
      double samples[64];
      for (int i = 0; i < 64; ++i) {
        const int x = std::min(b % component.columns * 8 + i % 8, columns - 1) * dx;
        const int y = std::min(b / component.columns * 8 + i / 8, lines - 1) * dy;
        const std::uint8_t* p = &rows[y][3 * x];
        const double weights[3][4] = {
            {120, 603, 308, -128}, {512, -339, -178, 0}, {-83, -429, 512, 0}};
        const double* w = weights[c];
        samples[i] = std::floor((w[0] * p[0] + w[1] * p[1] + w[2] * p[2]) / 1024) + w[3];
      }
      for (int k = 0; k < 64; ++k) {
        double sum = 0;
        for (int i = 0; i < 64; ++i) {
          sum += samples[i] * std::cos((2 * (i % 8) + 1) * (k % 8) * std::numbers::pi / 16) *
                 std::cos((2 * (i / 8) + 1) * (k / 8) * std::numbers::pi / 16) / 4;
        }
        if (k % 8 == 0) sum /= std::numbers::sqrt2;
        if (k / 8 == 0) sum /= std::numbers::sqrt2;
        const int step = picture.quantisers[component.quantiser][k];
        const double rounding = step == 1 ? 0 : 0.5;
        const int amount = static_cast<int>(std::abs(sum) / step + rounding);
        component.blocks[b][k] = sum < 0 ? -amount : amount;
      }
    }
  }
  return picture;
}

TEST(JpegEncode, PicturesAreAsGoodAsTheModels) {
  for (const auto& [h, v] : {std::pair{1, 1}, {2, 1}, {2, 2}, {1, 2}, {4, 2}, {3, 1}}) {
    for (const int quality : {20, 75, 90}) {
      const HeaderBlock image = image_of(45, 37, 24);
      const std::vector<Bytes> rows = rows_of(image);
      set_jpeg_quality(quality);
      set_jpeg_sampling(h, v);
      const Bytes file = save(image, rows).file;
      // Both are read by the same decoder, which has a test of its own.
      const JpegPicture model = model_of(rows, 45, 37, h, v, segment(file, 0xDB));
      const double found = psnr(rows, read_back(file));
      EXPECT_NEAR(found, psnr(rows, read_back(jpeg_file(model))), 0.3) << h << v << " " << quality;
      // Compared with each other they are far closer than either is to the picture.
      EXPECT_GT(psnr(read_back(jpeg_file(model)), read_back(file)), found + 3) << h << v << quality;
    }
  }
}

TEST(JpegEncode, PalettesAndFourComponentsComeBack) {
  set_jpeg_quality(95);
  set_jpeg_sampling(1, 1);
  // An inverted grey palette is looked up, not taken for the identity.
  HeaderBlock image = image_of(16, 16, 8);
  std::reverse(image.palette.begin(), image.palette.end());
  const std::vector<Bytes> rows = rows_of(image);
  std::vector<Bytes> back = read_back(save(image, rows).file);
  for (int i = 0; i < 256; ++i) EXPECT_NEAR(back[i / 16][i % 16], 255 - rows[i / 16][i % 16], 8);
  for (Rgb& entry : image.palette) entry = {static_cast<std::uint8_t>(entry.blue / 2), 80, 100, 0};
  back = read_back(save(image, rows).file);
  ASSERT_EQ(back[0].size(), 48u);
  for (int i = 0; i < 256; ++i) {
    EXPECT_NEAR(back[i / 16][3 * (i % 16)], (255 - rows[i / 16][i % 16]) / 2, 12);
    EXPECT_NEAR(back[i / 16][3 * (i % 16) + 2], 100, 12);
  }
  const HeaderBlock four = image_of(16, 16, 32);
  back = read_back(save(four).file);
  for (int i = 0; i < 16 * 64; ++i) {
    EXPECT_NEAR(back[i / 64][i % 64], rows_of(four)[i / 64][i % 64], 24) << i;
  }
}

TEST(JpegEncode, FailuresAreReportedAndLeakNothing) {
  set_jpeg_sampling(2, 1);
  const HeaderBlock image = image_of(40, 40, 24);
  HeaderBlock header = image;
  GivenRows given(rows_of(image));
  Bytes block(20000);
  const formats::EncodeRequest request{kMemoryStream, &header, given.supplier()};
  open_memory_stream(block.data(), block.size());
  ASSERT_EQ(encode_jpeg(request), kOk);
  for (auto room = static_cast<std::size_t>(memory_position()); room-- > 0;) {
    open_memory_stream(block.data(), room);
    ASSERT_EQ(encode_jpeg(request).raw(), -9) << room;
  }
  open_memory_stream(block.data(), block.size());
  given.failed_row = 20;
  given.failure = -777;
  EXPECT_EQ(encode_jpeg(request).raw(), -777);
  given.failed_row = -1;
  bool out_of_memory = true;
  for (int count = 0; out_of_memory; ++count) {
    memory_probe::refuse_after(count);
    open_memory_stream(block.data(), block.size());
    const Status status = encode_jpeg(request);
    out_of_memory = memory_probe::refused();
    memory_probe::refuse_after(-1);
    EXPECT_EQ(status.raw(), out_of_memory ? -1 : 0);
    EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  }
}

}  // namespace
}  // namespace tq::test
