// Documents byte by byte against a plain model of their layout; what pages are not added to; the
// library's own reader.
#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <map>
#include <string>

#include "core/memory.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pdf/pdf.h"
#include "tests/support/ccitt_model.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

using formats::can_append_pdf;
using formats::decode_pdf;
using formats::encode_pdf;

struct Picture {
  std::int32_t width, height;
  int bits;
  std::string placement{};  // the numbers of its line of contents
};

HeaderBlock header_of(const Picture& picture) {
  HeaderBlock block = dib_header(picture.width, picture.height, picture.bits);
  for (int i = 0; picture.bits <= 8 && i < 1 << picture.bits; ++i) {
    const auto grey = static_cast<std::uint8_t>(i * 255 / ((1 << picture.bits) - 1));
    block.palette[static_cast<std::size_t>(i)] = {grey, grey, grey, 0};
  }
  return block;
}

Page page_of(const Picture& picture) {
  return printed_page(picture.width, picture.height, 20, static_cast<unsigned>(picture.width));
}

std::vector<Bytes> rows_of(const Picture& picture) {
  std::vector<Bytes> rows;
  if (picture.bits == 1) {
    for (const Pixels& row : page_of(picture)) rows.push_back(row_bits(row));
    return rows;
  }
  for (int y = 0; y < picture.height; ++y) {
    Bytes row(static_cast<std::size_t>(row_bytes(picture.width, picture.bits)));
    for (std::size_t i = 0; i < row.size(); ++i) {
      row[i] = static_cast<std::uint8_t>(7 * i + 31 * static_cast<std::size_t>(y));
    }
    rows.push_back(row);
  }
  return rows;
}

// A 1-bit row fills more room than it needs.
class Rows {
 public:
  explicit Rows(std::vector<Bytes> rows) : rows_(std::move(rows)) {}
  formats::RowSupplier supplier() { return {on_row, this}; }
  std::int32_t failed_row = -1;

 private:
  static std::int32_t IMG_CB_C on_row(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes) {
    const auto& self = *static_cast<const Rows*>(context);
    if (y == self.failed_row) return -777;
    const Bytes& row = self.rows_.at(static_cast<std::size_t>(y));
    const std::size_t count = std::min(row.size(), static_cast<std::size_t>(bytes));
    std::copy_n(row.begin(), count, static_cast<std::uint8_t*>(dest));
    return 0;
  }
  std::vector<Bytes> rows_;
};

Status save(StreamHandle stream, const Picture& picture) {
  HeaderBlock header = header_of(picture);
  Rows rows(rows_of(picture));
  return encode_pdf({stream, &header, rows.supplier()});
}

std::string pixels_of(const Picture& picture) {
  static std::map<std::array<int, 3>, Bytes> known;
  Bytes& bytes = known[{picture.width, picture.height, picture.bits}];
  if (!bytes.empty()) return {bytes.begin(), bytes.end()};
  if (picture.bits == 1) {
    bytes = ccitt_by_model({}, page_of(picture));
  } else {
    HeaderBlock header = header_of(picture);
    Rows rows(rows_of(picture));
    const MemoryFile file;
    EXPECT_EQ(formats::encode_jpeg({MemoryFile::kHandle, &header, rows.supplier()}), kOk);
    bytes = file.bytes;
  }
  return {bytes.begin(), bytes.end()};
}

