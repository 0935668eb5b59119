// CALS raster files of type 1, as MIL-R-28002 describes them: records of text, then one picture in
// Group 4.
#include <array>
#include <string_view>

#include "formats/fax.h"
#include "formats/simple/simple.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

constexpr int kRecordBytes = 128;
constexpr int kRecords = 16;
constexpr int kHeaderBytes = kRecords * kRecordBytes;
constexpr std::int64_t kLargestNumber = 0x7FFFFFFF;

// Where the pixels of a line go, and where the lines go from there, counter-clockwise in degrees;
// each with the number that TIFF has for it.
constexpr struct {
  int pixels, lines, orientation;
} kOrientations[] = {{0, 270, 1},  {180, 90, 2},  {180, 270, 3}, {0, 90, 4},
                     {270, 90, 5}, {270, 270, 6}, {90, 90, 7},   {90, 270, 8}};
constexpr int kUpright = 1;

// The text behind a record's name.
class Value {
 public:
  explicit Value(std::string_view text) : text_(text) {}

  // The next number, behind whatever is not one; -1 when there is none.
  std::int64_t number() {
    text_.remove_prefix(std::min(text_.find_first_of("0123456789"), text_.size()));
    std::int64_t value = -1;
    while (!text_.empty() && text_[0] >= '0' && text_[0] <= '9') {
      value = std::min(std::max<std::int64_t>(value, 0) * 10 + (text_[0] - '0'), kLargestNumber);
      text_.remove_prefix(1);
    }
    return value;
  }

 private:
  std::string_view text_;
};

class Records {
 public:
  Status read(StreamHandle stream) {
    const bool whole = read_fully(stream, bytes_) == kHeaderBytes;
    return whole ? StatusCode::ok : StatusCode::read_failed;
  }

  // Of the first record of that name, wherever it stands; nothing where there is none.
  Value find(std::string_view name) const {
    const char* const text = reinterpret_cast<const char*>(bytes_.data());
    for (int i = 0; i < kRecords; ++i) {
      std::string_view record(text + i * kRecordBytes, kRecordBytes);
      // Some writers end lines within the records.
      record.remove_prefix(std::min(record.find_first_not_of(" \r\n"), record.size()));
      if (!record.starts_with(name)) continue;
      record.remove_prefix(name.size());
      if (!record.starts_with(':')) continue;
      record.remove_prefix(1);
      return Value(record);
    }
    return Value({});
  }

 private:
  std::array<std::uint8_t, kHeaderBytes> bytes_;
};

Status read_header(const Records& records, HeaderBlock& image) {
  if (const std::int64_t type = records.find("rtype").number(); type >= 0 && type != 1) {
    return StatusCode::unsupported;  // in tiles
  }
  Value counts = records.find("rpelcnt");
  const std::int64_t width = counts.number(), height = counts.number();
  if (width < 1 || height < 1) return StatusCode::bad_image;
  const std::int64_t dpi = records.find("rdensty").number();
  image = dib_header(static_cast<std::int32_t>(width), static_cast<std::int32_t>(height), 1);
  image.palette = pixels::grey_levels(1);
  if (dpi > 0 && dpi <= 0xFFFF) {
    image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = static_cast<std::int32_t>(dpi);
  }
  return kOk;
}

constexpr int kLargestSide = 999'999;  // six digits
constexpr int kLargestDensity = 9999, kUsualDensity = 200;

void end_record(StreamWriter& out) {
  out.fill(kRecordBytes - out.count() % kRecordBytes, ' ');
}

void write_header(const BitmapInfoHeader& header, StreamWriter& out) {
  constexpr const char* kNames[] = {"srcdocid", "dstdocid", "txtfilid",
                                    "figid",    "srcgph",   "doccls"};
  const int dpi = header.biXPelsPerMeter > 0 ? header.biXPelsPerMeter : kUsualDensity;
  for (const char* name : kNames) {
    out.print("%s: NONE", name);
    end_record(out);
  }
  out.print("rtype: 1");
  end_record(out);
  out.print("rorient: 000,270");
  end_record(out);
  out.print("rpelcnt: %06d,%06d", static_cast<int>(header.biWidth),
            static_cast<int>(header.biHeight));
  end_record(out);
  out.print("rdensty: %04d", std::min(dpi, kLargestDensity));
  end_record(out);
  out.print("notes: NONE");
  out.fill(kHeaderBytes - out.count(), ' ');
}

int orientation_of(const Records& records) {
  Value angles = records.find("rorient");
  const std::int64_t pixels = angles.number(), lines = angles.number();
  for (const auto& known : kOrientations) {
    if (known.pixels == pixels && known.lines == lines) return known.orientation;
  }
  return kUpright;
}

}  // namespace

Status decode_cals(const formats::DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  Records records;
  TQ_TRY(records.read(request.stream));
  HeaderBlock image;
  TQ_TRY(read_header(records, image));
  request.sink.orientation(orientation_of(records));
  TQ_TRY(request.sink.header(image));
  ChunkReader input;
  TQ_TRY(input.open(request.stream, formats::kFaxChunk));
  ReaderPieces rest(input);
  formats::FaxDecoder decoder;
  // Nothing but the last row itself says where the data end in memory.
  const ccitt::Coding coding{.sparing = !end_is_known(request.stream)};
  TQ_TRY(decoder.open(coding, image.header.biWidth, formats::FaxRows::runs));
  TQ_TRY(decoder.decode(coding::PieceSource::of(rest), 0, image.header.biHeight, request.sink));
  return kOk;
}

Status find_cals_orientation(StreamHandle stream, const Options& /*options*/) {
  Records records;
  TQ_TRY(records.read(stream));
  return Status::from_raw(orientation_of(records));
}

Status can_encode_cals(const formats::EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  if (header.biBitCount != 1) return StatusCode::wrong_depth;
  const bool fits = header.biWidth <= kLargestSide && header.biHeight <= kLargestSide;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

Status encode_cals(const formats::EncodeRequest& request) {
  TQ_TRY(can_encode_cals(request));
  const BitmapInfoHeader& header = request.image->header;
  StreamWriter out;
  TQ_TRY(out.open(request.stream, formats::kFaxChunk));
  write_header(header, out);
  const formats::FaxStrip strip{
      .coding = {.end_of_block = true}, .width = header.biWidth, .rows = header.biHeight};
  TQ_TRY(formats::encode_fax_strip(out, strip, request.rows));
  return out.flush();
}

}  // namespace tq::simple
