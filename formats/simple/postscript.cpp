// Encapsulated PostScript: of files with a preview that is read; programs that draw one picture are
// written, for a page of its size or for a place on another.
#include <algorithm>
#include <array>
#include <string_view>

#include "coding/packbits.h"
#include "formats/fax.h"
#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "formats/tiff/tiff.h"
#include "formats/wmf/wmf.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using formats::EncodeRequest;
using pixels::Layout;

// --- Reading ---

constexpr int kHeadBytes = 30;
constexpr int kMetafileField = 12, kTiffField = 20;  // each: where it lies, how long it is
constexpr std::uint32_t kMagic = 0xC6D3D0C5;

// --- Writing ---

// Bytes to printable characters, four to five (PostScript Language Reference, ASCII85Encode).
class Ascii85 {
 public:
  explicit Ascii85(StreamWriter& out) : out_(out) {}

  std::int32_t write(std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t value : bytes) {
      word_ = word_ << 8 | value;
      if (++count_ == kBytes) put_word(kBytes);
    }
    return out_.status().ok() ? static_cast<std::int32_t>(bytes.size()) : -1;
  }
  void finish() {
    const int count = count_;
    for (; count_ > 0 && count_ < kBytes; ++count_) word_ <<= 8;
    if (count > 0) put_word(count);
    out_.put("~>\n");
  }

 private:
  static constexpr int kBytes = 4, kLine = 72;  // characters

  void put_word(int count) {
    if (word_ == 0 && count == kBytes) {
      put('z');
    } else {
      std::array<char, kBytes + 1> digits{};
      for (int i = kBytes; i >= 0; --i, word_ /= 85)
        digits[i] = static_cast<char>('!' + word_ % 85);
      for (int i = 0; i <= count; ++i) put(digits[i]);
    }
    word_ = 0;
    count_ = 0;
  }
  void put(char c) {
    // Lines that begin with two of them mean something to programs that handle documents.
    if (column_ == 0 && c == '%') {
      out_.put8(' ');
      ++column_;
    }
    out_.put8(c);
    if (++column_ >= kLine) {
      out_.put8('\n');
      column_ = 0;
    }
  }

  StreamWriter& out_;
  std::uint32_t word_ = 0;
  int count_ = 0;  // bytes of it
  int column_ = 0;
};

struct Form {
  const char* space = "/DeviceGray";
  const char* decode = "0 1";
  bool indexed = false;
  int bits = 8;
  formats::StoredRows rows;
};

Status choose(const EncodeRequest& request, Form& form) {
  const HeaderBlock& image = *request.image;
  const int bits = image.header.biBitCount;
  Layout layout = Layout::bytes;
  switch (bits) {
    case 1:
      form.bits = 1;
      return kOk;
    case 4:
    case 8:
      form.indexed = bits == 4 || !pixels::is_grey_ramp(image.palette);
      if (form.indexed) form.decode = "0 255";
      break;
    case 24:
    case 32:
      layout = request.cmyk ? Layout::cmyk : Layout::rgb;
      form.space = request.cmyk ? "/DeviceCMYK" : "/DeviceRGB";
      form.decode = request.cmyk ? "0 1 0 1 0 1 0 1" : "0 1 0 1 0 1";
      break;
    default:
      return StatusCode::wrong_depth;
  }
  form.rows.layout = pixels::find_layout(layout, bits);
  form.rows.line_bytes = stored_bytes(*form.rows.layout, image.header.biWidth);
  return kOk;
}

// Points, in units of 1/10000.
std::int64_t points(std::int64_t pixels, std::int32_t exact_dots, std::int32_t dots) {
  constexpr std::int64_t kPoints = 72, kUnits = 10000;
  const std::int64_t thousandths = exact_dots > 0 ? exact_dots : 1000 * std::int64_t{dots};
  if (thousandths <= 0) return kUnits * pixels;
  return (1000 * kPoints * kUnits * pixels + thousandths / 2) / thousandths;
}

class ProgramWriter {
 public:
  ProgramWriter(const EncodeRequest& request, const Form& form)
      : request_(request), header_(request.image->header), form_(form) {}

  Status write();

 private:
  // Whatever the locale says.
  void put_size(std::string_view between) {
    constexpr int kUnits = 10000;
    out_.print("%d.%04d", static_cast<int>(width_ / kUnits), static_cast<int>(width_ % kUnits));
    out_.put(between);
    out_.print("%d.%04d", static_cast<int>(height_ / kUnits), static_cast<int>(height_ % kUnits));
  }
  void put_comments();
  void put_colour_space();
  Status put_data();

  const EncodeRequest& request_;
  const BitmapInfoHeader& header_;
  const Form& form_;
  std::int64_t width_ = 0, height_ = 0;
  StreamWriter out_;
};