// The layout, written down once more: pages, each complete with its own catalog, tree and table.
std::string document_of(const std::vector<Picture>& pictures) {
  std::string file = "%PDF-1.2\r\n";
  std::vector<std::size_t> offsets(1 + 7 * pictures.size());
  for (std::size_t n = 0; n < pictures.size(); ++n) {
    const Picture& picture = pictures[n];
    const auto number = [&](std::size_t object) { return std::to_string(7 * n + object); };
    const auto begin = [&](std::size_t object) {
      offsets[7 * n + object] = file.size();
      file += number(object) + " 0 obj\r\n";
    };
    const auto side = [](std::int32_t pixels) { return std::to_string(pixels); };
    const std::string name = "/Tarnquill" + std::to_string(n);

    begin(5);
    file += "<<\r\n/Type /XObject\r\n/Subtype /Image\r\n/Name " + name + "\r\n/Width " +
            side(picture.width) + "\r\n/Height " + side(picture.height) + "\r\n";
    file += picture.bits == 1
                ? "/BitsPerComponent 1\r\n/ColorSpace /DeviceGray\r\n/Filter /CCITTFaxDecode\r\n"
                  "/DecodeParms <<\r\n/K -1\r\n/Columns " +
                      side(picture.width) + " /Rows " + side(picture.height) +
                      "\r\n/EndOfBlock false\r\n/EndOfLine false\r\n"
                      "/EncodedByteAlign false\r\n>>\r\n"
                : "/BitsPerComponent 8\r\n/ColorSpace /DeviceRGB\r\n/Filter /DCTDecode\r\n";
    const std::string pixels = pixels_of(picture);
    file += "/Length " + number(6) + " 0 R\r\n>>\r\nstream\r\n" + pixels +
            "\r\nendstream\r\nendobj\r\n";
    begin(6);
    file += std::to_string(pixels.size()) + "\r\nendobj\r\n";
    begin(1);
    file += "<<\r\n/Type /Catalog\r\n/Pages " + number(3) + " 0 R\r\n>>\r\nendobj\r\n";
    begin(2);
    file += "[ /PDF /ImageB  ]\r\nendobj\r\n";
    begin(7);
    file += "<< /Length 52 >>\r\nstream\r\n" + picture.placement + " cm\r\n" + name +
            " Do\r\nendstream\r\nendobj\r\n";
    begin(4);
    file += "<<\r\n/Type /Page\r\n/Parent " + number(3) +
            " 0 R\r\n/Resources <<\r\n/XObject <<\r\n" + name + " " + number(5) +
            " 0 R\r\n>>\r\n/ProcSet " + number(2) + " 0 R\r\n>>\r\n/Contents " + number(7) +
            " 0 R\r\n>>\r\nendobj\r\n";
    begin(3);
    file += "<<\r\n/Type /Pages\r\n/Kids [";
    for (std::size_t k = 0; k <= n; ++k) file += std::to_string(7 * k + 4) + " 0 R \r\n";
    file += "]\r\n/Count " + std::to_string(n + 1) +
            "\r\n/MediaBox [ 0 0 612 792 ]\r\n>>\r\nendobj\r\n";
    const std::size_t table = file.size();
    file += "xref\r\n0 " + number(8) + "\r\n0000000000 65535 f\r\n";
    for (std::size_t object = 1; object <= 7 * n + 7; ++object) {
      const std::string digits = std::to_string(offsets[object]);
      file += std::string(10 - digits.size(), '0') + digits + " 00000 n\r\n";
    }
    file += "trailer\r\n<<\r\n/Size " + number(8) + "\r\n/Root " + number(1) +
            " 0 R\r\n>>\r\nstartxref\r\n" + std::to_string(table) + "\r\n%%EOF\r\n";
  }
  return file;
}

std::string text(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}
Bytes bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

TEST(PdfWrite, DocumentsAreThoseOfTheModel) {
  const std::vector<Picture> pictures = {
      {300, 200, 1, "000300 0 0 000200    156    296"},
      {300, 200, 8, "000300 0 0 000200    156    296"},
      {611, 791, 1, "000611 0 0 000791      0      0"},
      {612, 791, 1, "000612 0 0 000791      0      0"},
      {20, 792, 1, "000020 0 0 000792    296      0"},
      {1224, 1584, 24, "000612 0 0 000792      0      0"},
      {1, 1, 32, "000001 0 0 000001    305    395"},
      {2000, 3, 1, "000612 0 0 000000      0    396"},
      {2, 4000, 8, "000000 0 0 000792    306      0"},
      {1000, 900, 1, "000612 0 0 000550      0    121"},
      {700, 1000, 1, "000554 0 0 000792     29      0"},
      {30, 40, 1, "000030 0 0 000040    291    376"},
  };
  std::vector<Picture> so_far;
  std::string before;
  for (const Picture& picture : pictures) {
    so_far.push_back(picture);
    const std::string document = document_of(so_far);
    const MemoryFile file(bytes_of(before));
    ASSERT_EQ(save(MemoryFile::kHandle, picture), kOk);
    ASSERT_EQ(text(file.bytes), document);
    before = document;
  }
}

// Old offsets are read entry by entry, however long the table is.
TEST(PdfWrite, PagesAreAddedToLongDocuments) {
  const Picture picture{8, 8, 1, "000008 0 0 000008    302    392"};
  const std::vector<Picture> pictures(600, picture);
  MemoryFile file(bytes_of(document_of(std::vector<Picture>(599, picture))));
  ASSERT_EQ(save(MemoryFile::kHandle, picture), kOk);
  EXPECT_EQ(text(file.bytes), document_of(pictures));
}

