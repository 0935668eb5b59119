// PNG files cut off, in memory that ends with them.
// That what is written reads back, and the pixels, are compared with another program, see
// tests/peers.
#include <gmock/gmock.h>

#include <algorithm>

#include "formats/png/png.h"
#include "tests/support/codec_runs.h"
#include "tests/support/guarded_block.h"

namespace tq::test {
namespace {

using png::decode_png;
using png::encode_png;
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
  Image rows(40, Bytes(100));
  for (int i = 0; i < 40 * 99; ++i) rows[i / 99][i % 99] = static_cast<std::uint8_t>(i * i / 7);
  for (const Bytes& file : {encoded(encode_png, dib_header(33, 40, 24), rows), kInterlaced}) {
    std::size_t most = 0;
    for (std::size_t length = 0; length < file.size(); length += 7) {
      SCOPED_TRACE(length);
      const MemoryFile cut({file.begin(), file.begin() + length});
      CollectingSink sink;
      const std::int32_t status = decode_png({MemoryFile::kHandle, 0, sink.sink()}).raw();
      EXPECT_EQ(status, sink.headers == 0 ? -12 : 0);
      EXPECT_GE(sink.rows.size(), most);
      most = sink.rows.size();
      for (std::size_t y = 0; y < most && file != kInterlaced; ++y)
        EXPECT_EQ(sink.rows[y].bytes, rows[y]);
    }
    EXPECT_GT(most, 4u);
  }
}

}  // namespace
}  // namespace tq::test
