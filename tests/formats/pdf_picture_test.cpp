// Pictures of documents: what depth they become, and every pixel of them.
#include <gmock/gmock.h>

#include "formats/pdf/image/picture.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/fax_page.h"
#include "tests/support/pdf_document.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using pdf::image::Picture;
using pdf::objects::File;

// Documents whose picture is object 5; other objects may stand before it.
struct Drawn {
  std::string entries, hex;
  std::map<int, std::pair<std::string, std::string>> streams{};  // other ones, in hex as well
  std::uint32_t fill = 0;
  int alpha = 255;
};

struct Decoded {
  Status status = kOk;
  HeaderBlock image;
  std::vector<Bytes> rows;
  StatusCode damage = StatusCode::ok;
};

Decoded decoded(const Drawn& drawn) {
  PdfDocument document;
  document.add(1, "<</Type/Catalog/Pages 2 0 R>>");
  document.add(2, "<</Type/Pages/Kids[]/Count 0>>");
  for (const auto& [number, stream] : drawn.streams) {
    if (stream.second.empty()) {
      document.add(number, stream.first);
    } else {
      document.add_stream(number, stream.first + "/Filter/ASCIIHexDecode", stream.second);
    }
  }
  document.add_stream(5, drawn.entries + "/Filter/ASCIIHexDecode", drawn.hex + ">");
  document.add_table("/Root 1 0 R/Size 9");
  const MemoryFile memory(document.bytes());
  File file;
  Decoded result;
  result.status = file.open(MemoryFile::kHandle);
  EXPECT_EQ(result.status, kOk);
  pdf::content::Painted painted;
  painted.image = {5, 0};
  painted.fill = drawn.fill;
  painted.alpha = static_cast<std::uint8_t>(drawn.alpha);
  Picture picture;
  result.status = picture.open(file, painted);
  if (result.status.failed()) return result;
  result.image = picture.image();
  CollectingSink sink;
  formats::DecodeNotes notes;
  formats::RowSink to = sink.sink();
  to.notes = &notes;
  result.status = picture.decode(to, formats::FaxRows::bits);
  result.damage = notes.damage;
  for (const CollectedRow& row : sink.rows) {
    EXPECT_EQ(row.y, std::ssize(result.rows));
    result.rows.push_back(row.bytes);
  }
  return result;
}

std::string hex_of(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t b : bytes) {
    for (const int digit : {b >> 4, b & 15}) text += "0123456789ABCDEF"[digit];
  }
  return text;
}

constexpr char kSize[] = "/Width 3/Height 1";

struct Case {
  const char* name;
  Drawn drawn;
  int bits;
  std::string row;      // in hex, with what fills it up to 4 bytes
  std::string palette;  // its first entries: blue, green, red of each
};

