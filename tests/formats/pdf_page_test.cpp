// Pages that are one picture: as they are shown, with refused memory, failing streams and bad intentions.
#include <gmock/gmock.h>

#include "core/memory.h"
#include "formats/pdf/page/document.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/pdf_document.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

struct Decoded {
  Status status = kOk;
  StatusCode damage = StatusCode::ok;
  bool left_out = false;
  Resolution resolution{};
  BitmapInfoHeader header{};
  std::vector<CollectedRow> rows{};
};

Decoded decode(MemoryFile& /*installed*/, std::int32_t page = 0) {
  CollectingSink sink;
  formats::DecodeNotes notes;
  formats::DecodeRequest request{.stream = MemoryFile::kHandle, .sink = sink.sink(), .page = page};
  request.sink.notes = &notes;
  seek(MemoryFile::kHandle, 0, Origin::start);
  Decoded decoded;
  decoded.status = pdf::page::decode_document(request, decoded.left_out);
  if (decoded.status.ok()) notes.end();
  decoded.damage = notes.damage;
  decoded.resolution = notes.resolution;
  decoded.header = sink.header.header;
  decoded.rows = sink.rows;
  return decoded;
}
Decoded decode(const PdfDocument& document) {
  MemoryFile file(document.bytes());
  return decode(file);
}

// A page, and object 5, its picture /P.
PdfDocument with_page(const std::string& page, const std::string& contents,
                      const std::string& picture, const std::string& data) {
  PdfDocument document;
  document.add(1, "<</Type/Catalog/Pages 2 0 R>>");
  document.add(2, "<</Kids[3 0 R]/Count 1>>");
  document.add(3, "<</Type/Page/Contents 4 0 R/Resources<</XObject<</P 5 0 R>>>>" + page + ">>");
  document.add_stream(4, "", contents);
  document.add_stream(5, "/Subtype/Image" + picture, data);
  document.add_table("/Size 6/Root 1 0 R");
  return document;
}

constexpr int kWidth = 11, kHeight = 5;

// Pixels that tell columns and rows apart.
int sample(int x, int y, int bits) {
  return bits == 1 ? (x * x + 3 * y + x * y) / 2 % 2 : (x + 13 * y) % (1 << bits);
}

std::string samples(int bits) {
  std::string data;
  for (int y = 0; y < kHeight; ++y) {
    int gathered = 0, count = 0;
    for (int x = 0; x < kWidth; ++x) {
      gathered = gathered << bits | sample(x, y, bits);
      if ((count += bits) % 8 == 0) data += static_cast<char>(gathered);
    }
    if (count % 8 != 0) data += static_cast<char>(gathered << (8 - count % 8));
  }
  return data;
}

int pixel(const Bytes& row, int x, int bits) {
  return row.at(static_cast<std::size_t>(x * bits / 8)) >> (8 - bits - x * bits % 8) &
         ((1 << bits) - 1);
}

