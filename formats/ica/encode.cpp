// Image objects of Group 4 data, alone and on pages of a document.
#include <algorithm>
#include <array>
#include <string_view>

#include "formats/fax.h"
#include "formats/ica/content.h"
#include "formats/ica/ica.h"
#include "io/temp_file.h"

namespace tq::ica {
namespace {

using namespace std::string_view_literals;
using formats::EncodeRequest;

constexpr std::int64_t kPiece = 8188;  // of data, so that a field of them fits 8192 bytes
constexpr std::int32_t kUsualUnits = 2000;

// Pixels on ten inches, as fields have resolutions.
struct Units {
  std::int32_t x, y;
};
Units units_of(const EncodeRequest& request) {
  const Resolution header = resolution_of(request.image->header);
  const auto units = [](std::int32_t exact, std::int32_t other) {
    const std::int32_t thousandths = exact > 0 ? exact : other;
    return thousandths == 0 ? kUsualUnits : std::clamp((thousandths + 50) / 100, 1, kLargestSide);
  };
  return {units(request.resolution.x, header.x), units(request.resolution.y, header.y)};
}

// The coded rows, which are put in pieces that say how long they are.
class CodedRows {
 public:
  Status encode(const EncodeRequest& request) {
    const BitmapInfoHeader& header = request.image->header;
    TQ_TRY(file_.create());
    StreamWriter out;
    TQ_TRY(out.open(file_));
    const formats::FaxStrip strip{
        .coding = {.end_of_block = true}, .width = header.biWidth, .rows = header.biHeight};
    TQ_TRY(formats::encode_fax_strip(out, strip, request.rows));
    TQ_TRY(out.flush());
    left_ = file_.seek(0, 2);
    return left_ > 0 && file_.seek(0, 0) == 0 ? StatusCode::ok : StatusCode::read_failed;
  }
  std::int64_t next_bytes() const { return std::min(left_, kPiece); }
  std::int64_t bytes() const { return left_; }
  Status put_next(StreamWriter& out) {
    const std::span<std::uint8_t> room = out.room(next_bytes());
    TQ_TRY(out.status());
    if (file_.read(room) != std::ssize(room)) return StatusCode::read_failed;
    out.take(std::ssize(room));
    left_ -= std::ssize(room);
    return kOk;
  }

 private:
  TempFile file_;
  std::int64_t left_ = 0;
};

// Puts an image content; `begin_part(bytes)` comes before each part of so many bytes.
template <class BeginPart>
Status put_content(const EncodeRequest& request, CodedRows& rows, StreamWriter& out,
                   BeginPart&& begin_part) {
  constexpr std::int64_t kFrontBytes = 23, kHeadBytes = 4;
  const BitmapInfoHeader& header = request.image->header;
  const Units units = units_of(request);
  begin_part(kFrontBytes);
  out.put("\x70\0\x91\1\xFF\x94\x09\0"sv);
  out.put_be16(static_cast<std::uint32_t>(units.x));
  out.put_be16(static_cast<std::uint32_t>(units.y));
  out.put_be16(static_cast<std::uint32_t>(header.biWidth));
  out.put_be16(static_cast<std::uint32_t>(header.biHeight));
  out.put("\x95\2\x82\1\x96\1\1"sv);
  while (rows.bytes() > 0) {
    begin_part(kHeadBytes + rows.next_bytes());
    out.put_be16(kData);
    out.put_be16(static_cast<std::uint32_t>(rows.next_bytes()));
    TQ_TRY(rows.put_next(out));
  }
  constexpr std::string_view kEnd = "\x93\0\x71\0"sv;
  begin_part(std::ssize(kEnd));
  out.put(kEnd);
  return out.status();
}

// --- Documents ---

// What is at a place: nothing, or a document.
struct Existing {
  std::int64_t end_field = -1;  // that closes it; below 0: there is nothing
  std::int64_t end = 0;
  std::int32_t pages = 0;

  bool is_document() const { return end_field >= 0; }
};

// A document that can be gone on with ends with the field that says so.
Status look_at(StreamHandle stream, std::int64_t start, Existing& found) {
  constexpr std::int64_t kWindow = 64 * 1024;
  constexpr int kPrefix = 0x5A;
  StreamWindow window;
  TQ_TRY(window.open(stream, kWindow));
  if (window.at(start, 1).empty()) {
    return find_end(stream) <= start ? StatusCode::ok : StatusCode::read_failed;
  }
  std::uint32_t last = 0;
  std::int64_t at = start, here = start;
  StructuredField field;
  bool cut = false;
  while (read_structured(window, at, field, cut)) {
    here = at;
    at = field.next;
    last = field.code;
    found.pages += field.code == kBeginPage ? 1 : 0;
  }
  const Bytes first = window.at(here, 1);
  const bool is_whole = cut && window.at(at, 1).empty() && find_end(stream) == at;
  if (!is_whole || last != kEndDocument || first.empty() || first[0] == kPrefix) {
    return StatusCode::bad_image;
  }
  found.end_field = here;
  found.end = at;
  return kOk;
}

class DocumentWriter {
 public:
  DocumentWriter(StreamWriter& out, std::int32_t number) : out_(out), number_(number) {}

