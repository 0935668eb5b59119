// Text, and the document that a page is added to.
#include "formats/pdf/document.h"

#include <array>
#include <cstdarg>
#include <limits>

#include "io/chunk_reader.h"
#include "platform/text.h"

namespace tq::pdf {
namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
bool ends_line(char c) {
  return c == '\r' || c == '\n';
}

}  // namespace

bool Text::find(std::string_view what) {
  const std::size_t found = text_.find(what, at_);
  at_ = std::min(found, text_.size());
  return found != std::string_view::npos;
}

bool Text::find_key(std::string_view name) {
  while (find("/")) {
    ++at_;
    if (rest().starts_with(name)) {
      at_ += name.size();
      return true;
    }
  }
  return false;
}

void Text::skip_line_ends() {
  while (ends_line(current())) ++at_;
}

void Text::skip_line() {
  while (!at_end() && !ends_line(current())) ++at_;
  skip_line_ends();
}

bool Text::to_digit() {
  while (!at_end() && !is_digit(current())) ++at_;
  return !at_end();
}

std::int32_t Text::number() {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  while (current() == ' ' || current() == '\t') ++at_;
  std::int32_t value = 0;
  for (; is_digit(current()); ++at_) {
    const std::int32_t digit = current() - '0';
    value = value > (kMost - digit) / 10 ? kMost : 10 * value + digit;
  }
  return value;
}

std::int32_t go_to(StreamHandle stream, std::int64_t at) {
  if (at < 0 || at > INT32_MAX) return -1;
  return seek(stream, static_cast<std::int32_t>(at), Origin::start);
}

namespace {

constexpr std::int32_t kEntryBytes = 20;  // of the cross-reference table

using Window = std::array<std::uint8_t, kTailBytes>;

// What there is of a window at this place.
Text read_window(StreamHandle stream, std::int64_t at, std::span<std::uint8_t> window) {
  return go_to(stream, at) == at ? read_text(stream, window) : Text();
}

// The offset of the cross-reference table, as the document's end gives it; 0 if there is none.
std::int32_t table_offset(Text tail) {
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
  Status open(StreamHandle stream, std::int32_t offset) {
    if (seek(stream, offset, Origin::start) != offset) return StatusCode::bad_image;
    return input_.open(stream, kChunkBytes);
  }
  [[gnu::format(printf, 2, 3)]] bool goes_on(const char* format, ...) {
    char expected[kChunkBytes];
    va_list values;
    va_start(values, format);
    const int bytes = platform::format_text(expected, format, values);
    va_end(values);
    if (bytes < 0) return false;
    const Text there(input_.peek(bytes));
    const bool equal = there.text() == expected;
    input_.skip(bytes);
    return equal;
  }

 private:
  static constexpr std::size_t kChunkBytes = 1000;
  ChunkReader input_;
};

Status check_catalog(StreamHandle stream, std::int32_t last, std::int32_t offset) {
  ObjectText text;
  TQ_TRY(text.open(stream, offset));
  const bool known = text.goes_on(kObjectText, object_number(last, kCatalog)) &&
                     text.goes_on(kCatalogText, object_number(last, kPageTree));
  return known ? StatusCode::ok : StatusCode::bad_image;
}

Status check_page_tree(StreamHandle stream, std::int32_t last, std::int32_t offset) {
  ObjectText text;
  TQ_TRY(text.open(stream, offset));
  bool known =
      text.goes_on(kObjectText, object_number(last, kPageTree)) && text.goes_on(kPageTreeText);
  for (std::int32_t page = 0; known && page <= last; ++page) {
    known = text.goes_on(kKidText, object_number(page, kPage));
  }
  return known && text.goes_on(kPageTreeEndText, last + 1) ? StatusCode::ok : StatusCode::bad_image;
}

// The document that ends here.
Status find_document_before(StreamHandle stream, std::int32_t end, ExistingDocument& document) {
  Window window;
  const std::int32_t table = table_offset(read_window(stream, end - kTailBytes, window));
  Text text = read_window(stream, table, window);
  if (table == 0 || !text.text().starts_with("xref")) return StatusCode::bad_image;
  text.skip_line();
  const std::int32_t first = text.number();
  const std::int32_t count = text.number();
  text.skip_line();
  const std::int64_t entries = std::int64_t{table} + text.position();
  if (first != 0 || count <= 1 || (count - 1) % kObjectsPerPage != 0 ||
      entries + std::int64_t{kEntryBytes} * count > end) {
    return StatusCode::bad_image;
  }
  text = read_window(stream, entries + std::int64_t{kEntryBytes} * count, window);
  const std::int32_t pages = (count - 1) / kObjectsPerPage;
  if (!text.find("trailer") || !text.find_key("Root") ||
      text.number() != object_number(pages - 1, kCatalog)) {
    return StatusCode::bad_image;
  }
  document = {.pages = pages, .bytes = end, .table = static_cast<std::int32_t>(entries)};
  return kOk;
}

// The one that ends at the last mark of an end before `end`: what an addition that was cut off has left
// holds none. Earlier ones do not count, or pages of a damaged document would be written over.
Status find_last_document(StreamHandle stream, std::int32_t end, ExistingDocument& document) {
  constexpr std::string_view kMark = "%%EOF";
  constexpr std::int32_t kOverlap = 8;  // a mark and the end of its line
  std::array<std::uint8_t, 4096> chunk;
  while (end >= kTailBytes) {
    const std::int32_t start = std::max(end - std::int32_t{chunk.size()}, 0);
    Text text = read_window(stream, start, std::span(chunk).first(end - start));
    if (std::ssize(text.text()) < end - start) break;
    const std::size_t mark = text.text().rfind(kMark);
    if (mark != std::string_view::npos) {
      text.move_to(mark + kMark.size());
      text.skip_line_ends();
      const auto behind = static_cast<std::int32_t>(start + text.position());
      if (behind < kTailBytes) break;
      return find_document_before(stream, behind, document);
    }
    if (start == 0) break;
    end = start + kOverlap;
  }
  return StatusCode::bad_image;
}

}  // namespace