TEST(PdfWrite, AStreamOfLessThan200BytesIsStartedAnew) {
  const Picture picture{8, 8, 1, "000008 0 0 000008    302    392"};
  MemoryFile file(Bytes(199, 'x'));
  EXPECT_EQ(can_append_pdf(MemoryFile::kHandle), kOk);
  ASSERT_EQ(save(MemoryFile::kHandle, picture), kOk);
  EXPECT_EQ(text(file.bytes), document_of({picture}));
}

// The memory stream's size is its position.
TEST(PdfWrite, MemoryHoldsANewDocumentFromItsStart) {
  const Picture picture{8, 8, 1, "000008 0 0 000008    302    392"};
  Bytes block(5000, 'x');
  open_memory_stream(block.data(), block.size());
  ASSERT_EQ(save(kMemoryStream, picture), kOk);
  const std::string document = document_of({picture});
  EXPECT_EQ(text(block).substr(0, document.size()), document);
  EXPECT_EQ(memory_position(), static_cast<std::int32_t>(document.size()));
}

std::string replaced(std::string in, const std::string& what, const std::string& by) {
  const std::size_t at = in.rfind(what);
  EXPECT_NE(at, std::string::npos) << what;
  return in.replace(at, what.size(), by);
}

TEST(PdfWrite, OtherDocumentsAreRefusedUntouched) {
  const Picture picture{8, 8, 1, "000008 0 0 000008    302    392"};
  const std::string own = document_of({picture, picture});
  const std::pair<const char*, std::string> cases[] = {
      {"no document", std::string(200, 'x')},
      {"another beginning", replaced(own, "%PDF", "%PDG")},
      {"no end", replaced(own, "%%EOF", "%%EOG")},
      {"no offset of the table", replaced(own, "startxref", "startxreg")},
      {"no number", replaced(own, "startxref\r\n", "startxref\r\nA")},
      {"offset far away", replaced(own, "startxref\r\n", "startxref\r\n9999999999")},
      {"offset somewhere else", replaced(own, "startxref\r\n1", "startxref\r\n2")},
      {"table of a part", replaced(own, "xref\r\n0 15", "xref\r\n1 15")},
      {"no table of seven objects a page", replaced(own, "xref\r\n0 15", "xref\r\n0 14")},
      {"a table of one", replaced(own, "xref\r\n0 15", "xref\r\n0 01")},
      {"a table beyond the file", replaced(own, "xref\r\n0 15", "xref\r\n0 700000001")},
      {"another root", replaced(own, "/Root 8", "/Root 1")},
      {"no root", replaced(own, "/Root 8", "/Toor 8")},
      {"a free object", replaced(own, "00000 n\r\ntrailer", "00000 f\r\ntrailer")},
      {"a broken offset", replaced(own, " 00000 n\r\ntrailer", "a00000 n\r\ntrailer")},
      {"an offset behind the end", replaced(own, "65535 f\r\n0", "65535 f\r\n9")},
      {"a cut document", own.substr(0, own.size() - 60)},
  };
  for (const auto& [what, content] : cases) {
    MemoryFile file(bytes_of(content));
    EXPECT_EQ(can_append_pdf(MemoryFile::kHandle), StatusCode::bad_image) << what;
    EXPECT_EQ(save(MemoryFile::kHandle, picture), StatusCode::bad_image) << what;
    EXPECT_EQ(text(file.bytes), content) << what;
  }
  // Every damage that is taken for a document gives one, and none goes further than a status.
  for (std::size_t i = 0; i < own.size(); ++i) {
    std::string damaged = own;
    damaged[i] = damaged[i] == '9' ? 'z' : '9';
    const MemoryFile file(bytes_of(damaged));
    const Status saved = save(MemoryFile::kHandle, picture);
    EXPECT_TRUE(saved.ok() || saved == StatusCode::bad_image) << i;
    EXPECT_EQ(text(file.bytes).compare(0, damaged.size(), damaged), 0) << i;
  }
}

