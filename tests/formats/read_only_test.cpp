// MacPaint, MSP, GEM and CUT files byte by byte: their codes, rows that end early or late, headers
// that cannot be. What other programs write of them is in the corpus.
#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"

namespace tq::test {
namespace {

using simple::decode_cut;
using simple::decode_gem;
using simple::decode_macpaint;
using simple::decode_msp;

// The rows without what follows their first `bytes` bytes.
std::vector<Bytes> starts(const CollectingSink& sink, std::ptrdiff_t bytes) {
  std::vector<Bytes> all;
  for (const CollectedRow& row : sink.rows) {
    all.emplace_back(row.bytes.begin(), row.bytes.begin() + bytes);
  }
  return all;
}

Bytes macpaint_file(bool wrapped, const Bytes& data) {
  Bytes file(wrapped ? 128 : 0);
  if (wrapped) std::ranges::copy(std::string_view("PNTG"), file.begin() + 65);
  file.resize(file.size() + 512);
  file.insert(file.end(), data.begin(), data.end());
  return file;
}

// A run and bytes that go on behind the row's end; a row that the file does not hold whole.
TEST(MacPaint, RowsArePackedByThemselves) {
  Bytes data = {0x80, 0xB7, 0xFF, 0x90, 0x0F, 0x7F};
  data.resize(data.size() + 128, 0xAA);
  data.insert(data.end(), {1, 0xAA, 0x99});
  for (const bool wrapped : {false, true}) {
    const CollectingSink sink = decoded(decode_macpaint, macpaint_file(wrapped, data));
    EXPECT_EQ(sink.header.header.biXPelsPerMeter, 72);
    EXPECT_EQ(starts(sink, 3),
              (std::vector<Bytes>{{0, 0, 0}, {240, 240, 240}, {85, 85, 85}, {85, 102, 255}}));
  }
  decoded(decode_macpaint, Bytes(511), -12);
  decoded(decode_macpaint, Bytes(127), -12);
}

// Version 1 or 2, with the checksum that makes it right.
Bytes msp_file(int version, int width, int height, const Bytes& rest) {
  Bytes file = {'D', 'a', 'n', 'M', byte(width), byte(width >> 8), byte(height), byte(height >> 8)};
  if (version == 2) std::ranges::copy(std::string_view("LinS"), file.begin());
  file.resize(32);
  for (std::size_t i = 0; i < 24; ++i) file[24 + i % 2] = byte(file[24 + i % 2] ^ file[i]);
  file.insert(file.end(), rest.begin(), rest.end());
  return file;
}

TEST(Msp, OneIsWhiteAndRowsEndWithTheirCodes) {
  EXPECT_EQ(starts(decoded(decode_msp, msp_file(1, 9, 2, {0x12, 0x80, 0x34})), 2),
            (std::vector<Bytes>{{0x12, 0x80}, {0x34, 0}}));
  // Without codes; a run; bytes; a run and bytes that are cut at the row's end; what is left white.
  const Bytes coded = {0, 0, 3, 0, 4, 0, 5, 0, 1, 0, 2,   0, 9,   0,  // lengths of rows
                       0, 3, 7, 3, 1, 2, 3, 0, 9, 8, 200, 1, 200, 2, 5};
  EXPECT_EQ(starts(decoded(decode_msp, msp_file(2, 24, 7, coded)), 3),
            (std::vector<Bytes>{
                {255, 255, 255}, {7, 7, 7}, {1, 2, 3}, {8, 8, 8}, {255, 255, 255}, {5, 255, 255}}));
  EXPECT_TRUE(decoded(decode_msp, msp_file(2, 65535, 65535, {1, 0})).rows.empty());
  Bytes wrong = msp_file(1, 9, 2, {});
  wrong[25] ^= 1;
  decoded(decode_msp, wrong, -3);
  wrong = msp_file(1, 9, 2, {});
  wrong[0] = 'L', wrong[24] ^= 'D' ^ 'L';
  decoded(decode_msp, wrong, -3);
  decoded(decode_msp, msp_file(1, 0, 2, {}), -3);
  decoded(decode_msp, Bytes(31), -12);
}

// Header words, planes, bytes of a pattern, micrometres of a pixel, width, height.
Bytes gem_file(const std::vector<int>& fields, const Bytes& rest) {
  Bytes file = {0, 1};
  for (const int field : fields) file.insert(file.end(), {byte(field >> 8), byte(field)});
  file.insert(file.end(), rest.begin(), rest.end());
  return file;
}

TEST(Gem, PatternsBytesRunsAndRowsForSeveral) {
  const Bytes coded = {0x00, 0x00, 0xFF, 2, 0x00, 2, 0x12,
                       0x34,                             // a pattern twice; the row stands for two
                       0x80, 5,    1,    2, 3,    4, 5,  // bytes that are cut
                       0x82, 0x02,                       // black, white
                       0x00, 0x00, 0xFF, 0, 0x8F,        // for itself alone
                       0x80, 3,    9};                   // cut off
  const CollectingSink sink = decoded(decode_gem, gem_file({9, 1, 2, 85, 170, 32, 7, 0}, coded));
  EXPECT_EQ(sink.header.header.biXPelsPerMeter, 299);
  EXPECT_EQ(sink.header.header.biYPelsPerMeter, 149);
  EXPECT_EQ(starts(sink, 4), (std::vector<Bytes>{{0xED, 0xCB, 0xED, 0xCB},
                                                 {0xED, 0xCB, 0xED, 0xCB},
                                                 {254, 253, 252, 251},
                                                 {0, 0, 255, 255},
                                                 {0, 0, 0, 0},
                                                 {0xF6, 255, 255, 255}}));
  const auto status = [](const std::vector<int>& fields, int expected) {
    decoded(decode_gem, gem_file(fields, Bytes(20)), expected);
  };
  status({7, 1, 2, 85, 85, 8, 8}, -3);
  status({8, 0, 2, 85, 85, 8, 8}, -3);
  status({8, 4, 2, 85, 85, 8, 8}, -7);
  status({8, 1, 0, 85, 85, 8, 8}, -3);
  status({8, 1, 9, 85, 85, 8, 8}, -3);
  status({8, 1, 2, 85, 85, 8, 0}, -3);
  decoded(decode_gem, Bytes(15), -12);
}

TEST(Cut, TheLengthOfARowLeadsToTheNext) {
  const Bytes rows = {4, 0, 2,    1, 2, 0,     // ends early
                      5, 0, 0x89, 7, 1, 8, 0,  // a run that is cut
                      3, 0, 0,    1, 1,        // bytes behind the end
                      2, 0, 9,    3,           // bytes that the row does not have
                      1, 0, 0x83,              // a run without its byte
                      9, 0, 1,    6};          // cut off
  const Bytes header = {3, 0, 7, 0, 0, 0};
  Bytes file = header;
  file.insert(file.end(), rows.begin(), rows.end());
  const CollectingSink sink = decoded(decode_cut, file);
  EXPECT_EQ(starts(sink, 3),
            (std::vector<Bytes>{{1, 2, 0}, {7, 7, 7}, {0, 0, 0}, {3, 0, 0}, {0, 0, 0}, {6, 0, 0}}));
  EXPECT_EQ(sink.header.palette[200], (Rgb{200, 200, 200, 0}));
  decoded(decode_cut, Bytes(5), -12);
}

}  // namespace
}  // namespace tq::test