TEST(PdfPage, OnePictureIsTurnedAndCutAsThePageShowsIt) {
  // A pixel is a point; the picture's lower left corner on the page is at 20, 10.
  const double matrices[][6] = {{11, 0, 0, 5, 20, 10},   {-11, 0, 0, 5, 31, 10},
                                {-11, 0, 0, -5, 31, 15}, {11, 0, 0, -5, 20, 15},
                                {0, -11, -5, 0, 25, 21}, {0, -11, 5, 0, 20, 21},
                                {0, 11, 5, 0, 20, 10},   {0, 11, -5, 0, 25, 10}};
  // Nothing is cut by less than half a pixel.
  const double crops[][4] = {
      {0, 0, 90, 80}, {20.4, 10.4, 90, 80}, {22, 11, 24, 14}, {21.6, 0, 23.4, 12}};
  for (const int bits : {1, 4, 8}) {
    for (const auto& m : matrices) {
      for (const int rotate : {0, 90, 180, 270}) {
        for (const auto& crop : crops) {
          char page[200], contents[200], picture[200];
          std::snprintf(page, sizeof page, "/MediaBox[0 0 90 80]/Rotate %d/CropBox[%g %g %g %g]",
                        rotate, crop[0], crop[1], crop[2], crop[3]);
          std::snprintf(contents, sizeof contents, "%g %g %g %g %g %g cm /P Do", m[0], m[1], m[2],
                        m[3], m[4], m[5]);
          std::snprintf(picture, sizeof picture,
                        "/Width %d/Height %d/BitsPerComponent %d/ColorSpace%s", kWidth, kHeight,
                        bits, bits == 4 ? "[/Indexed/DeviceRGB 15<000000FF00000>]" : "/DeviceGray");
          SCOPED_TRACE(testing::Message() << contents << page);
          const Decoded decoded = decode(with_page(page, contents, picture, samples(bits)));
          ASSERT_EQ(decoded.status, kOk);
          EXPECT_EQ(decoded.damage, StatusCode::ok);
          ASSERT_EQ(decoded.header.biBitCount, bits);
          EXPECT_EQ(decoded.resolution.x, 72000);
          EXPECT_EQ(decoded.resolution.y, 72000);
          // Where the middle of each pixel is on the page as it is shown.
          std::map<std::pair<int, int>, int> shown;  // by line from the top, and column
          for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
              const double u = (x + .5) / kWidth, v = 1 - (y + .5) / kHeight;
              double px = m[0] * u + m[2] * v + m[4], py = m[1] * u + m[3] * v + m[5];
              if (px < crop[0] || py < crop[1] || px > crop[2] || py > crop[3]) continue;
              for (int turned = 0; turned < rotate; turned += 90) {
                px = std::exchange(py, -px);
              }
              const int line = static_cast<int>(1000 - py), column = static_cast<int>(px + 1000);
              shown[{line, column}] = sample(x, y, bits);
            }
          }
          const auto [top, left] = shown.begin()->first;
          const auto [bottom, right] = shown.rbegin()->first;
          ASSERT_EQ(decoded.header.biWidth, right - left + 1);
          ASSERT_EQ(decoded.header.biHeight, bottom - top + 1);
          for (const CollectedRow& row : decoded.rows) {
            for (int x = 0; x <= right - left; ++x) {
              ASSERT_EQ(pixel(row.bytes, x, bits), (shown[{row.y + top, x + left}]))
                  << x << " " << row.y;
            }
          }
        }
      }
    }
  }
}

const std::string kGrey = "/Width 4/Height 3/BitsPerComponent 8/ColorSpace/DeviceGray";
const std::string kPixels = "abcdefghijkl";

TEST(PdfPage, ResolutionIsThatOfThePlacedPicture) {
  const struct {
    const char *page, *contents;
    Resolution expected;
  } cases[] = {{"", "612 0 0 792 0 0 cm /P Do", {471, 273}},
               {"", ".96 0 0 1.08 0 0 cm /P Do", {300000, 200000}},
               {"/UserUnit 2", ".96 0 0 1.08 0 0 cm /P Do", {150000, 100000}},
               {"/Rotate 90", ".96 0 0 1.08 0 0 cm /P Do", {200000, 300000}},
               {"", "0 .96 -1.08 0 10 0 cm /P Do", {200000, 300000}},
               {"", "1.411765 0 0 2.204082 0 0 cm /P Do", {204000, 98000}},
               {"", "1 0 0 28346457 0 0 cm /P Do", {288000, 0}}};
  for (const auto& [page, contents, expected] : cases) {
    const Decoded decoded = decode(with_page(page, contents, kGrey, kPixels));
    EXPECT_EQ(decoded.status, kOk) << contents;
    EXPECT_EQ(decoded.resolution.x, expected.x) << contents;
    EXPECT_EQ(decoded.resolution.y, expected.y) << contents;
    EXPECT_EQ(decoded.header.biXPelsPerMeter, (expected.x + 500) / 1000) << contents;
  }
}