TEST(PdfWrite, FailuresAreReportedAndLeakNothing) {
  const Picture picture{40, 30, 1, "000040 0 0 000030    286    381"};
  const std::string before = document_of({picture});
  const std::size_t added = document_of({picture, picture}).size() - before.size();
  HeaderBlock header = header_of(picture);
  Rows rows(rows_of(picture));
  Bytes block(before.size() + added);
  const auto append = [&](std::size_t room) {
    std::copy(before.begin(), before.end(), block.begin());
    open_memory_stream(block.data(), before.size() + room);
    set_memory_position(static_cast<std::int32_t>(before.size()));
    return encode_pdf({kMemoryStream, &header, rows.supplier()});
  };
  EXPECT_EQ(append(added), kOk);
  for (std::size_t room = 0; room < added; ++room) {
    ASSERT_EQ(append(room), StatusCode::write_failed) << room;
  }
  rows.failed_row = 17;
  EXPECT_EQ(append(added).raw(), -777);
  rows.failed_row = -1;
  bool refused = true;
  for (int count = 0; refused; ++count) {
    memory_probe::refuse_after(count);
    const Status status = append(added);
    refused = memory_probe::refused();
    memory_probe::refuse_after(-1);
    EXPECT_EQ(status.raw(), refused ? -1 : 0);
    EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  }
  const MemoryFile file;
  EXPECT_EQ(save(MemoryFile::kHandle, {5, 5, 4}), StatusCode::wrong_depth);
}

// ---- Reading ------------------------------------------------------------------------------------

// A document as the reader wants it: the first page's object number, taken for a place in the file,
// lies before a name that ends in the number of the picture's object.
struct Patched {
  std::string picture = "/Filter /CCITTFaxDecode /Width 40 /Height 30 /BitsPerComponent 1";
  std::string pixels{};
  std::string kid = "2";
  std::string name = "/Tarnquill5";
  std::string end = "%%EOF\r\n";
  std::string root = "/Root 1 0 R";
};

std::string patched(const Patched& given) {
  std::string file = "%PDF-1.2\r\n" + given.name + "\r\n";
  std::vector<std::size_t> offsets = {0};
  const auto object = [&](const std::string& content) {
    offsets.push_back(file.size());
    file += std::to_string(offsets.size() - 1) + " 0 obj\r\n<< " + content;
  };
  object("/Type /Catalog /Pages 3 0 R >>\r\nendobj\r\n");
  object("/Type /Page >>\r\nendobj\r\n");
  object("/Type /Pages /Kids [" + given.kid + " 0 R] >>\r\nendobj\r\n");
  object(">>\r\nendobj\r\n");
  object(given.picture + " >>\r\nstream\r\n" + given.pixels + "\r\nendstream\r\nendobj\r\n");
  const std::size_t table = file.size();
  file += "xref\r\n0 6\r\n0000000000 65535 f\r\n";
  for (std::size_t i = 1; i < offsets.size(); ++i) {
    char entry[32];
    std::snprintf(entry, sizeof entry, "%010u 00000 n\r\n", static_cast<unsigned>(offsets[i]));
    file += entry;
  }
  return file + "trailer\r\n<<\r\n" + given.root + "\r\n>>\r\n" + std::string(150, ' ') +
         "\r\nstartxref\r\n" + std::to_string(table) + "\r\n" + given.end;
}

Status read(const std::string& content, CollectingSink& sink) {
  const MemoryFile file(bytes_of(content));
  return decode_pdf({MemoryFile::kHandle, 0, sink.sink()});
}

TEST(PdfRead, APatchedDocumentGivesItsPicture) {
  const Picture black_and_white{40, 30, 1};
  CollectingSink sink;
  ASSERT_EQ(read(patched({.pixels = pixels_of(black_and_white)}), sink), kOk);
  EXPECT_EQ(sink.image(), rows_of(black_and_white));
  EXPECT_EQ(sink.header.header.biBitCount, 1);
  EXPECT_EQ(sink.header.palette[0], (Rgb{0, 0, 0, 0}));
  EXPECT_EQ(sink.header.palette[1], (Rgb{255, 255, 255, 0}));

  const Picture colour{40, 30, 24};
  CollectingSink jpeg_sink;
  ASSERT_EQ(
      read(patched({.picture = "/Filter /DCTDecode", .pixels = pixels_of(colour)}), jpeg_sink),
      kOk);
  EXPECT_EQ(jpeg_sink.header.header.biWidth, 40);
  EXPECT_EQ(jpeg_sink.header.header.biBitCount, 24);
  EXPECT_EQ(jpeg_sink.rows.size(), 30u);
}

TEST(PdfRead, BrokenPixelsLeaveTheRowsBefore) {
  const Picture picture{40, 30, 1};
  const std::string pixels = pixels_of(picture);
  CollectingSink sink;
  ASSERT_EQ(read(patched({.pixels = pixels.substr(0, 20) + std::string(40, '\0')}), sink), kOk);
  const auto expected = rows_of(picture);
  ASSERT_GE(sink.rows.size(), 3u);
  ASSERT_LT(sink.rows.size(), 30u);
  for (std::size_t y = 0; y < sink.rows.size(); ++y) EXPECT_EQ(sink.rows[y].bytes, expected[y]);
}

