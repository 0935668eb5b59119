// Adds a page: the picture, the objects around it, and a catalog, page tree and table for the whole
// document, written behind what is there.
#include "core/memory.h"
#include "formats/fax.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pdf/document.h"
#include "formats/pdf/pdf.h"
#include "io/stream_writer.h"

namespace tq::pdf {
namespace {

// In points from the lower left corner of a page of 612 x 792 points.
struct Placement {
  std::int32_t width, height, x, y;
};

// Centred, a pixel being a point; pictures as large as the page and larger are scaled to fit it.
Placement place(std::int32_t width, std::int32_t height) {
  constexpr std::int32_t kPageWidth = 612, kPageHeight = 792;
  std::int64_t w = width, h = height;
  if (w >= kPageWidth || h >= kPageHeight) {
    w = kPageWidth;
    h = w * height / width;
    if (h > kPageHeight) {
      h = kPageHeight;
      w = h * width / height;
    }
  }
  const auto points = [](std::int64_t value) { return static_cast<std::int32_t>(value); };
  return {points(w), points(h), points((kPageWidth - w) / 2), points((kPageHeight - h) / 2)};
}

// Streams in documents have one form, whatever files by themselves have: the reader here asks for it.
formats::EncodeRequest jpeg_request(formats::EncodeRequest request) {
  request.options = {};
  return request;
}

class PageWriter {
 public:
  PageWriter(const formats::EncodeRequest& request, const ExistingDocument& document)
      : request_(request),
        document_(document),
        page_(document.pages),
        black_and_white_(request.image->header.biBitCount == 1),
        start_(document.bytes) {}

  Status write_page();

 private:
  Status open();
  void begin(PageObject object);
  void end() { out_.print("endobj\r\n"); }
  Status write_image();
  Status write_pixels();
  void write_catalog();
  void write_contents();
  void write_page_object();
  Status write_page_tree();
  Status write_table();

  std::int32_t number(PageObject object) const { return object_number(page_, object); }

  // Where in the stream the next byte goes. No offset reaches beyond 2 GiB: status() then fails.
  std::int64_t position() const { return start_ + out_.count(); }
  std::int32_t offset() const { return static_cast<std::int32_t>(position()); }
  Status status() const {
    return position() > INT32_MAX ? StatusCode::write_failed : out_.status();
  }