  void begin(std::uint32_t code, std::int64_t data_bytes) {
    constexpr std::int64_t kHeadBytes = 8;
    out_.put_be16(static_cast<std::uint32_t>(kHeadBytes + data_bytes));
    out_.put8(static_cast<int>(code >> 16));
    out_.put_be16(code & 0xFFFF);
    out_.fill(3, 0);
  }
  // A field of a name, in EBCDIC: "IM" and a number.
  void put_named(std::uint32_t code) {
    constexpr int kNameBytes = 8, kZero = 0xF0;
    begin(code, kNameBytes);
    out_.put("\xC9\xD4"sv);
    for (std::int32_t unit = 100'000; unit > 0; unit /= 10) out_.put8(kZero + number_ / unit % 10);
  }
  void put24(std::int32_t value) {
    out_.put8(value >> 16);
    out_.put_be16(static_cast<std::uint32_t>(value & 0xFFFF));
  }
  void put_units(Units units) {
    out_.put_be16(static_cast<std::uint32_t>(units.x));
    out_.put_be16(static_cast<std::uint32_t>(units.y));
  }
  void put_page_front(const BitmapInfoHeader& header, Units units);
  void put_object_front(const BitmapInfoHeader& header, Units units);

 private:
  StreamWriter& out_;
  std::int32_t number_;
};

void DocumentWriter::put_page_front(const BitmapInfoHeader& header, Units units) {
  put_named(kBeginPage);
  put_named(kBeginPageEnvironment);
  begin(kPageDescriptor, 15);
  out_.put("\0\0"sv);
  put_units(units);
  put24(header.biWidth);
  put24(header.biHeight);
  out_.fill(3, 0);
  put_named(kEndPageEnvironment);
}

void DocumentWriter::put_object_front(const BitmapInfoHeader& header, Units units) {
  put_named(kBeginImage);
  put_named(kBeginObjectEnvironment);
  begin(kAreaDescriptor, 20);
  out_.put("\3\x43\1\x08\x4B\0\0"sv);
  put_units(units);
  out_.put("\x09\x4C\2"sv);
  put24(header.biWidth);
  put24(header.biHeight);
  begin(kAreaPosition, 24);  // at the corner of the page, upright
  out_.put("\1\x17\0\0\0\0\0\0\0\0\x2D\0\0\0\0\0\0\0\0\0\0\x2D\0\1"sv);
  begin(kMapImage, 5);  // as large as the area
  out_.put("\0\5\3\4\x20"sv);
  begin(kImageDescriptor, 13);
  out_.put8(0);
  put_units(units);
  out_.put_be16(static_cast<std::uint32_t>(header.biWidth));
  out_.put_be16(static_cast<std::uint32_t>(header.biHeight));
  out_.put("\xF7\2\1\x0A"sv);
  put_named(kEndObjectEnvironment);
}

Status put_page(const EncodeRequest& request, CodedRows& rows, std::int32_t number, bool adds,
                StreamWriter& out) {
  const BitmapInfoHeader& header = request.image->header;
  const Units units = units_of(request);
  DocumentWriter document(out, number);
  if (!adds) document.put_named(kBeginDocument);
  document.put_page_front(header, units);
  document.put_object_front(header, units);
  TQ_TRY(put_content(request, rows, out,
                     [&](std::int64_t bytes) { document.begin(kImageData, bytes); }));
  document.put_named(kEndImage);
  document.put_named(kEndPage);
  document.put_named(kEndDocument);
  return out.flush();
}

// After a failure: the document ends as it did.
void take_back(StreamHandle stream, const Existing& found, std::span<std::uint8_t> end_field) {
  cut_file(stream, static_cast<std::int32_t>(found.end));
  if (seek_to(stream, found.end_field).ok()) (void)write(stream, end_field);
}

}  // namespace

Status can_encode_ica(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  if (header.biBitCount != 1) return StatusCode::wrong_depth;
  const bool fits = header.biWidth <= kLargestSide && header.biHeight <= kLargestSide;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

Status encode_ica(const EncodeRequest& request) {
  TQ_TRY(can_encode_ica(request));
  CodedRows rows;
  TQ_TRY(rows.encode(request));
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  TQ_TRY(put_content(request, rows, out, [](std::int64_t /*bytes*/) {}));
  return out.flush();
}

Status can_append_mca(StreamHandle stream, formats::AppendPlace& /*place*/) {
  Existing found;
  return look_at(stream, std::max(position(stream), 0), found);
}

Status encode_mca(const EncodeRequest& request) {
  TQ_TRY(can_encode_ica(request));
  const StreamHandle stream = request.stream;
  const std::int32_t start = position(stream);
  if (start < 0) return StatusCode::write_failed;
  CodedRows rows;
  TQ_TRY(rows.encode(request));
  // The size of what lies in memory is not known, so there is nothing to append to. Whoever supplied
  // the rows may have worked on the stream.
  Existing found;
  if (stream != kMemoryStream) TQ_TRY(look_at(stream, start, found));
  const bool adds = found.is_document();
  RowBuffer<std::uint8_t> end_field;
  TQ_TRY(end_field.allocate(adds ? found.end - found.end_field : 0));
  if (adds) {
    TQ_TRY(seek_to(stream, found.end_field));
    const bool whole = read_fully(stream, end_field.pixels()) == std::ssize(end_field.pixels());
    if (!whole) return StatusCode::read_failed;
  }
  StreamWriter out;
  TQ_TRY(out.open(stream));
  TQ_TRY(seek_to(stream, adds ? found.end_field : start));
  const Status put = put_page(request, rows, found.pages + 1, adds, out);
  if (put.failed() && adds) take_back(stream, found, end_field.pixels());
  return put;
}

}  // namespace tq::ica