TEST(PdfPicture, DepthsAndPixels) {
  const std::string size = kSize;
  const std::string table = "/ColorSpace[/Indexed/DeviceRGB 3<FF0000 00FF00 0000FF 102030>]";
  const Case cases[] = {
      // Two levels.
      {"grey 1",
       {size + "/BitsPerComponent 1/ColorSpace/DeviceGray", "5F"},
       1,
       "40000000",
       "000000FFFFFF"},
      {"grey 1, inverted",
       {size + "/BitsPerComponent 1/ColorSpace/CalGray/Decode[1 0]", "5F"},
       1,
       "A0000000",
       ""},
      {"black ink",
       {size + "/BitsPerComponent 1/ColorSpace[/Separation/Black/DeviceCMYK 9 0 R]", "5F"},
       1,
       "A0000000",
       ""},
      {"white first",
       {size + "/BitsPerComponent 1/ColorSpace[/Indexed/DeviceGray 1<FF00>]", "5F"},
       1,
       "A0000000",
       "000000FFFFFF"},
      {"mask", {size + "/ImageMask true", "5F"}, 1, "40000000", ""},
      {"mask, inverted", {size + "/ImageMask true/Decode[1 0]", "5F"}, 1, "A0000000", ""},
      {"mask in red",
       {size + "/ImageMask true", "5F", {}, 0xFF0000},
       4,
       "01000000",
       "0000FFFFFFFF"},
      {"mask in half black",
       {size + "/ImageMask true", "5F", {}, 0, 127},
       4,
       "01000000",
       "808080FFFFFF"},
      {"other two", {size + "/BitsPerComponent 1" + table, "5F"}, 4, "01000000", "0000FF00FF00"},
      {"two greys",
       {size + "/BitsPerComponent 1/ColorSpace/DeviceGray/Decode[0 .2]", "5F"},
       4,
       "01000000",
       "000000333333"},
      // Few levels, indices.
      {"grey 2",
       {size + "/BitsPerComponent 2/ColorSpace/DeviceGray", "6F"},
       4,
       "12300000",
       "000000555555AAAAAAFFFFFF"},
      {"grey 2, inverted",
       {size + "/BitsPerComponent 2/ColorSpace/DeviceGray/Decode[1 0]", "6F"},
       4,
       "21000000",
       "000000555555AAAAAAFFFFFF"},
      {"grey 4",
       {size + "/BitsPerComponent 4/ColorSpace/DeviceGray", "5A30"},
       4,
       "5A300000",
       "000000111111"},
      {"indexed 2",
       {size + "/BitsPerComponent 2" + table, "6F"},
       4,
       "12300000",
       "0000FF00FF00FF0000302010"},
      {"indexed 2, mapped",
       {size + "/BitsPerComponent 2/Decode[3 0]" + table, "6F"},
       4,
       "12300000",
       "302010FF000000FF000000FF"},
      {"indexed 8",
       {size + "/BitsPerComponent 8" + table, "010304"},
       8,
       "01030400",
       "0000FF00FF00FF0000302010000000"},
      {"table of a stream",
       {size + "/BitsPerComponent 8/ColorSpace[/Indexed[/ICCBased 7 0 R]1 8 0 R]",
        "010001",
        {{7, {"/N 4", "00"}}, {8, {"", "00000080 FF000000>"}}}},
       8,
       "01000100",
       "7F7F7FFFFF00"},
      // More levels.
      {"grey 8",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceGray", "01807F"},
       8,
       "01807F00",
       "000000010101"},
      {"grey 8, inverted",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceGray/Decode[1 0]", "01807F"},
       8,
       "FE7F8000",
       "000000010101"},
      {"grey 8, half",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceGray/Decode[.5 1]", "0080FF"},
       8,
       "80C0FF00",
       "000000010101"},
      {"all inks 8",
       {size + "/BitsPerComponent 8/ColorSpace[/DeviceN[/All]/DeviceCMYK 9 0 R]", "01807F"},
       8,
       "FE7F8000",
       "000000010101"},
      {"grey 16",
       {size + "/BitsPerComponent 16/ColorSpace/DeviceGray", "0102 FF00 8000"},
       16,
       "020100FF00800000",
       ""},
      {"grey 16, inverted",
       {size + "/BitsPerComponent 16/ColorSpace/DeviceGray/Decode[1 0]", "0102 FF00 8000"},
       16,
       "FDFEFF00FF7F0000",
       ""},
      // Colours.
      {"rgb 8",
       {size + "/BitsPerComponent 8/ColorSpace/CalRGB", "010203 FF8000 0000FF"},
       24,
       "0302010080FFFF0000000000",
       ""},
      {"rgb 8, one inverted",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceRGB/Decode[0 1 1 0 0 1]",
        "010203 FF8000 0000FF"},
       24,
       "03FD01007FFFFFFF00000000",
       ""},
      {"rgb 4",
       {size + "/BitsPerComponent 4/ColorSpace/DeviceRGB", "123 F80 00F0"},
       24,
       "3322110088FFFF0000000000",
       ""},
      {"rgb 16",
       {size + "/BitsPerComponent 16/ColorSpace/DeviceRGB",
        "0000 0080 0081 FFFF FF7F FF7E 8000 0000 0000"},
       24,
       "010000FEFFFF000080000000",
       ""},
      {"lab",
       {size + "/BitsPerComponent 8/ColorSpace[/Lab<</WhitePoint[.95 1 1.09]/Range[-128 127 -128 "
               "127]>>]",
        "FF8080 008080 8080FF"},
       24,
       "FFFFFF000000007495000000",
       ""},
      {"spot",
       {size + "/BitsPerComponent 8/ColorSpace[/Separation/Spot/DeviceRGB<</FunctionType "
               "2/Domain[0 1]/C0[1 1 1]/C1[1 0 0]/N 1>>]",
        "00FF80"},
       24,
       "FFFFFF0000FF7F7FFF000000",
       ""},
      {"spot 1",
       {size + "/BitsPerComponent 1/ColorSpace[/Separation/Spot/DeviceCMYK<</FunctionType "
               "2/Domain[0 1]/C0[0 0 0 0]/C1[0 1 1 0]/N 2>>]",
        "5F"},
       4,
       "01000000",
       "FFFFFF0000FF"},
      {"sampled spot",
       {size + "/BitsPerComponent 8/ColorSpace[/Separation/Spot/DeviceRGB 7 0 R]",
        "0040FF",
        {{7,
          {"/FunctionType 0/Domain[0 1]/Range[0 1 0 1 0 1]/Size[3]/BitsPerSample 8",
           "FFFFFF FF8000 200000>"}}}},
       24,
       "FFFFFF7FBFFF000020000000",
       ""},
      {"no ink",
       {size + "/BitsPerComponent 8/ColorSpace[/Separation/None/DeviceGray 9 0 R]", "00FF80"},
       8,
       "FFFFFF00",
       ""},
      {"cmyk",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceCMYK", "01020304 FF000000 00000080"},
       32,
       "01020304FF00000000000080",
       ""},
      {"cmyk, inverted",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceCMYK/Decode[1 0 1 0 1 0 1 0]",
        "01020304 FF000000 00000080"},
       32,
       "FEFDFCFB00FFFFFFFFFFFF7F",
       ""},
      {"cmyk 1",
       {size + "/BitsPerComponent 1/ColorSpace/DeviceCMYK", "18F0"},
       32,
       "000000FFFF000000FFFFFFFF",
       ""},
      // What shows through.
      {"soft mask",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceGray/SMask 7 0 R",
        "001080",
        {{7, {size + "/BitsPerComponent 8/ColorSpace/DeviceGray", "FF8000>"}}}},
       8,
       "0087FF00",
       ""},
      {"soft mask over colours",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceRGB/SMask 7 0 R",
        "102030 102030 102030",
        {{7, {size + "/BitsPerComponent 8/ColorSpace/DeviceGray", "FF8000>"}}}},
       24,
       "302010978F87FFFFFF000000",
       ""},
      {"soft mask over inks",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceCMYK/SMask 7 0 R",
        "10203040 10203040 10203040",
        {{7, {size + "/BitsPerComponent 8/ColorSpace/DeviceGray", "FF8000>"}}}},
       32,
       "102030400810182000000000",
       ""},
      {"matte",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceGray/SMask 7 0 R",
        "408000",
        {{7, {size + "/BitsPerComponent 8/ColorSpace/DeviceGray/Matte[0]", "FF8000>"}}}},
       8,
       "40FFFF00",
       ""},
      {"larger soft mask",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceGray/SMask 7 0 R",
        "000000",
        {{7,
          {"/Width 6/Height 2/BitsPerComponent 8/ColorSpace/DeviceGray",
           "FF00FFFF0000 00FFFFFF0000>"}}}},
       8,
       "7F00FF00",
       ""},
      {"stencil",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceGray/Mask 7 0 R",
        "001080",
        {{7, {size + "/ImageMask true", "40>"}}}},
       8,
       "00FF8000",
       ""},
      {"stencil over two levels",
       {size + "/BitsPerComponent 1/ColorSpace/DeviceGray/Mask 7 0 R",
        "20",
        {{7, {size + "/ImageMask true/Decode[1 0]", "A0>"}}}},
       1,
       "60000000",
       "000000FFFFFF"},
      {"key",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceRGB/Mask[0 16 32 32 48 48]",
        "102030 112030 002030"},
       24,
       "FFFFFF302011FFFFFF000000",
       ""},
      {"key of indices",
       {size + "/BitsPerComponent 2/Mask[1 2]" + table, "6F"},
       24,
       "FFFFFFFFFFFF302010000000",
       ""},
      {"constant",
       {size + "/BitsPerComponent 8/ColorSpace/DeviceGray", "001080", {}, 0, 128},
       8,
       "7F87BF00",
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Decoded picture = decoded(c.drawn);
    ASSERT_EQ(picture.status, kOk);
    EXPECT_EQ(picture.damage, StatusCode::ok);
    EXPECT_EQ(picture.image.header.biBitCount, c.bits);
    ASSERT_EQ(picture.rows.size(), 1u);
    EXPECT_EQ(hex_of(picture.rows[0]), c.row);
    Bytes palette;
    for (std::size_t i = 0; i < c.palette.size() / 6; ++i) {
      const Rgb& entry = picture.image.palette[i];
      palette.insert(palette.end(), {entry.blue, entry.green, entry.red});
    }
    EXPECT_EQ(hex_of(palette), c.palette);
  }
}