TEST(PdfPage, WhatIsLeftOutIsToldAndMustNotBeMost) {
  const std::string text = " BT (a) Tj ET";
  const auto decoded = [](const std::string& contents) {
    return decode(with_page("/MediaBox[0 0 100 100]", contents, kGrey, kPixels));
  };
  EXPECT_FALSE(decoded("q 20 0 0 20 0 0 cm /P Do Q").left_out) << "alone, however small";
  EXPECT_TRUE(decoded("q 100 0 0 51 0 0 cm /P Do Q" + text).left_out);
  EXPECT_EQ(decoded("q 100 0 0 51 0 0 cm /P Do Q" + text).status, kOk);
  EXPECT_EQ(decoded("q 100 0 0 49 0 0 cm /P Do Q" + text).status, StatusCode::unsupported);
  EXPECT_EQ(decoded("q 900 0 0 49 -300 0 cm /P Do Q" + text).status, StatusCode::unsupported);
  EXPECT_EQ(decoded(text).status, StatusCode::unsupported);
  EXPECT_EQ(decoded("").status, StatusCode::unsupported);
}

TEST(PdfPage, CodedPicturesAreFoundWhereOthersCanTakeThem) {
  const std::string fax =
      "/Width 16/Height 1/ColorSpace/DeviceGray/BitsPerComponent 1/Filter/CCITTFaxDecode";
  const std::string t6 = "/DecodeParms<</K -1/Columns 16", rows = "\x26\xA0\x01\x00\x10";
  const std::string jpeg = "/Width 9/Height 9/BitsPerComponent 8/Filter/DCTDecode/ColorSpace";
  // A frame of 4 x 3 pixels and so many components, and the start of a scan.
  const auto frame = [](int components) {
    std::string text("\xFF\xD8\xFF\xC0", 4), scan("\xFF\xDA", 2);
    const auto put = [](std::string& to, std::initializer_list<int> bytes) {
      for (const int value : bytes) to += static_cast<char>(value);
    };
    put(text, {0, 8 + 3 * components, 8, 0, 3, 0, 4, components});
    put(scan, {0, 6 + 2 * components, components});
    for (int i = 1; i <= components; ++i) {
      put(text, {i, 0x11, 0});
      put(scan, {i, 0});
    }
    put(scan, {0, 63, 0});
    return text + scan;
  };
  const std::string upright = "16 0 0 9 0 0 cm /P Do";
  const struct {
    std::string page, contents, picture, data;
    const char* expected;
  } cases[] = {
      {"", upright, fax + t6 + ">>", rows, "T6 16x1 1 0 1"},
      {"", upright, fax + t6 + "/BlackIs1 true>>", rows, "T6 16x1 1 1 1"},
      {"/Rotate 90", upright, fax + t6 + "/BlackIs1 true>>/Decode[1 0]", rows, "T6 16x1 1 0 6"},
      {"", upright, fax + t6 + "/EncodedByteAlign true>>", rows, "-7"},
      {"", upright, fax + "/DecodeParms<</Columns 16>>", rows, "-7"},
      {"/CropBox[0 0 8 9]", upright, fax + t6 + ">>", rows, "-7"},
      {"", upright, fax + t6 + ">>/ImageMask true", rows, "-7"},
      {"", upright + " BT (a) Tj ET", fax + t6 + ">>", rows, "-7"},
      {"", upright + " /P Do", fax + t6 + ">>", rows, "-7"},
      {"", upright, jpeg + "/DeviceGray", frame(1), "JPEG 4x3 1 0 1"},
      {"", upright, jpeg + "/DeviceRGB", frame(3), "JPEG 4x3 3 0 1"},
      {"", upright, jpeg + "/DeviceCMYK/Decode[1 0 1 0 1 0 1 0]", frame(4), "JPEG 4x3 4 1 1"},
      {"", upright, jpeg + "/DeviceCMYK", frame(4), "JPEG 4x3 4 0 1"},
      {"", upright, jpeg + "/DeviceGray", frame(3), "-7"},
      {"", upright, jpeg + "/DeviceRGB/DecodeParms<</ColorTransform 0>>", frame(3), "-7"},
      {"", upright, jpeg + "/DeviceGray/Decode[1 0]", frame(1), "-7"},
      {"", upright, jpeg + "/DeviceGray/SMask 5 0 R", frame(1), "-7"},
      {"", upright, kGrey, kPixels, "-7"},
  };
  for (const auto& [page, contents, picture, data, expected] : cases) {
    const PdfDocument document = with_page(page, contents, picture, data);
    const MemoryFile memory(document.bytes());
    pdf::page::Document opened;
    pdf::page::Page found;
    pdf::page::StoredPicture stored;
    ASSERT_EQ(opened.open(MemoryFile::kHandle, 0), kOk);
    ASSERT_EQ(find_page(opened.file(), 0, found), kOk);
    const Status status = find_stored_picture(opened.file(), found, stored);
    char text[100];
    std::snprintf(text, sizeof text, "%s %dx%d %d %d %d", stored.is_fax ? "T6" : "JPEG",
                  stored.width, stored.height, stored.components, stored.inverted ? 1 : 0,
                  stored.orientation);
    EXPECT_EQ(status.ok() ? std::string(text) : std::to_string(status.raw()), expected)
        << document.text;
    if (!status.ok()) continue;
    EXPECT_EQ(document.text.substr(static_cast<std::size_t>(stored.offset),
                                   static_cast<std::size_t>(stored.bytes)),
              data);
  }
}

