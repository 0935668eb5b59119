#include "formats/pdf/pdf_existing.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include "formats/pdf/pdf_page.h"
#include "formats/pdf/pdf_text.h"
#include "io/chunk_reader.h"

namespace tq::formats {
namespace {

constexpr std::int32_t kTailBytes = 200;
constexpr std::int32_t kEntryBytes = 20;  // of the cross-reference table

using Window = std::array<std::uint8_t, kTailBytes>;

// What there is of a window at this place.
PdfText read_window(StreamHandle stream, std::int64_t at, std::span<std::uint8_t> window) {
  if (at < 0 || at > INT32_MAX) return {};
  if (seek(stream, static_cast<std::int32_t>(at), Origin::start) != at) return {};
  return PdfText(window.first(static_cast<std::size_t>(read_fully(stream, window))));
}

// The offset of the cross-reference table, as the document's end gives it; 0 if there is none.
std::int32_t table_offset(PdfText tail) {
  const std::size_t end = tail.text().rfind("%%EOF");
  const std::size_t start = tail.text().rfind("startxref", end);
  if (end == std::string_view::npos || start == std::string_view::npos) return 0;
  tail.move_to(start);
  tail.skip_line();
  return tail.number();
}

// Compares an object's text with what it should be.
class ObjectText {
 public:
  Status open(StreamHandle stream, std::uint32_t offset) {
    const auto at = static_cast<std::int32_t>(offset);
    if (seek(stream, at, Origin::start) != at) return StatusCode::bad_image;
    return input_.open(stream, kChunkBytes);
  }
  [[gnu::format(printf, 2, 3)]] bool goes_on(const char* format, ...) {
    char expected[kChunkBytes];
    va_list values;
    va_start(values, format);
    const int bytes = std::vsnprintf(expected, sizeof expected, format, values);
    va_end(values);
    const PdfText there(input_.peek(bytes));
    const bool equal = there.text() == expected;
    input_.skip(bytes);
    return equal;
  }

 private:
  static constexpr std::size_t kChunkBytes = 1000;
  ChunkReader input_;
};

Status check_catalog(StreamHandle stream, std::int32_t last, std::uint32_t offset) {
  ObjectText text;
  TQ_TRY(text.open(stream, offset));
  const bool known = text.goes_on(kObjectText, object_number(last, kCatalog)) &&
                     text.goes_on(kCatalogText, object_number(last, kPageTree));
  return known ? StatusCode::ok : StatusCode::bad_image;
}

Status check_page_tree(StreamHandle stream, std::int32_t last, std::uint32_t offset) {
  ObjectText text;
  TQ_TRY(text.open(stream, offset));
  bool known =
      text.goes_on(kObjectText, object_number(last, kPageTree)) && text.goes_on(kPageTreeText);
  for (std::int32_t page = 0; known && page <= last; ++page) {
    known = text.goes_on(kKidText, object_number(page, kPage));
  }
  return known && text.goes_on(kPageTreeEndText, last + 1) ? StatusCode::ok : StatusCode::bad_image;
}

}  // namespace

Status find_document(StreamHandle stream, ExistingDocument& document) {
  document = {};
  const std::int32_t size = stream_size(stream);
  // A stream that cannot seek takes a new document; one that can may hold something.
  if (size < 0 && position(stream) >= 0) return StatusCode::write_failed;
  if (size < kTailBytes) return kOk;
  Window window;
  PdfText text = read_window(stream, 0, std::span(window).first(5));
  if (text.text() != "%PDF-") return StatusCode::bad_image;
  const std::int32_t table = table_offset(read_window(stream, size - kTailBytes, window));
  text = read_window(stream, table, window);
  if (table == 0 || !text.text().starts_with("xref")) return StatusCode::bad_image;
  text.skip_line();
  const std::int32_t first = text.number();
  const std::int32_t count = text.number();
  text.skip_line();
  const std::int64_t entries = table + static_cast<std::int64_t>(text.position());
  if (first != 0 || count <= 1 || (count - 1) % kObjectsPerPage != 0 ||
      entries + std::int64_t{kEntryBytes} * count > size) {
    return StatusCode::bad_image;
  }
  text = read_window(stream, entries + std::int64_t{kEntryBytes} * count, window);
  const std::int32_t pages = (count - 1) / kObjectsPerPage;
  if (!text.find("trailer") || !text.find_key("Root") ||
      text.number() != object_number(pages - 1, kCatalog)) {
    return StatusCode::bad_image;
  }
  document = {.pages = pages, .bytes = size, .table = static_cast<std::int32_t>(entries)};
  return kOk;
}

Status read_offsets(StreamHandle stream, const ExistingDocument& document,
                    std::span<std::uint32_t> offsets) {
  std::array<std::uint8_t, 100 * kEntryBytes> chunk;
  std::int64_t at = std::int64_t{document.table} + kEntryBytes;
  for (std::size_t done = 0; done < offsets.size();) {
    const std::size_t count = std::min(offsets.size() - done, chunk.size() / kEntryBytes);
    const PdfText entries = read_window(stream, at, std::span(chunk).first(count * kEntryBytes));
    if (entries.text().size() < count * kEntryBytes) return StatusCode::bad_image;
    for (std::size_t i = 0; i < count; ++i) {
      const auto bytes = std::span(chunk).subspan(i * kEntryBytes, kEntryBytes);
      PdfText entry(bytes);
      const std::int32_t offset = entry.number();
      if (entry.position() != 10 || entry[10] != ' ' || entry[17] != 'n' ||
          offset >= document.bytes) {
        return StatusCode::bad_image;
      }
      offsets[done + i] = static_cast<std::uint32_t>(offset);
    }
    done += count;
    at += static_cast<std::int64_t>(count) * kEntryBytes;
  }
  if (document.pages == 0) return kOk;
  const std::int32_t last = document.pages - 1;
  TQ_TRY(check_catalog(stream, last, offsets[object_number(last, kCatalog) - 1]));
  return check_page_tree(stream, last, offsets[object_number(last, kPageTree) - 1]);
}

}  // namespace tq::formats
