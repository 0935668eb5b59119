// Programs for printers, and previews in such programs. What interpreters make of them is seen in
// tests/peers.
#include <clocale>
#include <string>

#include "formats/simple/simple.h"
#include "formats/wmf/wmf.h"
#include "io/endian.h"
#include "tests/support/codec_runs.h"
#include "tests/support/fax_page.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using namespace std::string_literals;

std::string text_of(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

TEST(PostScript, SizesAreOfTheResolutionInAnyLocale) {
  HeaderBlock image = grey_image(100, 1, 8);
  image.header.biXPelsPerMeter = 300;
  const char* const locale = std::setlocale(LC_ALL, "de_DE.UTF-8");
  const auto written = [&](std::int32_t variant) {
    return text_of(encoded(simple::encode_postscript, image, {Bytes(100)}, variant));
  };
  const std::string place = written(0), page = written(simple::kPage);
  if (locale != nullptr) std::setlocale(LC_ALL, "C");
  EXPECT_NE(place.find("%%BoundingBox: 0 0 24 1\n%%HiResBoundingBox: 0 0 24.0000 1.0000\n"),
            std::string::npos);
  EXPECT_EQ(place.find("showpage"), std::string::npos);
  EXPECT_NE(page.find("<< /PageSize [24.0000 1.0000] >> setpagedevice\n"), std::string::npos);
  EXPECT_NE(page.find("\ngrestore\nshowpage\n%%EOF\n"), std::string::npos);
}

// Whatever the picture, no line is long or begins with what programs for documents take for theirs.
TEST(PostScript, LinesAreDataAndNothingElse) {
  const std::vector<Bytes> rows(40, Bytes(1000, 0x0F));
  for (int level = 0; level < 256; ++level) {
    std::vector<Bytes> noise = rows;
    for (std::size_t i = 0; i < 40'000; ++i)
      noise[i / 1000][i % 1000] = std::uint8_t(i * 7 * level >> 3);
    const std::string text =
        text_of(encoded(simple::encode_postscript, grey_image(1000, 40, 8), noise));
    const std::size_t data = text.find("image\n") + 6;
    for (std::size_t at = data, end = 0; at < text.find("~>"); at = end + 1) {
      end = text.find('\n', at);
      ASSERT_LE(end - at, 74u);
      ASSERT_NE(text.substr(at, 2), "%%");
    }
  }
}

TEST(PostScript, PreviewsAreWindows) {
  const Bytes eps = file_content("corpus/eps/preview.eps");
  const auto status = [&](std::uint32_t at, std::uint32_t bytes, int expected) {
    Bytes file = eps;
    store_le32(&file[20], at);
    store_le32(&file[24], bytes);
    decoded(simple::decode_eps, file, expected);
  };
  const std::uint32_t at = load_le32(&eps[20]);
  status(at, 1000, 0);
  status(0, 0, -7);
  status(29, 1000, -3);
  status(0, 1000, -7);
  status(static_cast<std::uint32_t>(eps.size()), 1000, -3);
  status(0xFFFFFFFF, 1000, -3);
  Bytes again = eps;
  store_le32(&again[20], static_cast<std::uint32_t>(eps.size()));
  again.insert(again.end(), eps.begin(), eps.end());
  decoded(simple::decode_eps, again, -3);
  decoded(simple::decode_eps, Bytes(29, 0xC5), -12);
  // Without that preview the other one counts, with a header that says how large it is or without.
  HeaderBlock image = grey_image(2, 1, 8);
  image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = 96;
  const Bytes placeable = encoded(wmf::encode_wmf, image, {{7, 9, 0, 0}});
  const Bytes bare(placeable.begin() + 22, placeable.end());
  const auto metafile = [&](const Bytes& part, std::uint32_t from, std::uint32_t bytes,
                            int result) {
    Bytes file(eps.begin(), eps.begin() + 20);
    file.resize(32);
    store_le32(&file[12], from);
    store_le32(&file[16], bytes);
    file.insert(file.end(), part.begin(), part.end());
    file.insert(file.end(), 20, 0xFF);
    return decoded(simple::decode_eps, file, result);
  };
  for (const Bytes& part : {placeable, bare}) {
    const CollectingSink sink = metafile(part, 32, static_cast<std::uint32_t>(part.size()), 0);
    EXPECT_EQ(sink.image(), (std::vector<Bytes>{{7, 9, 0, 0}}));
    EXPECT_EQ(sink.header.header.biXPelsPerMeter, 96);
    metafile(part, 32, 17, -12);
    metafile(part, 29, 1000, -3);
    metafile(part, 0x7FFFFFFF, 1000, -3);
  }
  metafile(again, 32, 5000, -3);
}

// Commands up to the rows; rows as they are coded.
TEST(Pcl, RowsWithoutAnythingAtTheEndAreLeftOut) {
  HeaderBlock image = grey_image(16, 5, 1);
  image.header.biXPelsPerMeter = 201;
  const Bytes white = {255, 255, 255, 255}, halves = {0xFF, 0, 255, 255};
  EXPECT_EQ(text_of(encoded(simple::encode_pcl, image, {white, halves, white, white, white})),
            "\x1B"
            "E\x1B&l0O\x1B&l0E\x1B*t300R\x1B*p0x0Y\x1B*r0F\x1B*r16s5T\x1B*r1A\x1B*b2M"
            "\x1B*b0W\x1B*b3W\x01\0\xFF\x1B*rC\x1B"
            "E"s);
  image = grey_image(1, 1, 24);
  image.header.biXPelsPerMeter = 2400;
  const std::string colours = text_of(encoded(simple::encode_pcl, image, {{1, 2, 3, 0}}));
  EXPECT_NE(colours.find("\x1B*t600R"), std::string::npos);
  EXPECT_NE(colours.find(std::string("\x1B*v6W\0\3\x08\x08\x08\x08\x1B*p", 14)), std::string::npos);
  EXPECT_NE(colours.find("\x1B*b4W\x02\x03\x02\x01"), std::string::npos);
}

}  // namespace
}  // namespace tq::test
