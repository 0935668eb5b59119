// What is written for each depth, byte by byte; that it reads back; what is refused.
#include <gmock/gmock.h>

#include "core/context.h"
#include "formats/pcx/pcx.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"
#include "tests/support/pcx_file.h"

namespace tq::test {
namespace {

using pcx::decode_pcx;
using pcx::encode_pcx;
using testing::ElementsAreArray;

HeaderBlock header_of(std::int32_t width, std::int32_t height, int bits) {
  HeaderBlock block = dib_header(width, height, bits);
  block.header.biXPelsPerMeter = 300;
  block.header.biYPelsPerMeter = 150;
  for (int i = 0; i < 256; ++i) {
    block.palette[i] = {static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(i + 1),
                        static_cast<std::uint8_t>(i + 2), 0};
  }
  return block;
}

TEST(PcxEncode, FilesOfEveryDepthByteByByte) {
  std::vector<std::array<std::uint8_t, 3>> map;
  Bytes palette{12};
  for (int i = 0; i < 256; ++i) {
    for (const int channel : {2, 1, 0}) palette.push_back(static_cast<std::uint8_t>(i + channel));
    if (i < 16) map.push_back({palette[3 * i + 1], palette[3 * i + 2], palette[3 * i + 3]});
  }
  const struct {
    int bits;
    Rows rows;
    PcxFields file;
  } cases[] = {
      // Large values are runs of one; runs end at 63 and with the line.
      {8,
       {{1, 2, 2, 0xC0, 0xBF, 9, 9, 9}, {0xFF, 0xFF, 0xFF, 3, 3, 3, 9, 9}},
       {.size = {5, 2, 8, 1, 5},
        .data = {1, 0xC2, 2, 0xC1, 0xC0, 0xBF, 0xC3, 0xFF, 0xC2, 3},
        .tail = palette}},
      {8,
       {Bytes(132, 5)},
       {.size = {130, 1, 8, 1, 130}, .data = {0xFF, 5, 0xFF, 5, 0xC4, 5}, .tail = palette}},
      {1, {{0x12, 0x80, 0x80, 0x80}}, {.size = {9, 1, 1, 1, 2}, .data = {0x12, 0x80}}},
      // Pixels 1, 2, 4, 8, 0, 0, 0, 0, 15.
      {4,
       {{0x12, 0x48, 0, 0, 0xF0, 0, 0, 0}},
       {.size = {9, 1, 1, 4, 2},
        .version = 2,
        .colours = map,
        .data = {0xC2, 0x80, 0x40, 0x80, 0x20, 0x80, 0x10, 0x80}}},
      {24,
       {{5, 3, 1, 6, 4, 1, 9, 9}},
       {.size = {2, 1, 8, 3, 2}, .palette_information = 0, .data = {0xC2, 1, 3, 4, 5, 6}}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bits);
    PcxFields fields = c.file;
    fields.corner = {0, 0};
    const HeaderBlock header = header_of(fields.size.width, fields.size.height, c.bits);
    EXPECT_THAT(encoded(encode_pcx, header, c.rows), ElementsAreArray(pcx_file(fields)));
  }
}

// From noise to hardly anything but runs, which cross from chunk to chunk.
TEST(PcxEncode, ReadsBackAtEveryWidth) {
  Random random(7);
  for (const int bits : {1, 4, 8, 24}) {
    for (int width = 1; width <= 260; width += width < 70 ? 1 : 19) {
      SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
      Rows rows(5, Bytes(static_cast<std::size_t>(row_bytes(width, bits))));
      std::uint8_t value = 0;
      for (int y = 0; y < 5; ++y) {
        for (int i = 0; i < (width * bits + 7) / 8; ++i) {
          if (!random.chance(24 * y)) value = byte(random.between(0, 255));
          rows[y][i] = value;
        }
        if (bits == 4 && width % 2 != 0) rows[y][width / 2] &= 0xF0;
      }
      context().settings.read_budget = width < 70 ? width + 1 : 30000;
      const HeaderBlock header = header_of(width, 5, bits);
      const CollectingSink sink = decoded(decode_pcx, encoded(encode_pcx, header, rows), 1);
      ASSERT_EQ(sink.image(), rows);
      ASSERT_TRUE(bits != 8 || sink.header.palette == header.palette);
    }
  }
}

}  // namespace
}  // namespace tq::test