Status find_document(StreamHandle stream, bool over_debris, ExistingDocument& document) {
  document = {};
  const std::int32_t size = stream_size(stream);
  // A stream that cannot seek takes a new document; one that can may hold something.
  if (size < 0 && position(stream) >= 0) return StatusCode::write_failed;
  if (size < kTailBytes) return kOk;
  std::array<std::uint8_t, 5> start;
  if (read_window(stream, 0, start).text() != "%PDF-") return StatusCode::bad_image;
  return over_debris ? find_last_document(stream, size, document)
                     : find_document_before(stream, size, document);
}

Status read_offsets(StreamHandle stream, const ExistingDocument& document,
                    std::span<std::int32_t> offsets) {
  std::array<std::uint8_t, 100 * kEntryBytes> chunk;
  std::int64_t at = std::int64_t{document.table} + kEntryBytes;
  for (std::size_t done = 0; done < offsets.size();) {
    const std::size_t count = std::min(offsets.size() - done, chunk.size() / kEntryBytes);
    const Text entries = read_window(stream, at, std::span(chunk).first(count * kEntryBytes));
    if (entries.text().size() < count * kEntryBytes) return StatusCode::bad_image;
    for (std::size_t i = 0; i < count; ++i) {
      Text entry{std::span(chunk).subspan(i * kEntryBytes, kEntryBytes)};
      const std::int32_t offset = entry.number();
      if (entry.position() != 10 || entry[10] != ' ' || entry[17] != 'n' ||
          offset >= document.bytes) {
        return StatusCode::bad_image;
      }
      offsets[done + i] = offset;
    }
    done += count;
    at += std::int64_t{kEntryBytes} * count;
  }
  if (document.pages == 0) return kOk;
  const std::int32_t last = document.pages - 1;
  TQ_TRY(check_catalog(stream, last, offsets[object_number(last, kCatalog) - 1]));
  return check_page_tree(stream, last, offsets[object_number(last, kPageTree) - 1]);
}

}  // namespace tq::pdf
