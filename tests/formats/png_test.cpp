// PNG files cut off.
// That what is written reads back, and the pixels, are compared with another program, see
// tests/peers.
#include <gmock/gmock.h>

#include <algorithm>

#include "formats/png/png.h"
#include "tests/support/codec_runs.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using png::decode_png;
using png::encode_png;
using Image = std::vector<Bytes>;

TEST(Png, TransparentEntriesReadBack) {
  for (const int bits : {1, 4, 8}) {
    for (const bool white_first : {false, true}) {
      for (int index = 0; index < 1 << bits; ++index) {
        HeaderBlock image = grey_image(2, 1, bits);
        if (white_first) std::swap(image.palette[0], image.palette[1]);
        image.header.biClrUsed = 0x1000 | index;
        const CollectingSink sink =
            decoded(decode_png, encoded(encode_png, image, {{0x40, 0, 0, 0}}));
        // An image of 1 bit is black and white again.
        const int expected = bits == 1 && white_first ? 1 - index : index;
        EXPECT_EQ(sink.header.header.biClrUsed, 0x1000u | expected) << bits << " bits";
      }
    }
  }
}

TEST(Png, CutOffFileKeepsWhatItHas) {
  Image rows(40, Bytes(100));
  for (int i = 0; i < 40 * 99; ++i) rows[i / 99][i % 99] = static_cast<std::uint8_t>(i * i / 7);
  const Bytes passes = file_content("corpus/png/grey8-passes.png");
  for (const Bytes& file : {encoded(encode_png, dib_header(33, 40, 24), rows), passes}) {
    std::size_t most = 0;
    for (std::size_t length = 0; length < file.size(); length += 7) {
      SCOPED_TRACE(length);
      const MemoryFile cut({file.begin(), file.begin() + length});
      CollectingSink sink;
      const std::int32_t status = decode_png({MemoryFile::kHandle, 0, sink.sink()}).raw();
      EXPECT_EQ(status, sink.headers == 0 ? -12 : 0);
      EXPECT_GE(sink.rows.size(), most);
      most = sink.rows.size();
      for (std::size_t y = 0; y < most && file != passes; ++y)
        EXPECT_EQ(sink.rows[y].bytes, rows[y]);
    }
    EXPECT_GT(most, 4u);
  }
}

// As other programs show it; where that is not asked for, callers count on the status.
TEST(Png, FileWithAWrongByteKeepsTheRowsInFrontOfIt) {
  Image rows(40, Bytes(100));
  for (int i = 0; i < 40 * 99; ++i) rows[i / 99][i % 99] = static_cast<std::uint8_t>(i * i / 7);
  const Bytes passes = file_content("corpus/png/grey8-passes.png");
  Options shown;
  ASSERT_TRUE(shown.set(IMG_OPTION_READING, 1));
  for (Bytes file : {encoded(encode_png, dib_header(33, 40, 24), rows), passes}) {
    file[file.size() * 2 / 3] ^= 0x10;
    const MemoryFile bent(file);
    CollectingSink refused, sink;
    EXPECT_EQ(decode_png({.stream = MemoryFile::kHandle, .sink = refused.sink()}).raw(), -3);
    formats::DecodeNotes notes;
    formats::RowSink noted = sink.sink();
    noted.notes = &notes;
    EXPECT_EQ(decode_png({.stream = MemoryFile::kHandle, .sink = noted, .options = shown}).raw(),
              0);
    EXPECT_EQ(notes.damage, StatusCode::bad_image);
    const std::size_t before = 9;  // of the rows, at least, before anything is wrong
    ASSERT_GT(sink.rows.size(), before);
    for (std::size_t y = 0; y < before && sink.rows[y].bytes.size() == rows[y].size(); ++y) {
      EXPECT_EQ(sink.rows[y].bytes, rows[y]) << y;
    }
  }
}

}  // namespace
}  // namespace tq::test