TEST(PdfPage, BadIntentionsEndSoon) {
  const auto grey = [](const std::string& more, const std::string& data = kPixels) {
    return with_page("", "9 0 0 9 0 0 cm /P Do", more, data);
  };
  const auto with_object = [&](int number, const std::string& value) {
    PdfDocument document = grey(kGrey);
    document.add(number, value);
    const std::size_t old = document.text.rfind("xref\n0 1");
    document.add_table("/Size 9/Root 1 0 R/Prev " + std::to_string(old));
    return document;
  };
  const std::pair<PdfDocument, Status> cases[] = {
      {grey("/Width 2147483648/Height 3/BitsPerComponent 8/ColorSpace/DeviceGray"),
       StatusCode::out_of_memory},
      {grey("/Width 4/Height 2147483647/BitsPerComponent 8/ColorSpace/DeviceGray"),
       StatusCode::out_of_memory},
      {grey("/Width 0/Height 3/BitsPerComponent 8/ColorSpace/DeviceGray"), StatusCode::bad_image},
      {grey("/Width 4/Height 3/BitsPerComponent 3/ColorSpace/DeviceGray"), StatusCode::bad_image},
      {grey(kGrey + "/Filter[/Fl/Fl/Fl/Fl/Fl/Fl/Fl/Fl/Fl]"), StatusCode::unsupported},
      {grey(kGrey + "/Filter/JPXDecode"), StatusCode::unsupported},
      // Objects that are their own streams, forms and parents.
      {with_object(3, "3 0 R"), StatusCode::no_such_page},
      {with_object(2, "<</Type/Pages/Kids 2 0 R/Count 5>>"), StatusCode::no_such_page},
      {with_object(4, "[4 0 R 4 0 R]"), StatusCode::unsupported},
      {with_object(5, "<</Type/ObjStm/N 1/First 4/Length 5 0 R>>stream\n5 0 /a\nendstream"),
       StatusCode::unsupported},
      {with_object(3, "<</Type/Page/Contents 4 0 R/MediaBox 3 0 R/Resources 3 0 R/Rotate[0]>>"),
       StatusCode::unsupported},
      {with_object(1, "<</Pages 2147483647 0 R>>"), StatusCode::no_such_page},
      {with_object(1, "<</Pages 2 0 R/OCProperties 1 0 R>>"), kOk},
  };
  memory_probe::refuse_above(1 << 20);  // numbers cost nothing
  for (const auto& [document, expected] : cases) {
    EXPECT_EQ(decode(document).status, expected) << document.text;
  }
  memory_probe::refuse_above(kLargestBlock);
  // An object stream in an object stream, and its own parameters in itself.
  for (const char* entry : {"", "/DecodeParms 7 0 R/Filter/ASCIIHexDecode"}) {
    PdfDocument document = grey(kGrey);
    document.add_stream(6, std::string("/Type/ObjStm/N 1/First 4") + entry, "7 0 <<>>");
    std::string rows = {2, 0, 0, 7, 0, 2, 0, 0, 6, 0};  // each in the other
    const std::size_t at = document.text.size();
    document.add_stream(8, "/Type/XRef/W[1 3 1]/Index[6 2]/Size 9/Root 7 0 R", rows);
    document.end_at(at);
    EXPECT_EQ(decode(document).status, kOk) << "found by looking for objects";
  }
}

