// What all codecs of the table owe to the two ends: decoding begins where it is told, and the
// answers of sinks and suppliers end it at once.
#include <gtest/gtest.h>

#include "dispatch/file_types.h"
#include "tests/support/codec_runs.h"
#include "tests/sweep/watched_images.h"

namespace tq::test {
namespace {

constexpr int kSide = 20, kOffset = 50;

TEST(Callbacks, CodecsBeginWhereTheyAreToldAndEndWithTheAnswersTheyGet) {
  const struct {
    std::int32_t offset, page;
    std::int32_t header, row;
    std::size_t rows;
  } cases[] = {{kOffset, -1, 1, 0, kSide},
               {0, 3, 1, 0, kSide},
               {kOffset, -1, -18, 0, 0},
               {kOffset, -1, 1, -77, 3}};
  int codecs = 0;
  const OptionsOn options;
  for (const dispatch::FileType& type : dispatch::file_types()) {
    const dispatch::FileType* const reader =
        type.variant_of < 0 ? &type : dispatch::find_code(type.variant_of);
    if (type.encode == nullptr || reader->decode == nullptr) continue;
    if (type.available != nullptr && type.available().failed()) continue;  // built without it
    SCOPED_TRACE(type.name);
    ++codecs;
    const bool mono = type.write_depths == 1;
    HeaderBlock header = grey_image(kSide, kSide, mono ? 1 : 8);
    GivenRows rows(std::vector(kSide, Bytes(mono ? 4 : kSide, 7)));
    rows.failed_row = 4;
    rows.failure = -55;
    {
      const MemoryFile failed;
      EXPECT_EQ(type.encode({MemoryFile::kHandle, &header, rows.supplier(), &type}).raw(), -55);
    }
    if ((type.traits & formats::kMultiPage) != 0) continue;  // these find pages by themselves
    if (type.code == IMG_TYPE_EPS) continue;                 // a program, which nobody here runs
    rows.failed_row = -1;
    MemoryFile stream(Bytes(kOffset, 0xEE));
    stream.position = kOffset;
    EXPECT_GE(type.encode({MemoryFile::kHandle, &header, rows.supplier(), &type}).raw(), 0);
    for (const auto& c : cases) {
      if (c.page > 0 && reader->count_pages != nullptr) continue;  // there is no fourth one
      stream.position = kOffset;
      CollectingSink sink;
      sink.header_answer = c.header;
      sink.row_answer = c.row;
      sink.answered_row = 2;
      const std::int32_t status =
          reader->decode({MemoryFile::kHandle, c.offset, sink.sink(), c.page}).raw();
      const std::int32_t answer = std::min(c.header, c.row);
      EXPECT_TRUE(answer < 0 ? status == answer : status >= 0) << status;
      EXPECT_EQ(sink.rows.size(), c.rows);
    }
  }
  EXPECT_GE(codecs, 9);
}

}  // namespace
}  // namespace tq::test
