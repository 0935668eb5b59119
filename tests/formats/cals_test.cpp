// CALS files as their writers differ: the order and the look of records, orientations, damage. Whole
// pictures of other programs are in the corpus, and those written here in tests/peers.
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"

namespace tq::test {
namespace {

using simple::decode_cals;

const std::string kSize = "rpelcnt: 000008,000003";

Bytes cals_file(const std::vector<std::string>& records, const Bytes& data) {
  Bytes file;
  for (std::string record : records) {
    record.resize(128, ' ');
    file.insert(file.end(), record.begin(), record.end());
  }
  file.resize(2048, ' ');
  file.insert(file.end(), data.begin(), data.end());
  return file;
}

// Rows of four white and four black pixels: horizontal mode once, then no change.
const Bytes kHalves = {0b00110110, 0b11111100};

TEST(Cals, RecordsStandAnywhereAndLookAnyHow) {
  const CollectingSink sink =
      decoded(decode_cals, cals_file({"srcdocid: rpelcnt: 9,9", "\r\n rdensty:  0300\r\n",
                                      "rtype:1", "  rpelcnt:8 ,  0003 dots"},
                                     kHalves));
  EXPECT_EQ(sink.header.header.biXPelsPerMeter, 300);
  EXPECT_EQ(sink.header.header.biYPelsPerMeter, 300);
  EXPECT_EQ(sink.header.header.biHeight, 3);
  EXPECT_EQ(sink.header.palette[1], (Rgb{255, 255, 255, 0}));
  ASSERT_EQ(sink.rows.size(), 3u);
  EXPECT_EQ(sink.rows[2].bytes[2], 4);  // where it becomes black
  for (const char* density : {"rdensty: NONE", "rdensty: 65536", "rdensty: 0"}) {
    EXPECT_EQ(
        decoded(decode_cals, cals_file({kSize, density}, kHalves)).header.header.biXPelsPerMeter,
        0);
  }
}

TEST(Cals, DamageKeepsTheRowsBefore) {
  EXPECT_EQ(decoded(decode_cals, cals_file({kSize}, {0b00110110, 0b11000000, 0, 0, 0})).rows.size(),
            1u);
  EXPECT_EQ(decoded(decode_cals, cals_file({kSize}, {})).rows.size(), 0u);
  const auto status = [](const std::vector<std::string>& records, int expected) {
    decoded(decode_cals, cals_file(records, kHalves), expected);
  };
  status({"srcdocid: NONE"}, -3);
  status({"rpelcnt: 8"}, -3);
  status({"rpelcnt: 8,0"}, -3);
  status({"rpelcnt: NONE,3"}, -3);
  status({"xrpelcnt: 8,3", "rpelcntx: 8,3"}, -3);
  status({kSize, "rtype: 2"}, -7);
  status({"rpelcnt: 99999999999999999999,3"}, -1);
  decoded(decode_cals, Bytes(2047, ' '), -12);
}

TEST(Cals, OrientationsHaveTheNumbersOfTiff) {
  const auto orientation = [](const std::string& record) {
    Bytes file = cals_file({record}, {});
    open_memory_stream(file.data(), file.size());
    return simple::find_cals_orientation(kMemoryStream, {}).raw();
  };
  EXPECT_EQ(orientation("rorient: 000,270"), 1);
  EXPECT_EQ(orientation("rorient: 180,090"), 2);
  EXPECT_EQ(orientation("rorient: 180,270"), 3);
  EXPECT_EQ(orientation("rorient: 0,90"), 4);
  EXPECT_EQ(orientation("rorient: 270,090"), 5);
  EXPECT_EQ(orientation("rorient: 270,270"), 6);
  EXPECT_EQ(orientation("rorient: 090,090"), 7);
  EXPECT_EQ(orientation("rorient: 090,270"), 8);
  EXPECT_EQ(orientation("rorient: 045,270"), 1);
  EXPECT_EQ(orientation("rtype: 1"), 1);
}

TEST(Cals, HeadersHaveAPlaceForEveryField) {
  HeaderBlock image = grey_image(8, 2, 1);
  const auto file = [&](int dpi) {
    image.header.biXPelsPerMeter = dpi;
    const Bytes bytes = encoded(simple::encode_cals, image, {{0xF0, 0, 0, 0}, {0xF0, 0, 0, 0}});
    return std::string(bytes.begin(), bytes.end());
  };
  const std::string text = file(0);
  EXPECT_EQ(text.find("srcdocid: NONE  "), 0u);
  EXPECT_EQ(text.find("rpelcnt: 000008,000002 "), 8u * 128);
  EXPECT_EQ(text.find("rdensty: 0200 "), 9u * 128);
  EXPECT_EQ(file(30000).find("rdensty: 9999 "), 9u * 128);
  EXPECT_EQ(text.substr(2048), std::string("\x36\xF0\x01\x00\x10", 5));
  image = grey_image(1'000'000, 1, 1);
  EXPECT_EQ(simple::can_encode_cals({.stream{}, .image = &image, .rows{}}).raw(), -7);
  image = grey_image(1, 1, 8);
  EXPECT_EQ(simple::can_encode_cals({.stream{}, .image = &image, .rows{}}).raw(), -21);
}

}  // namespace
}  // namespace tq::test