void ProgramWriter::put_comments() {
  const bool page = request_.variant() == kPage;
  const auto whole = [](std::int64_t value) { return static_cast<int>((value + 9999) / 10000); };
  out_.put(page ? "%!PS-Adobe-3.0\n" : "%!PS-Adobe-3.0 EPSF-3.0\n");
  out_.print("%%%%BoundingBox: 0 0 %d %d\n%%%%HiResBoundingBox: 0 0 ", whole(width_),
             whole(height_));
  put_size(" ");
  out_.put("\n%%LanguageLevel: 2\n%%Pages: 1\n%%EndComments\n");
  if (!page) return;
  out_.put("%%Page: 1 1\n<< /PageSize [");
  put_size(" ");
  out_.put("] >> setpagedevice\n");
}

void ProgramWriter::put_colour_space() {
  constexpr int kPerLine = 12;  // colours
  if (!form_.indexed) {
    out_.put(form_.space);
  } else {
    out_.put("[/Indexed /DeviceRGB 255 <");
    for (int i = 0; i < 256; ++i) {
      const Rgb& colour = request_.image->palette[i];
      out_.print("%s%02x%02x%02x", i % kPerLine == 0 ? "\n" : "", colour.red, colour.green,
                 colour.blue);
    }
    out_.put("\n>]");
  }
  out_.put(" setcolorspace\n");
}

Status ProgramWriter::put_data() {
  Ascii85 coder(out_);
  StreamWriter data;
  TQ_TRY(data.open_to(coder));
  if (form_.bits == 1) {
    const formats::FaxStrip strip{
        .coding = {.end_of_block = true}, .width = header_.biWidth, .rows = header_.biHeight};
    TQ_TRY(formats::encode_fax_strip(data, strip, request_.rows));
  } else {
    constexpr int kEnd = 128;
    TQ_TRY(formats::supply_rows(form_.rows, request_, [&](pixels::Bytes line) {
      const pixels::Row coded = data.room(packbits::most_bytes(std::ssize(line)));
      if (coded.empty()) return data.status();
      data.take(packbits::encode(line, coded.data()) - coded.data());
      return data.status();
    }));
    data.put8(kEnd);
  }
  TQ_TRY(data.flush());
  coder.finish();
  return out_.status();
}

Status ProgramWriter::write() {
  const bool page = request_.variant() == kPage;
  const int width = header_.biWidth, height = header_.biHeight;
  width_ = points(width, request_.resolution.x, header_.biXPelsPerMeter);
  height_ = points(height, request_.resolution.y, header_.biYPelsPerMeter);
  TQ_TRY(out_.open(request_.stream));
  put_comments();
  out_.put("gsave\n");
  put_size(" ");
  out_.put(" scale\n");
  put_colour_space();
  out_.print("<< /ImageType 1 /Width %d /Height %d /BitsPerComponent %d\n", width, height,
             form_.bits);
  out_.print("/Decode [%s] /ImageMatrix [%d 0 0 %d 0 %d]\n", form_.decode, width, -height, height);
  out_.put("/DataSource currentfile /ASCII85Decode filter\n");
  if (form_.bits == 1) {
    out_.print("<< /K -1 /Columns %d /Rows %d >> /CCITTFaxDecode filter", width, height);
  } else {
    out_.put("/RunLengthDecode filter");
  }
  out_.put(" >> image\n");
  TQ_TRY(put_data());
  out_.put("grestore\n");
  if (page) out_.put("showpage\n");
  out_.put("%%EOF\n");
  return out_.flush();
}

}  // namespace

// A program may have a preview: a TIFF file or, in the absence of one, a metafile.
Status decode_eps(const formats::DecodeRequest& request) {
  std::array<std::uint8_t, kHeadBytes> head{};
  const std::int64_t start = request.start();
  TQ_TRY(seek_to(request.stream, start));
  if (read_fully(request.stream, head) < kHeadBytes) return StatusCode::read_failed;
  if (load_le32(head.data()) != kMagic) return StatusCode::bad_image;
  const auto is_there = [&](int field) {
    return load_le32(&head[field]) != 0 && load_le32(&head[field + 4]) != 0;
  };
  const bool has_tiff = is_there(kTiffField);
  const int field = has_tiff ? kTiffField : kMetafileField;
  if (!is_there(field)) return StatusCode::unsupported;
  const std::int64_t at = load_le32(&head[field]), bytes = load_le32(&head[field + 4]);
  if (at < kHeadBytes || start + at >= find_end(request.stream)) return StatusCode::bad_image;
  formats::DecodeRequest preview = request;
  preview.page = -1;
  preview.offset = static_cast<std::int32_t>(start + at);
  if (has_tiff) return tiff::decode_tiff(preview);
  return wmf::decode_part(preview, {.at = start + at, .end = start + at + bytes});
}

Status can_encode_postscript(const EncodeRequest& request) {
  Form form;
  return choose(request, form);
}

Status encode_postscript(const EncodeRequest& request) {
  Form form;
  TQ_TRY(choose(request, form));
  return ProgramWriter(request, form).write();
}

}  // namespace tq::simple
