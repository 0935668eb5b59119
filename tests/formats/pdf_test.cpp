// Documents as they are written; what pages are not added to; the library's own reader.
#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "core/memory.h"
#include "formats/fax.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pdf/pdf.h"
#include "tests/support/bmp_file.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/digest.h"
#include "tests/support/fax_page.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

struct Picture {
  std::int32_t width, height;
  int bits;
};
constexpr Picture kSmall{40, 30, 1};

Status can_append() {
  formats::AppendPlace place;
  return pdf::can_append(MemoryFile::kHandle, place);
}

std::vector<Bytes> rows_of(const Picture& picture) {
  const auto [width, height, bits] = picture;
  if (bits == 1) return bits_of(printed_page(width, height, 20, static_cast<unsigned>(height)));
  const Bytes row(static_cast<std::size_t>(row_bytes(width, bits)), 90);
  return std::vector(static_cast<std::size_t>(height), row);
}

Status encode(formats::Encoder encoder, const Picture& picture) {
  HeaderBlock header = dib_header(picture.width, picture.height, picture.bits);
  GivenRows rows(rows_of(picture));
  return encoder({MemoryFile::kHandle, &header, rows.supplier()});
}

Status save(const Picture& picture) {
  return encode(pdf::encode, picture);
}

std::string text(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

std::string pixels_of(const Picture& picture) {
  const MemoryFile file;
  if (picture.bits == 1) {
    GivenRows rows(rows_of(picture));
    StreamWriter out;
    EXPECT_EQ(out.open(MemoryFile::kHandle), kOk);
    const formats::FaxStrip strip{.width = picture.width, .rows = picture.height};
    EXPECT_EQ(encode_fax_strip(out, strip, rows.supplier()), kOk);
    EXPECT_EQ(out.flush(), kOk);
  } else {
    EXPECT_EQ(encode(jpeg::encode_jpeg, picture), kOk);
  }
  return text(file.bytes);
}

std::string document_of(const std::vector<Picture>& pictures) {
  const MemoryFile file;
  for (const Picture& picture : pictures) EXPECT_EQ(save(picture), kOk);
  return text(file.bytes);
}

TEST(PdfWrite, PagesHoldTheirPictureInTheMiddleAsLargeAsItFits) {
  const std::pair<Picture, const char*> cases[] = {
      {{300, 200, 1}, "000300 0 0 000200    156    296"},
      {{300, 200, 8}, "000300 0 0 000200    156    296"},
      {{611, 791, 1}, "000611 0 0 000791      0      0"},
      {{612, 791, 1}, "000612 0 0 000791      0      0"},
      {{20, 792, 1}, "000020 0 0 000792    296      0"},
      {{1224, 1584, 24}, "000612 0 0 000792      0      0"},
      {{1, 1, 32}, "000001 0 0 000001    305    395"},
      {{2000, 3, 1}, "000612 0 0 000000      0    396"},
      {{2, 4000, 8}, "000000 0 0 000792    306      0"},
      {{1000, 900, 1}, "000612 0 0 000550      0    121"},
      {{700, 1000, 1}, "000554 0 0 000792     29      0"},
      {{30, 40, 1}, "000030 0 0 000040    291    376"},
  };
  for (const auto& [picture, placement] : cases) {
    const std::string document = document_of({picture});
    EXPECT_NE(document.find("\n" + std::string(placement) + " cm\r\n"), std::string::npos);
    const std::string pixels = "stream\r\n" + pixels_of(picture) + "\r\nendstream";
    const std::size_t at = document.find(pixels);
    ASSERT_NE(at, std::string::npos) << placement;
    const std::string front = document.substr(0, at);
    EXPECT_NE(front.find(picture.bits == 1 ? "/CCITTFaxDecode" : "/DCTDecode"), std::string::npos);
  }
}

// Every byte of documents whose pages hold no JPEG data. The digests are those of a plain model of
// the layout; qpdf and poppler look at such documents in tests/tool. Old offsets are read entry by
// entry, however long the table is.
TEST(PdfWrite, DocumentsOfAnyLengthKeepTheirLayout) {
  const std::pair<std::size_t, std::uint64_t> cases[] = {
      {1, 0xA5264ABFB913EC96}, {2, 0xBC1722988894D268}, {100, 0x12BB86E6E6CEFCF9}};
  for (const auto& [pages, expected] : cases) {
    Digest digest;
    digest.add(bytes_of(document_of(std::vector<Picture>(pages, kSmall))));
    EXPECT_EQ(digest.value(), expected) << pages;
  }
}

TEST(PdfWrite, AStreamOfLessThan200BytesIsStartedAnewEvenIfItOnlyWrites) {
  for (const bool only_writes : {false, true}) {
    MemoryFile file(Bytes(only_writes ? 0 : 199, 'x'));
    file.install(!only_writes, true, !only_writes);
    EXPECT_EQ(can_append(), only_writes ? StatusCode::ok : StatusCode::bad_image);
    ASSERT_EQ(save(kSmall), kOk);
    EXPECT_EQ(text(file.bytes), document_of({kSmall}));
  }
}

std::string replaced(std::string in, const std::string& what, const std::string& by) {
  const std::size_t at = in.rfind(what);
  EXPECT_NE(at, std::string::npos) << what;
  return in.replace(at, what.size(), by);
}

TEST(PdfWrite, OtherDocumentsAreRefusedUntouched) {
  const std::string own = document_of({kSmall, kSmall});
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
      {"another catalog", replaced(own, "/Pages 10", "/Pages  3")},
      {"pages in another order", replaced(own, "4 0 R \r\n11 0 R ", "11 0 R \r\n4 0 R ")},
      {"a page of another number", replaced(own, "[4 0 R", "[6 0 R")},
      {"more pages", replaced(own, "11 0 R \r\n]\r\n/C", "11 0 R 5 0 R/C")},
      {"another media box", replaced(own, "612 792 ]", "595 842 ]")},
  };
  for (const auto& [what, content] : cases) {
    const MemoryFile file(bytes_of(content));
    EXPECT_EQ(can_append(), StatusCode::bad_image) << what;
    EXPECT_EQ(save(kSmall), StatusCode::bad_image) << what;
    EXPECT_EQ(text(file.bytes), content) << what;
  }
}

