// What all codecs owe to the two ends: decoding begins where it is told, and the answers of sinks
// and suppliers end it at once.
#include <gtest/gtest.h>

#include "formats/bmp/bmp.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pcx/pcx.h"
#include "formats/png/png.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

constexpr int kSide = 20;

TEST(Callbacks, CodecsBeginWhereTheyAreToldAndEndWithTheAnswersTheyGet) {
  const struct {
    formats::Encoder encode;
    formats::Decoder decode;
    std::int32_t good;  // the decoder's status
    std::int32_t variant = 0;
  } codecs[] = {{formats::encode_bmp, formats::decode_bmp, 0},
                {formats::encode_bmp, formats::decode_bmp, 0, formats::kBmpBareDib},
                {formats::encode_bmp, formats::decode_bmp, 0, formats::kBmpRunLengths},
                {formats::encode_pcx, formats::decode_pcx, 1},
                {jpeg::encode_jpeg, jpeg::decode_jpeg, 0},
                {formats::encode_png, formats::decode_png, 0}};
  const struct {
    std::int32_t offset, page;
    std::int32_t header, row;
    std::size_t rows;
  } cases[] = {
      {50, -1, 1, 0, kSide}, {0, 3, 1, 0, kSide}, {50, -1, -18, 0, 0}, {50, -1, 1, -777, 3}};
  for (const auto& codec : codecs) {
    if (codec.encode == formats::encode_png && !formats::png_available().ok()) continue;
    HeaderBlock header = dib_header(kSide, kSide, 8);
    const formats::FileType type{.code = 0, .name = "", .title = "", .variant = codec.variant};
    MemoryFile stream(std::vector<std::uint8_t>(50, 0xEE));
    stream.position = 50;
    GivenRows rows(std::vector(kSide, std::vector<std::uint8_t>(kSide, 7)));
    EXPECT_GE(codec.encode({MemoryFile::kHandle, &header, rows.supplier(), &type}).raw(), 0);
    for (const auto& c : cases) {
      stream.position = 50;
      CollectingSink sink;
      sink.header_answer = c.header;
      sink.row_answer = c.row;
      sink.answered_row = 2;
      const std::int32_t status =
          codec.decode({MemoryFile::kHandle, c.offset, sink.sink(), c.page}).raw();
      EXPECT_EQ(status, c.header < 0 ? c.header : c.row < 0 ? c.row : codec.good);
      EXPECT_EQ(sink.rows.size(), c.rows);
    }
    rows.failed_row = 4;
    rows.failure = -55;
    MemoryFile failed;
    EXPECT_EQ(codec.encode({MemoryFile::kHandle, &header, rows.supplier(), &type}).raw(), -55);
  }
}

}  // namespace
}  // namespace tq::test
