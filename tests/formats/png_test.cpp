// PNG files written and read back, cut off, in memory that ends with them.
// What the pixels have to be is compared with another program's reading, see tests/peers.
#include <gmock/gmock.h>

#include <algorithm>

#include "formats/png/png.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/guarded_block.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

using formats::decode_png;
using formats::encode_png;
using Bytes = std::vector<std::uint8_t>;
using Image = std::vector<Bytes>;

// 5 x 5 pixels of grey, 8 bits, interlaced: pixel (x, y) is 10 y + x.
const Bytes kInterlaced = {
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44,
    0x52, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x05, 0x08, 0x00, 0x00, 0x00, 0x01, 0xdf,
    0x03, 0x49, 0xaf, 0x00, 0x00, 0x00, 0x2a, 0x49, 0x44, 0x41, 0x54, 0x78, 0xda, 0x63, 0x64,
    0x60, 0x62, 0x61, 0xd0, 0xd0, 0x61, 0x66, 0x62, 0xd6, 0x64, 0x14, 0x61, 0x62, 0x62, 0x60,
    0x64, 0x66, 0x10, 0x15, 0x67, 0xd0, 0xd4, 0x66, 0xe6, 0x62, 0x63, 0x67, 0xe7, 0x60, 0x11,
    0x61, 0x04, 0x02, 0x00, 0x1b, 0xff, 0x01, 0x6f, 0x38, 0x8e, 0x35, 0xda, 0x00, 0x00, 0x00,
    0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

HeaderBlock header_for(std::int32_t width, std::int32_t height, int bits) {
  HeaderBlock block = dib_header(width, height, bits);
  block.header.biXPelsPerMeter = 300;
  block.header.biYPelsPerMeter = 72;
  if (bits == 32) block.header.biCompression = kRgb32;
  for (int i = 0; i < 256; ++i) {
    block.palette[i] = {static_cast<std::uint8_t>(255 - i), static_cast<std::uint8_t>(i), 9, 0};
  }
  if (bits == 1) block.palette[0] = {0, 0, 0, 0}, block.palette[1] = {255, 255, 255, 0};
  return block;
}

Image noise(std::int32_t width, std::int32_t height, int bits) {
  std::uint32_t seed = 3;
  Image rows(static_cast<std::size_t>(height),
             Bytes(static_cast<std::size_t>(row_bytes(width, bits))));
  for (Bytes& row : rows) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(width) * bits / 8; ++i) {
      seed = seed * 1664525 + 1013904223;
      row[i] = static_cast<std::uint8_t>(seed >> 24);
    }
  }
  return rows;
}

Bytes encode(HeaderBlock header, const Image& rows, std::int32_t status = 0) {
  MemoryFile file;
  GivenRows given(rows);
  EXPECT_EQ(encode_png({MemoryFile::kHandle, &header, given.supplier()}).raw(), status);
  return file.bytes;
}

CollectingSink decode(Bytes file, std::int32_t status = 0) {
  CollectingSink sink;
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(decode_png({kMemoryStream, 0, sink.sink()}).raw(), status);
  return sink;
}

TEST(Png, WhatIsWrittenReadsBack) {
  for (const int bits : {1, 4, 8, 16, 24}) {
    for (const int width : {1, 2, 7, 8, 9, 33}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
      HeaderBlock header = header_for(width, 4, bits);
      if (bits <= 8 && width > 8) header.header.biClrUsed = kTransparent | 1;
      const Image rows = noise(width, 4, bits);
      const CollectingSink sink = decode(encode(header, rows));
      EXPECT_EQ(sink.image(), rows);
      EXPECT_EQ(sink.header.header.biBitCount, bits);
      EXPECT_EQ(sink.header.header.biClrUsed, header.header.biClrUsed);
      EXPECT_EQ(sink.header.header.biXPelsPerMeter, 300);
      EXPECT_EQ(sink.header.header.biYPelsPerMeter, 72);
      for (int i = 0; bits <= 8 && i < 1 << bits; ++i) {
        EXPECT_EQ(sink.header.palette[i], header.palette[i]);
      }
    }
  }
  const Image rows{{1, 2, 3, 0, 4, 5, 6, 0}}, colours{{1, 2, 3, 4, 5, 6, 0, 0}};
  HeaderBlock header = header_for(2, 1, 32);
  EXPECT_EQ(decode(encode(header, rows)).image(), colours);
  header.header.biCompression = 0;  // cyan, magenta, yellow, black
  EXPECT_TRUE(encode(header, rows, -21).empty());
}

// Read from memory that does not say where it ends.
TEST(Png, PassesMakeOnePicture) {
  const GuardedBlock block(kInterlaced);
  CollectingSink sink;
  open_memory_stream(block.data());
  EXPECT_EQ(decode_png({kMemoryStream, 0, sink.sink()}).raw(), 0);
  ASSERT_EQ(sink.rows.size(), 5u);
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 5; ++x) EXPECT_EQ(sink.rows[y].bytes[x], 10 * y + x);
  }
}

TEST(Png, CutOffFileKeepsWhatItHas) {
  const Image rows = noise(33, 40, 24);
  for (const Bytes& file : {encode(header_for(33, 40, 24), rows), kInterlaced}) {
    std::size_t most = 0;
    for (std::size_t length = 0; length < file.size(); length += 7) {
      SCOPED_TRACE(length);
      Bytes cut(file.begin(), file.begin() + length);
      CollectingSink sink;
      open_memory_stream(cut.data(), cut.size());
      const std::int32_t status = decode_png({kMemoryStream, 0, sink.sink()}).raw();
      EXPECT_EQ(status, sink.headers == 0 ? -12 : 0);
      EXPECT_GE(sink.rows.size(), most);
      most = sink.rows.size();
      for (std::size_t y = 0; y < most && file != kInterlaced; ++y)
        EXPECT_EQ(sink.rows[y].bytes, rows[y]);
    }
    EXPECT_GT(most, 4u);
  }
}

TEST(Png, BeginsWhereItIsTold) {
  Bytes file = kInterlaced;
  file.insert(file.begin(), 50, 0xEE);
  MemoryFile stream(file);
  for (const std::uint32_t argument : {50u, 0x80000003u}) {  // a page: where the stream is
    stream.position = 50;
    CollectingSink sink;
    EXPECT_EQ(decode_png({MemoryFile::kHandle, argument, sink.sink()}).raw(), 0);
    EXPECT_EQ(sink.rows.size(), 5u);
  }
}

TEST(Png, CallbackAnswersEndIt) {
  Bytes file = kInterlaced;
  for (const auto& [header, row] : {std::pair{-18, 0}, {1, -77}}) {
    CollectingSink sink;
    sink.header_answer = header;
    sink.row_answer = row;
    sink.answered_row = 2;
    open_memory_stream(file.data(), file.size());
    EXPECT_EQ(decode_png({kMemoryStream, 0, sink.sink()}).raw(), std::min(header, row));
  }
  HeaderBlock header = header_for(9, 9, 8);
  GivenRows given(noise(9, 9, 8));
  given.failed_row = 4;
  given.failure = -55;
  file.resize(5000);
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(encode_png({kMemoryStream, &header, given.supplier()}).raw(), -55);
}

}  // namespace
}  // namespace tq::test