Decoded coded(const std::string& entries, const std::string& filter, const std::string& parameters,
              const Bytes& data) {
  return decoded({entries + "/Filter[/AHx/" + filter + "]/DecodeParms[null<<" + parameters + ">>]",
                  hex_of(data)});
}

TEST(PdfPicture, Facsimiles) {
  constexpr int kWidth = 173, kHeight = 40;
  const auto page = printed_page(kWidth, kHeight, 9, 5);
  const struct {
    ccitt::Scheme scheme;
    const char* parameters;
  } cases[] = {{ccitt::Scheme::group4, "/K -1"},
               {ccitt::Scheme::group3_1d, "/EndOfLine true"},
               {ccitt::Scheme::group3_2d, "/K 4/EndOfLine true"}};
  for (const auto& c : cases) {
    PageSupplier supplier(page, false);
    Bytes data;
    {
      const MemoryFile file;
      StreamWriter out;
      ASSERT_EQ(out.open(MemoryFile::kHandle, formats::kFaxChunk), kOk);
      const formats::FaxStrip strip{
          .coding = {.scheme = c.scheme}, .width = kWidth, .rows = kHeight};
      ASSERT_EQ(encode_fax_strip(out, strip, supplier.supplier()), kOk);
      ASSERT_EQ(out.flush(), kOk);
      data = file.bytes;
    }
    for (const bool inverted : {false, true}) {
      for (const int width : {kWidth, kWidth - 9, kWidth + 9}) {
        SCOPED_TRACE(testing::Message() << c.parameters << inverted << width);
        const Decoded picture = coded(
            "/Height 40/Width " + std::to_string(width), "CCITTFaxDecode",
            std::string(c.parameters) + "/Columns 173" + (inverted ? "/BlackIs1 true" : ""), data);
        ASSERT_EQ(picture.status, kOk);
        EXPECT_EQ(picture.image.header.biBitCount, 1);
        EXPECT_EQ(picture.damage, StatusCode::ok);
        ASSERT_EQ(picture.rows.size(), page.size());
        for (std::size_t y = 0; y < page.size(); ++y) {
          for (int x = 0; x < width; ++x) {
            const bool black = x < kWidth && page[y][x];
            const int bit = picture.rows[y][x / 8] >> (7 - x % 8) & 1;
            ASSERT_EQ(bit, black == inverted ? 1 : 0) << x << ' ' << y;
          }
        }
      }
    }
  }
}

