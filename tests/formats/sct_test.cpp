// Continuous tone pictures with headers that no program here writes.
#include <cstring>

#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "pixels/rows.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using simple::decode_sct;
using simple::encode_sct;

struct Fields {
  const char* kind = "CT";
  int unit = 1, separations = 3, mask = 7;
  const char *height = "+1.000000E-02", *width = "+1.000000E-02";
  const char *rows = "+00000000001", *columns = "+00000000003";
};

Bytes sct_file(const Fields& fields, const Bytes& data) {
  Bytes file(2048);
  const auto put = [&](const char* text, std::size_t at) {
    std::memcpy(&file[at], text, std::strlen(text));
  };
  put(fields.kind, 80);
  file[1024] = byte(fields.unit);
  file[1025] = byte(fields.separations);
  file[1027] = byte(fields.mask);
  put(fields.height, 1028);
  put(fields.width, 1042);
  put(fields.rows, 1056);
  put(fields.columns, 1068);
  return joined({file, data});
}

TEST(Sct, SeparationsAndSizes) {
  const Bytes data = {1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 0};
  const auto row = [&](const Fields& fields) {
    return decoded(decode_sct, sct_file(fields, data)).rows.at(0).bytes;
  };
  EXPECT_EQ(row({}), (Bytes{7, 4, 1, 8, 5, 2, 9, 6, 3, 0, 0, 0}));
  EXPECT_EQ(row({.separations = 1, .mask = 8}), (Bytes{1, 2, 3, 0}));
  EXPECT_EQ(row({.separations = 4, .mask = 15}), (Bytes{1, 4, 7, 10, 2, 5, 8, 11, 3, 6, 9, 12}));

  const auto dots = [&](int unit, const char* width) {
    return decoded(decode_sct, sct_file({.unit = unit, .width = width}, data))
        .header.header.biXPelsPerMeter;
  };
  EXPECT_EQ(dots(1, "+1.000000E-02"), 300);
  EXPECT_EQ(dots(0, " 2.54E-01"), 300);
  EXPECT_EQ(dots(1, "0.5"), 6);
  EXPECT_EQ(dots(1, "30E+3"), 0);
  for (const char* none : {"", "-1", "x", "+0.000000E+00", "1E-99", "1E-9999999999", "1,5"}) {
    const int x = dots(1, none);
    EXPECT_EQ(x, none[0] == '1' && none[1] == ',' ? 3 : 0) << none;
  }
}

TEST(Sct, RefusesWhatCannotBe) {
  const auto status = [](const Fields& fields, int expected) {
    decoded(decode_sct, sct_file(fields, Bytes(12)), expected);
  };
  status({}, 0);
  status({.kind = "CX"}, -3);
  status({.kind = "LW"}, -7);
  status({.separations = 2, .mask = 3}, -7);
  status({.separations = 3, .mask = 14}, -7);
  status({.rows = "+00000000000"}, -3);
  status({.columns = "-00000000003"}, -3);
  status({.columns = "999999999999"}, -3);
  status({.rows = "+02000000000", .columns = "+02000000000"}, -1);
  decoded(decode_sct, Bytes(2047), -12);
  EXPECT_EQ(decoded(decode_sct, sct_file({.rows = "2"}, Bytes(12))).rows.size(), 1u);
}

TEST(Sct, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    for (const bool coloured : {false, true}) {
      HeaderBlock image = grey_image(5, 2, bits);
      image.header.biXPelsPerMeter = 72;
      image.header.biYPelsPerMeter = 1200;
      if (coloured) image.palette[1] = {1, 2, 3, 0};
      std::vector<Bytes> rows(2, Bytes(std::size_t(row_bytes(5, bits))));
      for (std::size_t i = 0; i < rows[1].size(); ++i) rows[1][i] = byte(i * 37);
      GivenRows given(rows);
      const MemoryFile file;
      const bool inks = bits == 32 && coloured;
      ASSERT_EQ(encode_sct({.stream = MemoryFile::kHandle,
                            .image = &image,
                            .rows = given.supplier(),
                            .cmyk = inks}),
                kOk);
      const CollectingSink back = decoded(decode_sct, file.bytes);
      const BitmapInfoHeader& header = back.header.header;
      EXPECT_EQ(header.biXPelsPerMeter, 72);
      EXPECT_EQ(header.biYPelsPerMeter, 1200);
      EXPECT_EQ(header.biBitCount, inks ? 32 : bits > 8 || coloured ? 24 : 8);
      std::vector<Rgb> wanted(5), got(5);
      tq::pixels::row_to_colours(rows[1], {5, bits, inks, image.palette}, wanted);
      tq::pixels::row_to_colours(back.rows.at(1).bytes,
                                 {5, header.biBitCount, inks, back.header.palette}, got);
      for (Rgb& colour : wanted) colour.reserved = 0;
      for (Rgb& colour : got) colour.reserved = 0;
      EXPECT_EQ(got, wanted) << bits;
    }
  }
}

}  // namespace
}  // namespace tq::test
