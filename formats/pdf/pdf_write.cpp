// Adds a page: the picture, the objects around it, and a catalog, page tree and table for the whole
// document, written behind what is there.
#include <cstdarg>
#include <cstdio>

#include "core/memory.h"
#include "formats/fax.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pdf/pdf.h"
#include "formats/pdf/pdf_existing.h"
#include "formats/pdf/pdf_page.h"

namespace tq::formats {
namespace {

constexpr std::size_t kLongestLine = 3000;  // bytes
constexpr std::size_t kBufferBytes = 16 * 1024;

// Lines that end with CR LF, collected, and where in the stream they go.
class LineWriter {
 public:
  explicit LineWriter(StreamHandle stream) : stream_(stream) {}

  Status open(std::int32_t at) {
    at_ = at;
    return buffer_.allocate(kBufferBytes);
  }

  [[gnu::format(printf, 2, 3)]] Status text(const char* format, ...) {
    if (buffer_.size() - used_ < kLongestLine) TQ_TRY(flush());
    va_list values;
    va_start(values, format);
    const int bytes = std::vsnprintf(reinterpret_cast<char*>(buffer_.data() + used_), kLongestLine,
                                     format, values);
    va_end(values);
    if (bytes < 0 || bytes >= static_cast<int>(kLongestLine)) return StatusCode::write_failed;
    used_ += static_cast<std::size_t>(bytes);
    return kOk;
  }
  Status lines(const char* whole) { return text("%s\r\n", whole); }

  // Where the next byte goes.
  std::int64_t position() const { return at_ + static_cast<std::int64_t>(used_); }

  Status flush() {
    if (position() > INT32_MAX) return StatusCode::write_failed;
    const auto bytes = static_cast<std::int32_t>(used_);
    if (write(stream_, buffer_.bytes().first(used_)) != bytes) return StatusCode::write_failed;
    at_ += bytes;
    used_ = 0;
    return kOk;
  }
  // After somebody else wrote to the stream.
  void move_to(std::int64_t at) { at_ = at; }

 private:
  StreamHandle stream_;
  GlobalBlock buffer_;
  std::size_t used_ = 0;
  std::int64_t at_ = 0;
};

class PageWriter {
 public:
  PageWriter(const EncodeRequest& request, const ExistingDocument& document)
      : request_(request), document_(document), page_(document.pages), out_(request.stream) {}

  Status write_page();

 private:
  Status read_existing();
  Status begin(PageObject object);
  Status end() { return out_.lines("endobj"); }
  Status write_image();
  Status write_pixels(std::int32_t& bytes);
  Status write_catalog();
  Status write_contents();
  Status write_page_object();
  Status write_page_tree();
  Status write_table();

  bool in_black_and_white() const { return request_.image->header.biBitCount == 1; }
  std::int32_t number(PageObject object) const { return object_number(page_, object); }
  std::uint32_t& offset_of(std::int32_t object) {
    return offsets_[static_cast<std::ptrdiff_t>(object) - 1];
  }