// Streams mean what their frames say, and files of inks are inverted only by the dictionary.
TEST(PdfPicture, JpegStreams) {
  constexpr char kInverted[] = "/Decode[1 0 1 0 1 0 1 0]";
  const struct {
    const char *name, *entries;
  } cases[] = {{"grey", "/ColorSpace/DeviceRGB"},
               {"420", "/ColorSpace/DeviceRGB/Width 1/Height 9"},
               {"420-progressive", ""},
               {"rgb", "/ColorSpace/DeviceRGB"},
               {"cmyk", kInverted},
               {"ycck", kInverted}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Bytes file = file_content("corpus/jpeg/" + std::string(c.name) + ".jpg");
    CollectingSink expected;
    {
      const MemoryFile memory(file);
      formats::DecodeRequest request{MemoryFile::kHandle, 0, expected.sink()};
      ASSERT_TRUE(request.options.set(IMG_OPTION_READING, 1));
      ASSERT_EQ(jpeg::decode_jpeg(request), kOk);
    }
    const Decoded picture = coded(c.entries, "DCTDecode", "", file);
    ASSERT_EQ(picture.status, kOk);
    EXPECT_EQ(picture.image.header.biBitCount, expected.header.header.biBitCount);
    EXPECT_EQ(picture.rows, expected.image());
  }
}

