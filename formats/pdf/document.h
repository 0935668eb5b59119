// What reading and writing share: the objects of a page, text that is looked through, and the
// document that a page is added to.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "io/byte_stream.h"

namespace tq::pdf {

inline constexpr std::int32_t kTailBytes = 200;  // that say where the objects are

// Every page owns seven objects in a row; the last page's catalog and page tree are the document's.
enum PageObject : std::int32_t {
  kCatalog = 1,
  kProcedureSet = 2,
  kPageTree = 3,
  kPage = 4,
  kImage = 5,
  kImageLength = 6,
  kContents = 7,
  kObjectsPerPage = 7,
};

constexpr std::int32_t object_number(std::int32_t page, PageObject object) {
  return kObjectsPerPage * page + object;
}

// The document's catalog and page tree, by which it is known again: each object's number first.
inline constexpr char kObjectText[] = "%d 0 obj\r\n";
inline constexpr char kCatalogText[] = "<<\r\n/Type /Catalog\r\n/Pages %d 0 R\r\n>>\r\n";
inline constexpr char kPageTreeText[] = "<<\r\n/Type /Pages\r\n/Kids [";
inline constexpr char kKidText[] = "%d 0 R \r\n";
inline constexpr char kPageTreeEndText[] = "]\r\n/Count %d\r\n/MediaBox [ 0 0 612 792 ]\r\n>>\r\n";

// A part of a document; nothing here looks beyond it.
class Text {
 public:
  Text() = default;
  explicit Text(std::span<const std::uint8_t> bytes)
      : text_(reinterpret_cast<const char*>(bytes.data()), bytes.size()) {}

  std::size_t position() const { return at_; }
  bool at_end() const { return at_ >= text_.size(); }
  char operator[](std::size_t at) const { return at < text_.size() ? text_[at] : '\0'; }
  char current() const { return (*this)[at_]; }
  std::string_view text() const { return text_; }
  // Cut to what there is; std::string_view::substr would throw.
  std::string_view part(std::size_t start, std::size_t end) const {
    end = std::min(end, text_.size());
    start = std::min(start, end);
    return {text_.data() + start, end - start};
  }
  std::string_view rest() const { return part(at_, text_.size()); }

  void move_to(std::size_t at) { at_ = at; }
  void skip(std::size_t bytes) { at_ += bytes; }
  bool find(std::string_view what);      // from here on; stands on it afterwards
  bool find_key(std::string_view name);  // a '/' and the name; stands behind it
  void skip_line_ends();                 // all of CR and LF
  void skip_line();                      // and all of CR and LF behind it
  bool to_digit();                       // the next one, anywhere

  // The decimal number here, behind blanks and tabs; 0 when there is none. Stops at 2^31 - 1.
  std::int32_t number();

 private:
  std::string_view text_;
  std::size_t at_ = 0;
};

// What there is where the stream stands.
inline Text read_text(StreamHandle stream, std::span<std::uint8_t> room) {
  return Text(room.first(read_fully(stream, room)));
}

// The new position; negative on failure, and where no position can be.
std::int32_t go_to(StreamHandle stream, std::int64_t at);

// One that pages can be added to.
struct ExistingDocument {
  std::int32_t pages = 0;  // 0: a new document begins at byte 0
  std::int32_t bytes = 0;  // of the document; the next page goes behind it
  std::int32_t table = 0;  // where the entry of object 0 is
};

// bad_image when the stream holds 200 bytes or more that are no such document. `over_debris`: or one,
// and behind it what an addition that was cut off has left.
Status find_document(StreamHandle stream, bool over_debris, ExistingDocument& document);

// The byte offsets of objects 1, 2 and so on: of all the document has. bad_image for a broken
// table, and for a page tree that does not list the pages as they are listed here: a new one would
// lose those of another writer.
Status read_offsets(StreamHandle stream, const ExistingDocument& document,
                    std::span<std::int32_t> offsets);

}  // namespace tq::pdf