  const formats::EncodeRequest& request_;
  const ExistingDocument& document_;
  const std::int32_t page_;  // counted from 0
  const bool black_and_white_;
  RowBuffer<std::int32_t> offsets_;  // of objects 1, 2 and so on, in bytes
  StreamWriter out_;
  std::int64_t start_;  // where its bytes go, without those that the JPEG encoder wrote
};

Status PageWriter::open() {
  const std::int32_t before = kObjectsPerPage * page_;
  TQ_TRY(offsets_.allocate(std::int64_t{before} + kObjectsPerPage));
  TQ_TRY(read_offsets(request_.stream, document_, offsets_.pixels().first(before)));
  TQ_TRY(out_.open(request_.stream, formats::kFaxChunk));
  const std::int32_t at = seek(request_.stream, document_.bytes, Origin::start);
  // Pages must not be written over what is there. Streams that cannot seek hold nothing.
  const bool there = at == document_.bytes || (page_ == 0 && tq::position(request_.stream) < 0);
  return there ? StatusCode::ok : StatusCode::write_failed;
}

void PageWriter::begin(PageObject object) {
  offsets_[number(object) - 1] = offset();
  out_.print(kObjectText, number(object));
}

// In writes of their own.
Status PageWriter::write_pixels() {
  TQ_TRY(status());
  TQ_TRY(out_.flush());
  if (black_and_white_) {
    const BitmapInfoHeader& header = request_.image->header;
    const formats::FaxStrip strip{.width = header.biWidth, .rows = header.biHeight};
    TQ_TRY(encode_fax_strip(out_, strip, request_.rows));
    TQ_TRY(out_.flush());
  } else {
    TQ_TRY(jpeg::encode_jpeg(jpeg_request(request_)));
    const std::int64_t bytes = tq::position(request_.stream) - position();
    if (bytes < 0) return StatusCode::write_failed;
    start_ += bytes;
  }
  return status();
}

Status PageWriter::write_image() {
  const std::int32_t width = request_.image->header.biWidth;
  const std::int32_t height = request_.image->header.biHeight;
  begin(kImage);
  out_.print("<<\r\n/Type /XObject\r\n/Subtype /Image\r\n/Name /Tarnquill%d\r\n", page_);
  out_.print("/Width %d\r\n/Height %d\r\n", width, height);
  out_.print("/BitsPerComponent %d\r\n", black_and_white_ ? 1 : 8);
  if (black_and_white_) {
    out_.print("/ColorSpace /DeviceGray\r\n/Filter /CCITTFaxDecode\r\n/DecodeParms <<\r\n");
    out_.print("/K -1\r\n/Columns %d /Rows %d\r\n", width, height);
    out_.print("/EndOfBlock false\r\n/EndOfLine false\r\n/EncodedByteAlign false\r\n>>\r\n");
  } else {
    // Grey and four-component pictures, too: callers rely on this.
    out_.print("/ColorSpace /DeviceRGB\r\n/Filter /DCTDecode\r\n");
  }
  out_.print("/Length %d 0 R\r\n>>\r\nstream\r\n", number(kImageLength));
  const std::int32_t start = offset();
  TQ_TRY(write_pixels());
  const std::int32_t bytes = offset() - start;
  out_.print("\r\nendstream\r\n");
  end();
  begin(kImageLength);
  out_.print("%d\r\n", bytes);
  end();
  return status();
}

void PageWriter::write_catalog() {
  begin(kCatalog);
  out_.print(kCatalogText, number(kPageTree));
  end();
  begin(kProcedureSet);
  out_.print("[ /PDF /ImageB  ]\r\n");
  end();
}

void PageWriter::write_contents() {
  const BitmapInfoHeader& header = request_.image->header;
  const Placement placed = place(header.biWidth, header.biHeight);
  begin(kContents);
  // The length is that of the first page's contents; callers rely on it being written everywhere.
  out_.print("<< /Length 52 >>\r\nstream\r\n");
  out_.print("%06d 0 0 %06d %6d %6d cm\r\n", placed.width, placed.height, placed.x, placed.y);
  out_.print("/Tarnquill%d Do\r\nendstream\r\n", page_);
  end();
}

void PageWriter::write_page_object() {
  begin(kPage);
  out_.print("<<\r\n/Type /Page\r\n/Parent %d 0 R\r\n", number(kPageTree));
  out_.print("/Resources <<\r\n/XObject <<\r\n/Tarnquill%d %d 0 R\r\n>>\r\n", page_,
             number(kImage));
  out_.print("/ProcSet %d 0 R\r\n>>\r\n", number(kProcedureSet));
  out_.print("/Contents %d 0 R\r\n>>\r\n", number(kContents));
  end();
}

Status PageWriter::write_page_tree() {
  begin(kPageTree);
  out_.print(kPageTreeText);
  for (std::int32_t page = 0; page <= page_; ++page) {
    out_.print(kKidText, object_number(page, kPage));
    TQ_TRY(status());
  }
  out_.print(kPageTreeEndText, page_ + 1);
  end();
  return status();
}

Status PageWriter::write_table() {
  const std::int32_t table = offset(), objects = number(kContents);
  out_.print("xref\r\n0 %d\r\n0000000000 65535 f\r\n", objects + 1);
  for (const std::int32_t object : offsets_.pixels()) {
    out_.print("%010d 00000 n\r\n", object);
    TQ_TRY(status());
  }
  out_.print("trailer\r\n<<\r\n/Size %d\r\n", objects + 1);
  out_.print("/Root %d 0 R\r\n>>\r\n", number(kCatalog));
  if (request_.is_safe()) {  // what comes next makes it a document
    TQ_TRY(out_.flush());
    TQ_TRY(flush_to_disk(request_.stream));
  }
  out_.print("startxref\r\n%d\r\n%%%%EOF\r\n", table);
  TQ_TRY(status());
  return out_.flush();
}

Status PageWriter::write_page() {
  TQ_TRY(open());
  if (page_ == 0) out_.print("%%PDF-1.2\r\n");
  TQ_TRY(write_image());
  write_catalog();
  write_contents();
  write_page_object();
  TQ_TRY(write_page_tree());
  return write_table();
}

}  // namespace

Status can_encode(const formats::EncodeRequest& request) {
  return request.image->header.biBitCount == 1 ? kOk : jpeg::can_encode_jpeg(jpeg_request(request));
}

Status encode(const formats::EncodeRequest& request) {
  TQ_TRY(can_encode(request));
  ExistingDocument document;
  TQ_TRY(find_document(request.stream, request.is_safe(), document));
  if (document.pages > 0 && request.is_safe()) {
    // Other programs find a document by its end. A caller's stream keeps what is behind it.
    cut_file(request.stream, document.bytes);
    const std::int32_t bytes = stream_size(request.stream);
    if (bytes < document.bytes) return StatusCode::write_failed;
    document.bytes = bytes;
  }
  PageWriter page(request, document);
  return page.write_page();
}

Status can_append(StreamHandle stream, formats::AppendPlace& place) {
  ExistingDocument document;
  TQ_TRY(find_document(stream, place.over_debris, document));
  if (document.pages == 0 && stream_size(stream) > 0) return StatusCode::bad_image;
  RowBuffer<std::int32_t> offsets;
  TQ_TRY(offsets.allocate(std::int64_t{kObjectsPerPage} * document.pages));
  return read_offsets(stream, document, offsets.pixels());
}

}  // namespace tq::pdf