TEST(PdfPicture, WhatIsRefused) {
  const std::string grey = "/Height 2/BitsPerComponent 8/ColorSpace/DeviceGray";
  const struct {
    std::string entries;
    StatusCode status;
  } cases[] = {
      {"/Width 0" + grey, StatusCode::bad_image},
      {"/Width 3/BitsPerComponent 3" + grey.substr(9), StatusCode::bad_image},
      {"/Width 2000000000/Height 2000000000/BitsPerComponent 8/ColorSpace/DeviceRGB",
       StatusCode::out_of_memory},
      {std::string(kSize) + "/BitsPerComponent 8/ColorSpace/Pattern", StatusCode::unsupported},
      {std::string(kSize) +
           "/BitsPerComponent 8/ColorSpace[/Indexed[/Indexed/DeviceGray 0<00>]0<00>]",
       StatusCode::unsupported},
      {std::string(kSize) + "/BitsPerComponent 8/ColorSpace[/DeviceN[/A/B]/DeviceGray 9 0 R]",
       StatusCode::unsupported},
      {std::string(kSize) + "/BitsPerComponent 16/ColorSpace[/Indexed/DeviceGray 0<00>]",
       StatusCode::bad_image},
  };
  for (const auto& c : cases) EXPECT_EQ(decoded({c.entries, "00"}).status, c.status) << c.entries;
  // A mask of itself is masked once.
  const Decoded itself = decoded({"/Width 1" + grey + "/SMask 5 0 R", "8040"});
  EXPECT_EQ(itself.status, kOk);
  EXPECT_EQ(itself.rows.size(), 2u);
}

TEST(PdfPicture, DataThatEnd) {
  const std::string grey = "/Width 3/Height 3/BitsPerComponent 8/ColorSpace/DeviceGray";
  const Decoded picture = decoded({grey, "010203 04"});
  EXPECT_EQ(picture.damage, StatusCode::read_failed);
  EXPECT_EQ(picture.rows, (std::vector<Bytes>{{1, 2, 3, 0}, {4, 0, 0, 0}}));
  const Decoded contradicted = decoded({grey + "/Filter[/AHx/Fl]", "789C 00 0300 FCFF 010203 07"});
  if (contradicted.status == StatusCode::unsupported) GTEST_SKIP() << "built without zlib";
  EXPECT_EQ(contradicted.damage, StatusCode::bad_image);
  EXPECT_EQ(contradicted.rows, (std::vector<Bytes>{{1, 2, 3, 0}}));
}

}  // namespace
}  // namespace tq::test