  const EncodeRequest& request_;
  const ExistingDocument& document_;
  std::int32_t page_;                 // counted from 0
  RowBuffer<std::uint32_t> offsets_;  // of objects 1, 2 and so on, in bytes
  LineWriter out_;
};

Status PageWriter::read_existing() {
  const std::int64_t before = std::int64_t{kObjectsPerPage} * page_;
  TQ_TRY(offsets_.allocate(before + kObjectsPerPage));
  return read_offsets(request_.stream, document_,
                      offsets_.pixels().first(static_cast<std::size_t>(before)));
}

Status PageWriter::begin(PageObject object) {
  offset_of(number(object)) = static_cast<std::uint32_t>(out_.position());
  return out_.text(kObjectText, number(object));
}

// The encoder writes to the stream itself.
Status PageWriter::write_pixels(std::int32_t& bytes) {
  TQ_TRY(out_.flush());
  const BitmapInfoHeader& header = request_.image->header;
  if (in_black_and_white()) {
    StreamWriter pixels;
    TQ_TRY(pixels.open(request_.stream, kFaxChunk));
    const FaxStrip strip{.width = header.biWidth, .rows = header.biHeight};
    TQ_TRY(encode_fax_strip(pixels, strip, request_.rows));
    TQ_TRY(pixels.flush());
    if (pixels.count() > INT32_MAX) return StatusCode::write_failed;
    bytes = static_cast<std::int32_t>(pixels.count());
  } else {
    TQ_TRY(jpeg::encode_jpeg(request_));
    const std::int64_t length = tq::position(request_.stream) - out_.position();
    if (length < 0) return StatusCode::write_failed;
    bytes = static_cast<std::int32_t>(length);
  }
  out_.move_to(out_.position() + bytes);
  return kOk;
}

Status PageWriter::write_image() {
  const BitmapInfoHeader& header = request_.image->header;
  TQ_TRY(begin(kImage));
  TQ_TRY(out_.lines("<<\r\n/Type /XObject\r\n/Subtype /Image"));
  TQ_TRY(out_.text("/Name /Tarnquill%d\r\n/Width %d\r\n/Height %d\r\n/BitsPerComponent %d\r\n",
                   page_, header.biWidth, header.biHeight, in_black_and_white() ? 1 : 8));
  if (in_black_and_white()) {
    TQ_TRY(out_.lines("/ColorSpace /DeviceGray\r\n/Filter /CCITTFaxDecode"));
    TQ_TRY(out_.text("/DecodeParms <<\r\n/K -1\r\n/Columns %d /Rows %d\r\n", header.biWidth,
                     header.biHeight));
    TQ_TRY(out_.lines("/EndOfBlock false\r\n/EndOfLine false\r\n/EncodedByteAlign false\r\n>>"));
  } else {
    // Grey and four-component pictures, too: callers rely on this.
    TQ_TRY(out_.lines("/ColorSpace /DeviceRGB\r\n/Filter /DCTDecode"));
  }
  TQ_TRY(out_.text("/Length %d 0 R\r\n>>\r\nstream\r\n", number(kImageLength)));
  std::int32_t bytes = 0;
  TQ_TRY(write_pixels(bytes));
  TQ_TRY(out_.lines("\r\nendstream\r\nendobj"));

  TQ_TRY(begin(kImageLength));
  TQ_TRY(out_.text("%d\r\n", bytes));
  return end();
}

Status PageWriter::write_catalog() {
  TQ_TRY(begin(kCatalog));
  TQ_TRY(out_.text(kCatalogText, number(kPageTree)));
  TQ_TRY(end());
  TQ_TRY(begin(kProcedureSet));
  TQ_TRY(out_.lines("[ /PDF /ImageB  ]"));
  return end();
}

Status PageWriter::write_contents() {
  const BitmapInfoHeader& header = request_.image->header;
  const Placement placed = place(header.biWidth, header.biHeight);
  TQ_TRY(begin(kContents));
  // The length is that of the first page's contents; callers rely on it being written everywhere.
  TQ_TRY(out_.lines("<< /Length 52 >>\r\nstream"));
  TQ_TRY(
      out_.text("%06d 0 0 %06d %6d %6d cm\r\n", placed.width, placed.height, placed.x, placed.y));
  TQ_TRY(out_.text("/Tarnquill%d Do\r\nendstream\r\n", page_));
  return end();
}

Status PageWriter::write_page_object() {
  TQ_TRY(begin(kPage));
  TQ_TRY(out_.text("<<\r\n/Type /Page\r\n/Parent %d 0 R\r\n", number(kPageTree)));
  TQ_TRY(out_.text("/Resources <<\r\n/XObject <<\r\n/Tarnquill%d %d 0 R\r\n>>\r\n", page_,
                   number(kImage)));
  TQ_TRY(out_.text("/ProcSet %d 0 R\r\n>>\r\n/Contents %d 0 R\r\n>>\r\n", number(kProcedureSet),
                   number(kContents)));
  return end();
}

Status PageWriter::write_page_tree() {
  TQ_TRY(begin(kPageTree));
  TQ_TRY(out_.text(kPageTreeText));
  for (std::int32_t page = 0; page <= page_; ++page) {
    TQ_TRY(out_.text(kKidText, object_number(page, kPage)));
  }
  TQ_TRY(out_.text(kPageTreeEndText, page_ + 1));
  return end();
}

Status PageWriter::write_table() {
  const auto table = static_cast<long>(out_.position());
  const std::int32_t objects = number(kContents);
  TQ_TRY(out_.text("xref\r\n0 %d\r\n0000000000 65535 f\r\n", objects + 1));
  for (std::int32_t object = 1; object <= objects; ++object) {
    TQ_TRY(out_.text("%010d 00000 n\r\n", static_cast<int>(offset_of(object))));
  }
  TQ_TRY(out_.text("trailer\r\n<<\r\n/Size %d\r\n/Root %d 0 R\r\n>>\r\n", objects + 1,
                   number(kCatalog)));
  TQ_TRY(out_.text("startxref\r\n%ld\r\n%%%%EOF\r\n", table));
  return out_.flush();
}

Status PageWriter::write_page() {
  TQ_TRY(read_existing());
  TQ_TRY(out_.open(document_.bytes));
  const std::int32_t at = seek(request_.stream, document_.bytes, Origin::start);
  // Pages must not be written over what is there. Streams that cannot seek hold nothing.
  if (at != document_.bytes && (page_ > 0 || tq::position(request_.stream) >= 0)) {
    return StatusCode::write_failed;
  }
  if (page_ == 0) TQ_TRY(out_.lines("%PDF-1.2"));
  TQ_TRY(write_image());
  TQ_TRY(write_catalog());
  TQ_TRY(write_contents());
  TQ_TRY(write_page_object());
  TQ_TRY(write_page_tree());
  return write_table();
}

}  // namespace

Status can_encode_pdf(const EncodeRequest& request) {
  return request.image->header.biBitCount == 1 ? kOk : jpeg::can_encode_jpeg(request);
}

Status encode_pdf(const EncodeRequest& request) {
  TQ_TRY(can_encode_pdf(request));
  ExistingDocument document;
  TQ_TRY(find_document(request.stream, document));
  PageWriter page(request, document);
  return page.write_page();
}

Status can_append_pdf(StreamHandle stream) {
  ExistingDocument document;
  TQ_TRY(find_document(stream, document));
  if (document.pages == 0 && stream_size(stream) > 0) return StatusCode::bad_image;
  RowBuffer<std::uint32_t> offsets;
  TQ_TRY(offsets.allocate(std::int64_t{kObjectsPerPage} * document.pages));
  return read_offsets(stream, document, offsets.pixels());
}

}  // namespace tq::formats