TEST(PdfWrite, DocumentsEndWhereNoOffsetReachesAnyMore) {
  const std::string own = document_of({kSmall});
  const std::size_t table = own.rfind("xref\r\n0 ");
  // How many bytes the page takes behind a document of `size` bytes, or below 0.
  const auto add_page = [&](std::int64_t size) {
    const std::int64_t hole = size - static_cast<std::int64_t>(own.size()) - 7;
    MemoryFile file(bytes_of(replaced(own, "startxref\r\n" + std::to_string(table),
                                      "startxref\r\n" + std::to_string(table + hole))));
    file.hole_at = static_cast<std::int64_t>(table);
    file.hole = hole;
    const std::size_t before = file.bytes.size();
    EXPECT_EQ(before + hole, size);
    const Status saved = save(kSmall);
    EXPECT_EQ(saved, saved.ok() ? StatusCode::ok : StatusCode::write_failed);
    return saved.ok() ? static_cast<std::int64_t>(file.bytes.size() - before) : -1;
  };
  const std::int64_t page = add_page(2'000'000'000);
  EXPECT_GT(page, 900);
  EXPECT_EQ(add_page(INT32_MAX - page), page);
  EXPECT_EQ(add_page(INT32_MAX - page + 1), -1);
}

// The reader takes the first page's object number, 4, for a place in the file, and the number in
// the name that it finds there for the picture's object.
std::string readable(const Picture& picture) {
  return replaced(document_of({picture}), "/Name /Tarnquill0", "/Name /Tarnquill5");
}

Status read(const std::string& content, CollectingSink& sink) {
  const MemoryFile file(bytes_of(content));
  return pdf::decode({MemoryFile::kHandle, 0, sink.sink()});
}

TEST(PdfRead, ADocumentWithTheRightNameGivesItsPicture) {
  CollectingSink sink;
  ASSERT_EQ(read(readable(kSmall), sink), kOk);
  EXPECT_EQ(sink.image(), rows_of(kSmall));
  EXPECT_EQ(sink.header.header.biBitCount, 1);
  EXPECT_EQ(sink.header.palette[0], (Rgb{0, 0, 0, 0}));
  EXPECT_EQ(sink.header.palette[1], (Rgb{255, 255, 255, 0}));

  CollectingSink jpeg_sink;
  ASSERT_EQ(read(readable({40, 30, 24}), jpeg_sink), kOk);
  EXPECT_EQ(jpeg_sink.header.header.biWidth, 40);
  EXPECT_EQ(jpeg_sink.header.header.biBitCount, 24);
  EXPECT_EQ(jpeg_sink.rows.size(), 30u);
}

TEST(PdfRead, EverythingElseIsRefused) {
  const std::string good = readable(kSmall), pixels = pixels_of(kSmall).substr(20, 20);
  const std::string sides = "/Width 40\r\n/Height 30";  // the table's offsets hold if no byte moves
  const std::string offset = std::to_string(good.rfind("xref\r\n0 "));
  constexpr std::int32_t kBad = -3;
  const std::tuple<const char*, std::string, std::int32_t> cases[] = {
      {"a name that ends in 0, which is a free object", document_of({kSmall}), kBad},
      {"less than 200 bytes", good.substr(good.size() - 199), kBad},
      {"none of the letters", replaced(good, "%%EOF", "%%FEO"), kBad},
      {"one of the letters is enough", replaced(good, "%%EOF", "%%xOx"), 0},
      {"a mark without room for an offset",
       good + "%EOF" + std::string(196 - offset.size(), '\n') + offset, kBad},
      {"a table offset that is no number", replaced(good, "xref\r\n", "xref\r\nx"), kBad},
      {"a table behind the end", replaced(good, "startxref\r\n", "startxref\r\n9999"), kBad},
      {"more entries than bytes", replaced(good, "xref\r\n0 8", "xref\r\n0 99999999999"), kBad},
      {"an entry of another type", replaced(good, " n\r\ntrailer", " m\r\ntrailer"), kBad},
      {"no trailer", replaced(replaced(good, "trailer", "TRAILER"), "startx", "STARTX"), kBad},
      {"a root beyond the table", replaced(good, "/Root 1", "/Root 8"), kBad},
      {"a free root", replaced(good, "/Root 1", "/Root 0"), kBad},
      {"a page tree without pages", replaced(good, "/Kids", "/Dogs"), kBad},
      {"a first page beyond the table", replaced(good, "/Kids [4", "/Kids [8"), kBad},
      {"no name", replaced(good, "/Name /Tarnquill", "/Name /Tarnquils"), kBad},
      {"a picture beyond the table", replaced(good, "Tarnquill5", "Tarnquill8"), kBad},
      {"broken pixels leave rows", replaced(good, pixels, std::string(20, '\0')), 0},
      {"neither kind", replaced(good, "CCITTFaxDecode", "CCITTFaxEncode"), -8},
      {"no width", replaced(good, "/Width 40", "/Width 00"), kBad},
      {"no height", replaced(good, "/Height", "/Weight"), kBad},
      {"too wide", replaced(good, sides, "/Width 65534/Height 1"), kBad},
      {"too high", replaced(good, sides, "/Width 5/Height 65534"), kBad},
      {"no JPEG", replaced(good, "/CCITTFaxDecode", "/DCTDecode /DCT"), kBad},
  };
  for (const auto& [what, content, status] : cases) {
    CollectingSink sink;
    EXPECT_EQ(read(content, sink).raw(), status) << what;
  }
  CollectingSink stopping, refusing;
  stopping.header_answer = -18;
  EXPECT_EQ(read(good, stopping).raw(), -18);
  refusing.answered_row = 10;
  refusing.row_answer = -55;
  EXPECT_EQ(read(good, refusing).raw(), -55);
}

// Cut or damaged, a document gives a status; it stays, and a page is added behind it or none.
TEST(PdfDamage, GivesAStatusAndIsNotMadeWorse) {
  const std::string good = readable(kSmall);
  for (std::size_t bit = 0; bit < 8 * good.size(); bit += 3) {
    std::string damaged = good;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
    for (const std::string& content : {damaged, good.substr(0, bit / 8)}) {
      CollectingSink sink;
      static_cast<void>(read(content, sink));
    }
    const MemoryFile file(bytes_of(damaged));
    EXPECT_THAT(save(kSmall).raw(), testing::AnyOf(0, -3)) << bit;
    EXPECT_TRUE(text(file.bytes).starts_with(damaged)) << bit;
  }
}

}  // namespace
}  // namespace tq::test