TEST(PdfRead, EverythingElseIsRefused) {
  const Picture picture{40, 30, 1};
  const std::string pixels = pixels_of(picture);
  const std::string good = patched({.pixels = pixels});
  const std::string sides = "/Filter /CCITTFaxDecode /Width ";
  struct Case {
    const char* what;
    std::string content;
    std::int32_t status;
  } const cases[] = {
      {"a document of the writer's: its picture's name ends in 0, which is a free object",
       document_of({picture}), -3},
      {"two pages", document_of({picture, picture}), -3},
      {"less than 200 bytes", good.substr(good.size() - 199), -3},
      {"no '%' at the end", replaced(good, "%%EOF", "EOF"), -3},
      {"none of the letters", replaced(good, "%%EOF", "%%FEO"), -3},
      {"one of the letters is enough", replaced(good, "%%EOF", "%%xOx"), 0},
      {"a table offset that is no number: the document's beginning",
       replaced(good, "startxref\r\n", "startxref\r\nx"), -3},
      {"a table offset behind the end", replaced(good, "startxref\r\n", "startxref\r\n9999"), -3},
      {"no entries", replaced(good, "xref\r\n0 6", "xref\r\n0 0"), -3},
      {"more entries than bytes", replaced(good, "xref\r\n0 6", "xref\r\n0 99999999999"), -3},
      {"an entry of another type", replaced(good, "00000 n\r\ntrailer", "00000 m\r\ntrailer"), -3},
      {"the picture is free", replaced(good, "00000 n\r\ntrailer", "00000 f\r\ntrailer"), -3},
      {"no trailer", replaced(replaced(good, "trailer", "TRAILER"), "startxref", "STARTXREF"), -3},
      {"a root beyond the table", patched({.pixels = pixels, .root = "/Root 6 0 R"}), -3},
      {"a free root", patched({.pixels = pixels, .root = "/Root 0 0 R"}), -3},
      {"no root", patched({.pixels = pixels, .root = "/Tree 1 0 R"}), -3},
      {"a page tree without pages", replaced(good, "/Kids", "/Dogs"), -3},
      {"a first page beyond the table", patched({.pixels = pixels, .kid = "77"}), -3},
      {"no name", patched({.pixels = pixels, .name = "/Picture5"}), -3},
      {"a picture beyond the table", patched({.pixels = pixels, .name = "/Tarnquill6"}), -3},
      {"neither kind", patched({.picture = "/Filter /FlateDecode", .pixels = pixels}), -8},
      {"no width", patched({.picture = sides + "0 /Height 30", .pixels = pixels}), -3},
      {"no height", patched({.picture = sides + "40", .pixels = pixels}), -3},
      {"too wide", patched({.picture = sides + "65534 /Height 1", .pixels = pixels}), -3},
      {"an endless number", patched({.picture = sides + std::string(500, '9')}), -3},
      {"no JPEG", patched({.picture = "/Filter /DCTDecode", .pixels = "no JPEG"}), -3},
  };
  for (const Case& given : cases) {
    CollectingSink sink;
    EXPECT_EQ(read(given.content, sink).raw(), given.status) << given.what;
  }
}

TEST(PdfRead, CutsFailuresAndDamageGiveAStatus) {
  const Picture picture{40, 30, 1};
  const std::string good = patched({.pixels = pixels_of(picture)});
  for (std::size_t size = 0; size <= good.size(); ++size) {
    CollectingSink sink;
    static_cast<void>(read(good.substr(0, size), sink));
  }
  for (std::size_t i = 0; i < 8 * good.size(); ++i) {
    std::string damaged = good;
    damaged[i / 8] = static_cast<char>(damaged[i / 8] ^ 1 << i % 8);
    CollectingSink sink;
    static_cast<void>(read(damaged, sink));
  }
  CollectingSink stopping;
  stopping.header_answer = -18;
  EXPECT_EQ(read(good, stopping).raw(), -18);
  bool refused = true;
  for (int count = 0; refused; ++count) {
    CollectingSink sink;
    memory_probe::refuse_after(count);
    const Status status = read(good, sink);
    refused = memory_probe::refused();
    memory_probe::refuse_after(-1);
    EXPECT_EQ(status.raw(), refused ? -1 : 0);
    EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  }
}

}  // namespace
}  // namespace tq::test
