// Documents of every layout, whole and damaged: their objects and pages.
#include <gmock/gmock.h>

#include <functional>

#include "formats/pdf/page/pages.h"
#include "tests/support/pdf_document.h"

namespace tq::test {
namespace {

using namespace pdf::objects;

std::string hex(const std::string& text) {
  std::string result;
  for (const char c : text) {
    for (const int digit : {c >> 4 & 15, c & 15}) result += "0123456789ABCDEF"[digit];
  }
  return result + ">";
}

std::string page(int marker, int parent = 2) {
  return "<</Type/Page/Parent " + std::to_string(parent) + " 0 R/Marker " + std::to_string(marker) +
         ">>";
}
const std::string kCatalog = "<</Type/Catalog/Pages 2 0 R>>";
const std::string kTwoKids = "<</Type/Pages/Kids[3 0 R 4 0 R]/Count 2>>";

// Catalog 1, root 2, pages 3 and 4.
PdfDocument two_pages() {
  PdfDocument document;
  document.add(1, kCatalog);
  document.add(2, kTwoKids);
  document.add(3, page(10));
  document.add(4, page(20));
  return document;
}

// The objects in a stream, and a table that is a stream as well.
PdfDocument compressed(const std::string& entries = {}) {
  PdfDocument document;
  std::string header, bodies;
  int number = 0;
  for (const std::string& body : {kCatalog, kTwoKids, page(10), page(20)}) {
    header += std::to_string(++number) + " " + std::to_string(bodies.size()) + " ";
    bodies += body + " ";
  }
  const std::string first = std::to_string(header.size());
  document.add_stream(5, "/Type/ObjStm/N 4/First " + first + "/Filter/ASCIIHexDecode",
                      hex(header + bodies));
  const std::size_t at = document.text.size();
  std::string rows;  // of one byte for the kind, two for the place, one for the index
  const auto add_row = [&](int kind, std::size_t place, int index) {
    rows += {static_cast<char>(kind), static_cast<char>(place >> 8), static_cast<char>(place),
             static_cast<char>(index)};
  };
  for (int i = 0; i < 4; ++i) add_row(2, 5, i);
  add_row(1, document.offsets[5], 0);
  add_row(1, at, 0);
  document.add_stream(
      6, "/Type/XRef/W[1 2 1]/Index[1 6]/Size 7/Root 1 0 R/Filter/ASCIIHexDecode" + entries,
      hex(rows));
  document.end_at(at);
  return document;
}

// What is found in a document: its pages' markers, "-" for one that is not there, or the status.
std::string markers(const Bytes& bytes, bool* repaired = nullptr) {
  MemoryFile memory(bytes);
  File file;
  const Status opened = file.open(MemoryFile::kHandle);
  if (opened.failed()) return std::to_string(opened.raw());
  std::int32_t count = 0;
  EXPECT_EQ(pdf::page::count_pages(file, count), kOk);
  std::string result;
  for (std::int32_t i = 0; i < count; ++i) {
    pdf::page::Page page;
    const Status found = pdf::page::find_page(file, i, page);
    if (found.ok()) {
      result += std::to_string(page.object.value()["Marker"].integer()) + " ";
    } else {
      EXPECT_EQ(found, StatusCode::no_such_page);
      result += "- ";
    }
  }
  pdf::page::Page page;
  const Status behind = pdf::page::find_page(file, count, page);
  EXPECT_EQ(behind, count > 0 ? StatusCode::page_past_end : StatusCode::no_such_page);
  if (repaired != nullptr) *repaired = file.is_repaired();
  return result;
}
std::string markers(const PdfDocument& document, bool* repaired = nullptr) {
  return markers(document.bytes(), repaired);
}

TEST(PdfFile, NewerSectionsAndStreamsCount) {
  struct Case {
    const char* name;
    std::function<PdfDocument()> make;
    const char* markers;
  };
  const Case cases[] = {
      {"a table",
       [] {
         PdfDocument document = two_pages();
         document.add_table("/Size 5/Root 1 0 R");
         return document;
       },
       "10 20 "},
      {"a new page, and an old one deleted",
       [] {
         PdfDocument document = two_pages();
         const std::size_t old = document.add_table("/Size 5/Root 1 0 R");
         document.add(2, "<</Type/Pages/Kids[4 0 R 5 0 R 3 0 R]/Count 3>>");
         document.add(5, page(30));
         document.text += "xref\n3 1\n0000000000 00001 f \n2 1\n";
         document.text += "0000000" + std::to_string(document.offsets[2]) + " 00000 n\r\n5 1\n";
         document.text += "0000000" + std::to_string(document.offsets[5]) + " 00000 n\r\n";
         const std::size_t at = document.text.rfind("xref");
         document.text += "trailer <</Size 6/Prev " + std::to_string(old) + "/Root 1 0 R>>\n";
         document.end_at(at);
         return document;
       },
       "20 30 - "},
      {"streams", [] { return compressed(); }, "10 20 "},
      {"a newer section over streams",
       [] {
         PdfDocument document = compressed();
         const std::size_t old = document.text.rfind("6 0 obj");
         document.add(3, page(11));
         document.add_table("/Size 7/Root 1 0 R/Prev " + std::to_string(old));
         return document;
       },
       "11 20 "},
      {"a hybrid: the table hides what the stream has",
       [] {
         PdfDocument document = compressed();
         const std::size_t stream = document.text.rfind("6 0 obj");
         document.offsets.clear();
         document.add(4, page(21));
         document.add_table("/Size 7/Root 1 0 R/XRefStm " + std::to_string(stream));
         return document;
       },
       "10 21 "},
      {"a ring of sections",
       [] {
         PdfDocument document = two_pages();
         document.add_table("/Size 5/Root 1 0 R/Prev " + std::to_string(document.text.size()));
         return document;
       },
       "10 20 "},
      {"a table that counts from 1",
       [] {
         PdfDocument document = two_pages();
         const std::size_t at = document.text.size();
         document.text += "xref\n1 5\n0000000000 65535 f\n";
         for (int i = 1; i < 5; ++i) {  // lines of 19 bytes
           const std::string offset = std::to_string(document.offsets[i]);
           document.text += std::string(10 - offset.size(), '0') + offset + " 00000 n\n";
         }
         document.text += "trailer<</Root 1 0 R/Size 5>>";
         document.end_at(at);
         return document;
       },
       "10 20 "},
  };
  for (const auto& [name, make, expected] : cases) {
    bool repaired = true;
    const PdfDocument document = make();
    EXPECT_EQ(markers(document, &repaired), expected) << name;
    EXPECT_FALSE(repaired) << name;
    // With something in front, offsets count from the header, or from the start of the file.
    PdfDocument moved;
    moved.text = std::string(700, 'x') + "\n" + document.text;
    EXPECT_EQ(markers(moved, &repaired), expected) << name;
    EXPECT_FALSE(repaired) << name;
  }
}

TEST(PdfFile, DamagedTablesAreMadeAnew) {
  const auto table = [](PdfDocument document) {
    document.add_table("/Size 5/Root 1 0 R");
    return document.text;
  };
  const auto replaced = [](std::string text, const std::string& what, const std::string& by) {
    const std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return text.replace(at, what.size(), by);
  };
  const std::string whole = table(two_pages()), streams = compressed().text;
  const std::string inner = table(two_pages());
  PdfDocument around = two_pages();
  around.add_stream(9, "/Type/EmbeddedFile", inner + "\n3 0 obj" + page(99) + "endobj\n");
  const std::pair<std::string, const char*> cases[] = {
      {replaced(whole, "startxref", "startyref"), "10 20 "},
      {replaced(whole, "trailer", "trailor"), "10 20 "},
      {whole.substr(0, whole.find("xref")), "10 20 "},
      {replaced(whole, "/Root 1 0 R", "/Root 3 9 R"), "10 20 "},  // not a catalog: has no pages
      {replaced(whole, "\n3 0 obj", "\n\n\n3 0 obj"), "10 20 "},  // all offsets behind it
      {whole.substr(0, whole.find("4 0 obj")), "10 - "},
      // The last one of a number; numbers right behind endobj.
      {replaced(whole, "xref\n0",
                "3 0 obj" + page(12) + "endobj4 0 obj" + page(22) + "endobj xref 0"),
       "12 22 "},
      {replaced(streams, "startxref", "startyref"), "10 20 "},
      {streams.substr(0, streams.rfind("6 0 obj")), "10 20 "},  // the catalog is in the stream
      {replaced(streams, "startxref", "3 0 obj" + page(13) + "endobj"), "13 20 "},
      // A document that is attached to this one.
      {around.text, "10 20 "},
      {replaced(whole.substr(0, whole.find("xref")), "/Catalog", "/Katalog"), "10 20 "},
      {"%PDF-1.4\n" + std::string(3000, ' ') + "5 0 obj", "-3"},
      {"%PDF-1.4", "-3"},
      {"P" + whole.substr(5), "-3"},
  };
  for (const auto& [text, expected] : cases) {
    bool repaired = true;
    EXPECT_EQ(markers(Bytes(text.begin(), text.end()), &repaired), expected)
        << text.substr(0, 2000);
    EXPECT_TRUE(repaired);
  }
}

TEST(PdfFile, TreesOfPagesEndSomewhere) {
  struct Case {
    std::map<int, std::string> objects;
    const char* markers;
  };
  std::map<int, std::string> deep = {{1, kCatalog}};
  for (int i = 2; i < 100; ++i) deep[i] = "<</Kids[" + std::to_string(i + 1) + " 0 R]/Count 1>>";
  deep[100] = page(5);
  const Case cases[] = {
      // Kinds by what nodes have, counts that lie.
      {{{1, kCatalog},
        {2, "<</Kids 9 0 R/Count 2147483648>>"},
        {9, "[3 0 R 4 0 R 5 0 R (x) 3 0 R]"},
        {3, "<</Marker 1>>"},
        {4, "<</Type/Pages>>"},
        {5, "<</Kids[6 0 R 2 0 R 5 0 R]/Count -4>>"},
        {6, page(2)}},
       "1 2 1 "},
      // A page may be listed again, a node may not; kids may stand in the list.
      {{{1, kCatalog},
        {2, "<</Count 6/Kids[3 0 R 4 0 R " + page(3) + "<</Kids[3 0 R" + page(4) +
                "]/Count 2>>3 0 R]>>"},
        {3, page(1)},
        {4, "<</Kids[5 0 R]/Count 1>>"},
        {5, page(2)}},
       "1 2 3 1 4 1 "},
      // As many kids as pages, but not one each.
      {{{1, kCatalog},
        {2, "<</Kids[3 0 R 4 0 R 7 0 R]/Count 3>>"},
        {3, "<</Kids[5 0 R 6 0 R]/Count 2>>"},
        {4, "<</Type/Pages/Kids[]/Count 0>>"},
        {5, page(1)},
        {6, page(2)},
        {7, page(3)}},
       "1 2 3 "},
      {{{1, kCatalog}, {2, page(7)}}, "7 "},
      {deep, ""},
  };
  for (const auto& [objects, expected] : cases) {
    PdfDocument document;
    for (const auto& [number, value] : objects) document.add(number, value);
    document.add_table("/Size 200/Root 1 0 R");
    EXPECT_EQ(markers(document), expected);
  }
}

TEST(PdfFile, PagesHaveWhatTheNodesAboveThemSay) {
  PdfDocument document;
  document.add(1, kCatalog);
  document.add(
      2, "<</Kids[3 0 R 6 0 R]/Count 3/MediaBox[600 800 0 5 0 R]/Rotate -90/Resources 7 0 R>>");
  document.add(3, "<</Kids[4 0 R 8 0 R]/Count 2/Rotate 180/CropBox[10 -20 5000 700]>>");
  document.add(4, "<</Rotate 45/UserUnit 2.5>>");
  document.add(5, "10");
  document.add(6, "<</MediaBox[1 1 1 5]/CropBox[9 9 9 9]/Resources<</A 1>>>>");
  document.add(7, "<</A 2>>");
  document.add(8, "<</CropBox[-9 -9 -1 -1]/Rotate 720>>");
  document.add_table("/Size 9/Root 1 0 R");
  const MemoryFile memory(document.bytes());
  File file;
  ASSERT_EQ(file.open(MemoryFile::kHandle), kOk);
  const struct {
    double left, bottom, right, top;
    int rotate;
    double unit;
    int resources;
  } expected[] = {
      {10, 10, 600, 700, 0, 2.5, 2}, {0, 10, 600, 800, 0, 1, 2}, {0, 0, 612, 792, 270, 1, 1}};
  for (int i = 0; i < 3; ++i) {
    pdf::page::Page page;
    ASSERT_EQ(pdf::page::find_page(file, i, page), kOk);
    const auto& [left, bottom, right, top, rotate, unit, resources] = expected[i];
    EXPECT_EQ(std::tuple(page.box.left, page.box.bottom, page.box.right, page.box.top),
              std::tuple(left, bottom, right, top));
    EXPECT_EQ(page.rotate, rotate);
    EXPECT_EQ(page.user_unit, unit);
    EXPECT_EQ(page.resources.value()["A"].integer(), resources);
  }
}

// The bytes of object 3.
std::string stream_bytes(const PdfDocument& document) {
  const MemoryFile memory(document.bytes());
  File file;
  Object object;
  StreamSource source;
  EXPECT_EQ(file.open(MemoryFile::kHandle), kOk);
  EXPECT_EQ(file.fetch({3, 0}, object), kOk);
  if (!object.is_stream()) return "none";
  EXPECT_EQ(source.open(file, object), kOk);
  std::string result;
  for (auto piece = source.next_piece(); !piece.empty(); piece = source.next_piece()) {
    result.append(piece.begin(), piece.end());
  }
  return result;
}

TEST(PdfFile, StreamsEndWhereTheyEndWhateverTheirLengthSays) {
  const std::string data = "some\nendstrea bytes\n" + std::string(100000, 'x');
  for (const char* length : {"", "7 0 R", "8 0 R", "3 0 R", "9 0 R", "17", "0", "-1", "4000000000",
                             "(x)", "100020 0 R"}) {
    PdfDocument document = two_pages();
    document.add_stream(3, "", data, length);
    document.add(7, std::to_string(data.size()));
    document.add(8, "5");
    document.add_table("/Size 9/Root 1 0 R");
    EXPECT_EQ(stream_bytes(document), data) << length;
  }
  const std::pair<const char*, const char*> ends[] = {
      {"<</Length 3>>stream\r\nabc\r\nendstream", "abc"},
      {"<</Length 9>>stream\rabc\rendstream", "abc"},
      {"<</Length 9>> stream  \nabcendstream", "abc"},
      {"<<>>\nstream\nab\n\r\nendstream", "ab\n"},
      {"<</Length 4>>stream\nab\r\nendstream", "ab\r\n"},
      {"<<>>\nstream\nabc", "abc"},
      {"<<>>\nstream\nendstream", ""},
  };
  for (const auto& [object, bytes] : ends) {
    PdfDocument document = two_pages();
    document.add(3, object);
    document.add_table("/Size 9/Root 1 0 R");
    EXPECT_EQ(stream_bytes(document), bytes) << object;
  }
}

TEST(PdfFile, LongObjectsComeWhole) {
  for (const int kids : {100, 200, 20000}) {
    PdfDocument document;
    document.add(1, kCatalog);
    std::string list;
    for (int i = 0; i < kids; ++i) list += "null (x) ";
    document.add(2, "<</Type/Pages/Kids[3 0 R " + list + "4 0 R]>>");
    document.add(3, page(10));
    document.add(4, page(20));
    document.add_table("/Size 5/Root 1 0 R");
    EXPECT_EQ(markers(document), "10 20 ") << kids;
  }
}

}  // namespace
}  // namespace tq::test