// Plain, compressed, repaired, turned, cut, inline, of several pictures, by a form; and as other
// programs write them.
std::vector<PdfDocument> sorts_of_documents() {
  std::vector<PdfDocument> documents;
  documents.push_back(with_page("/Rotate 90", "9 0 0 9 0 0 cm /P Do", kGrey, kPixels));
  documents.push_back(with_page("/CropBox[0 0 5 5]", "9 0 0 9 0 0 cm /P Do", kGrey, kPixels));
  documents.push_back(documents[0]);
  documents.back().text.resize(documents.back().text.find("xref\n"));
  documents.push_back(
      with_page("", "BI/W 2/H 2/BPC 8/CS/G/F/AHx ID 61626364> EI /P Do", kGrey, kPixels));
  documents.push_back(with_page("", "9 0 0 9 0 0 cm /P Do", kGrey + "/Filter[/AHx/RL]",
                                "0B"
                                "6162636465666768696A6B6C80>"));
  documents.push_back(
      with_page("", "9 0 0 9 0 0 cm /P Do",
                "/Width 16/Height 1/Filter/CCITTFaxDecode/DecodeParms<</K -1/Columns 16>>",
                "\x26\xA0\x01\x00\x10"));
  documents.push_back(with_page(
      "", "9 0 0 9 0 0 cm /P Do",
      "/Width 4/Height 3/BitsPerComponent 8/ColorSpace[/Indexed/DeviceRGB 9(abc)]", kPixels));
  for (const char* name : {"gm", "img2pdf", "linear", "pillow", "tiff2pdf"}) {
    const Bytes bytes = file_content("corpus/pdf/" + std::string(name) + ".pdf");
    documents.push_back({{bytes.begin(), bytes.end()}, {}});
  }
  return documents;
}

TEST(PdfPage, WithoutMemoryThereIsNoPicture) {
  for (const PdfDocument& document : sorts_of_documents()) {
    MemoryFile file(document.bytes());
    const std::int64_t tracked = memory_probe::tracked_blocks();
    for (int n = 0;; ++n) {
      memory_probe::refuse_after(n);
      const Decoded decoded = decode(file);
      const bool refused = memory_probe::refused();
      memory_probe::refuse_after(-1);
      EXPECT_EQ(memory_probe::tracked_blocks(), tracked);
      if (!refused) {
        EXPECT_EQ(decoded.status, kOk) << document.text;
        break;
      }
      EXPECT_EQ(decoded.status, StatusCode::out_of_memory) << n << " of " << document.text;
    }
  }
}

TEST(PdfPage, StreamsThatFailDoNotPassForDocuments) {
  for (const PdfDocument& document : sorts_of_documents()) {
    MemoryFile file(document.bytes());
    const Decoded whole = decode(file);
    const int calls = std::exchange(file.calls, 0);
    for (int n = 0; n < calls; ++n) {
      file.calls = 0;
      file.failing_call = n;
      const Decoded decoded = decode(file);
      const bool is_told = decoded.status.failed() || decoded.damage != StatusCode::ok;
      EXPECT_TRUE(is_told || decoded.rows == whole.rows) << n << " of " << document.text;
    }
  }
}

}  // namespace
}  // namespace tq::test
