// What is written for each depth, byte by byte; that it reads back; and failures on the way.
#include <gmock/gmock.h>

#include "core/memory.h"
#include "formats/pcx/pcx.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/memory_file.h"
#include "tests/support/pcx_file.h"

namespace tq::test {
namespace {

using formats::decode_pcx;
using formats::encode_pcx;
using Bytes = std::vector<std::uint8_t>;
using Image = std::vector<Bytes>;
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

Bytes encode(HeaderBlock header, const Image& rows, std::int32_t status = 0) {
  MemoryFile file;
  GivenRows given(rows);
  EXPECT_EQ(encode_pcx({MemoryFile::kHandle, &header, given.supplier()}).raw(), status);
  return file.bytes;
}

Bytes data_of(const Bytes& file) {
  return {file.begin() + 128, file.end()};
}

TEST(PcxEncode, HeadersOfEveryDepth) {
  struct Case {
    int bits, width, version, file_bits, planes, bytes_per_line, palette_information;
  };
  const Case cases[] = {
      {1, 9, 5, 1, 1, 2, 1}, {4, 9, 2, 1, 4, 2, 1}, {8, 9, 5, 8, 1, 9, 1}, {24, 9, 5, 8, 3, 9, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bits);
    const auto bytes = static_cast<std::size_t>(row_bytes(c.width, c.bits));
    PcxFields fields{
        {c.width, 1, c.file_bits, c.planes, c.bytes_per_line}, c.version, c.palette_information};
    for (std::uint8_t i = 0; c.bits == 4 && i < 16; ++i) {
      fields.colours.push_back(
          {static_cast<std::uint8_t>(i + 2), static_cast<std::uint8_t>(i + 1), i});
    }
    Bytes expected = pcx_file(fields);
    store_le16(&expected[4], 0);  // corners begin at 0
    store_le16(&expected[6], 0);
    store_le16(&expected[8], static_cast<std::uint16_t>(c.width - 1));
    store_le16(&expected[10], 0);
    Bytes file = encode(header_of(c.width, 1, c.bits), {Bytes(bytes)});
    file.resize(128);
    EXPECT_THAT(file, ElementsAreArray(expected));
  }
}

TEST(PcxEncode, LinesAreCodedPlaneByPlane) {
  Bytes palette{12};
  for (int i = 0; i < 256; ++i) {
    for (const int channel : {2, 1, 0}) palette.push_back(static_cast<std::uint8_t>(i + channel));
  }
  const auto with_palette = [&](Bytes data) {
    data.insert(data.end(), palette.begin(), palette.end());
    return data;
  };
  // Large values are runs of one; runs end at 63 and with the line.
  EXPECT_EQ(data_of(encode(header_of(5, 2, 8),
                           {{1, 2, 2, 0xC0, 0xBF, 9, 9, 9}, {0xFF, 0xFF, 0xFF, 3, 3, 3, 9, 9}})),
            with_palette({1, 0xC2, 2, 0xC1, 0xC0, 0xBF, 0xC3, 0xFF, 0xC2, 3}));
  EXPECT_EQ(data_of(encode(header_of(130, 1, 8), {Bytes(132, 5)})),
            with_palette({0xFF, 5, 0xFF, 5, 0xC4, 5}));
  EXPECT_EQ(data_of(encode(header_of(9, 1, 1), {{0x12, 0x80, 0x80, 0x80}})), (Bytes{0x12, 0x80}));
  // Pixels 1, 2, 4, 8, 0, 0, 0, 0, 15.
  EXPECT_EQ(data_of(encode(header_of(9, 1, 4), {{0x12, 0x48, 0, 0, 0xF0, 0, 0, 0}})),
            (Bytes{0xC2, 0x80, 0x40, 0x80, 0x20, 0x80, 0x10, 0x80}));
  EXPECT_EQ(data_of(encode(header_of(2, 1, 24), {{5, 3, 1, 6, 4, 1, 9, 9}})),
            (Bytes{0xC2, 1, 3, 4, 5, 6}));
}

TEST(PcxEncode, WhatIsWrittenReadsBack) {
  std::uint32_t seed = 7;
  for (const int bits : {1, 4, 8, 24}) {
    for (const int width : {1, 2, 7, 8, 9, 15, 31, 64, 65, 127, 203}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
      Image rows(5, Bytes(static_cast<std::size_t>(row_bytes(width, bits))));
      for (Bytes& row : rows) {
        std::uint8_t value = 0;
        for (int i = 0; i < (width * bits + 7) / 8; ++i) {
          seed = seed * 1664525 + 1013904223;
          if ((seed >> 30) != 0)
            value = static_cast<std::uint8_t>(seed >> 16);  // sometimes repeats
          row[i] = value;
        }
        if (bits == 4 && width % 2 != 0) row[width / 2] &= 0xF0;
      }
      Bytes file = encode(header_of(width, 5, bits), rows);
      CollectingSink sink;
      open_memory_stream(file.data(), file.size());
      EXPECT_EQ(decode_pcx({kMemoryStream, 0, sink.sink()}).raw(), 1);
      EXPECT_EQ(sink.image(), rows);
      if (bits == 8) {
        EXPECT_EQ(sink.header.palette, header_of(1, 1, 8).palette);
      }
    }
  }
}

TEST(PcxEncode, RefusesWhatTheFormatCannotHold) {
  const struct {
    std::int32_t width, height;
    int bits;
    std::int32_t status;
  } cases[] = {
      {2, 2, 16, -21}, {2, 2, 32, -21}, {65536, 1, 1, -7}, {1, 65536, 1, -7}, {65535, 1, 1, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.height << " x " << c.bits);
    const Image rows(1, Bytes(static_cast<std::size_t>(row_bytes(c.width, c.bits))));
    EXPECT_EQ(encode(header_of(c.width, c.height, c.bits), rows, c.status).empty(), c.status != 0);
  }
}

TEST(PcxEncode, FailuresAreTheResult) {
  HeaderBlock header = header_of(3, 2, 8);
  GivenRows given({{1, 2, 3, 0}, {4, 5, 6, 0}});
  const auto save = [&] { return encode_pcx({kMemoryStream, &header, given.supplier()}).raw(); };
  for (std::size_t room = 0; room <= 128 + 6 + 769; ++room) {  // writes come up short
    Bytes block(room);
    open_memory_stream(block.data(), block.size());
    EXPECT_EQ(save(), room == 128 + 6 + 769 ? 0 : -9) << room;
  }
  Bytes block(2000);
  open_memory_stream(block.data(), block.size());
  given.failed_row = 1;
  given.failure = -55;
  EXPECT_EQ(save(), -55);
  given.failed_row = -1;
  std::int32_t result = -1;
  for (std::int64_t allowed = 0; result < 0 && allowed < 20; ++allowed) {
    memory_probe::refuse_after(allowed);
    result = save();
    EXPECT_EQ(result, memory_probe::refused() ? -1 : 0) << allowed;
    EXPECT_EQ(memory_probe::tracked_blocks(), 0);
    memory_probe::refuse_after(-1);
  }
}

}  // namespace
}  // namespace tq::test
