// Writes a picture of one bitmap.
#include "coding/packbits.h"
#include "formats/pict/pict.h"
#include "formats/pict/picture.h"
#include "formats/rows.h"
#include "pixels/colours.h"

namespace tq::pict {
namespace {

using formats::EncodeRequest;
using pixels::find_layout;
using pixels::Layout;

constexpr std::int32_t kLongestSide = INT16_MAX;
constexpr std::int64_t kLongestRow = 16382;  // bytes
constexpr int kShortestPacked = 8, kLongestByteCount = 250;

struct Form {
  formats::StoredRows rows;
  std::int64_t row_bytes =
      0;  // as the file says, of pixels of 32 bits even when it has three planes
  int bits = 0;
  bool direct = false;

  bool packed() const { return row_bytes >= kShortestPacked; }
};

Status choose(const EncodeRequest& request, Form& form) {
  const HeaderBlock& image = *request.image;
  const std::int32_t width = image.header.biWidth;
  const int bits = image.header.biBitCount;
  const bool white_first =
      pixels::brightness(image.palette[0]) > pixels::brightness(image.palette[1]);
  if (request.cmyk) return StatusCode::wrong_depth;
  form.direct = bits == 24 || bits == 32;
  form.bits = form.direct ? 32 : bits;
  form.row_bytes = (std::int64_t{width} * form.bits + 7) / 8;
  form.row_bytes += form.row_bytes % 2;
  if (form.direct) {
    form.rows.layout = find_layout(form.packed() ? Layout::rgb_planes : Layout::xrgb, bits);
  } else if (bits == 1) {
    form.rows.layout = find_layout(white_first ? Layout::bits_1 : Layout::bits_1_black, 1);
  } else if (bits == 4 || bits == 8) {
    form.rows.layout = find_layout(bits == 4 ? Layout::bits_4 : Layout::bytes, bits);
  }
  if (form.rows.layout == nullptr) return StatusCode::wrong_depth;
  form.rows.line_bytes = form.direct ? stored_bytes(*form.rows.layout, width) : form.row_bytes;
  const bool fits = width <= kLongestSide && image.header.biHeight <= kLongestSide &&
                    form.row_bytes <= kLongestRow;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

void put_area(const BitmapInfoHeader& header, StreamWriter& out) {
  out.put_be32(0);
  out.put_be16(static_cast<std::uint32_t>(header.biHeight));
  out.put_be16(static_cast<std::uint32_t>(header.biWidth));
}

void put_resolution(const BitmapInfoHeader& header, StreamWriter& out) {
  for (const std::int32_t dots : {header.biXPelsPerMeter, header.biYPelsPerMeter}) {
    out.put_be16(static_cast<std::uint32_t>(std::clamp(dots, 0, 65535)));
    out.put_be16(0);
  }
}

// Up to the first command that draws.
void write_start(const BitmapInfoHeader& header, StreamWriter& out) {
  out.fill(kFileHeaderBytes, 0);
  out.put_be16(0);  // the size, see below
  put_area(header, out);
  out.put_be32(0x001102FF);
  out.put_be16(kHeader);
  out.put_be32(0xFFFE0000);
  put_resolution(header, out);
  put_area(header, out);
  out.put_be32(0);
  out.put_be32(0x0001000A);  // some readers draw nothing without a region to draw in
  put_area(header, out);
}

void write_colour_table(const HeaderBlock& image, int bits, StreamWriter& out) {
  out.fill(6, 0);
  out.put_be16((1u << bits) - 1);
  for (int i = 0; i < 1 << bits; ++i) {
    const Rgb& colour = image.palette[i];
    out.put_be16(i);
    for (const int level : {colour.red, colour.green, colour.blue}) out.put_be16(level * 257);
  }
}

void write_pixmap(const HeaderBlock& image, const Form& form, StreamWriter& out) {
  const bool pixmap = form.bits > 1;
  out.put_be16(form.direct ? kDirectBitsRect : kPackedBitsRect);
  if (form.direct) out.put_be32(0xFF);
  out.put_be16(static_cast<std::uint32_t>(form.row_bytes | (pixmap ? 0x8000 : 0)));
  put_area(image.header, out);
  if (pixmap) {
    out.put_be16(0);
    out.put_be16(form.direct ? kPlanes : kDefault);
    out.put_be32(0);
    put_resolution(image.header, out);
    out.put_be16(form.direct ? 16 : 0);
    out.put_be16(form.bits);
    out.put_be16(form.direct ? 3 : 1);
    out.put_be16(form.direct ? 8 : form.bits);
    out.fill(12, 0);
    if (!form.direct) write_colour_table(image, form.bits, out);
  }
  put_area(image.header, out);
  put_area(image.header, out);
  out.put_be16(0);  // in place of what is there
}

Status write_row(const Form& form, pixels::Bytes line, StreamWriter& out) {
  if (!form.packed()) {
    out.put(line);
    return out.status();
  }
  const bool long_count = form.row_bytes > kLongestByteCount;
  const std::ptrdiff_t count_bytes = long_count ? 2 : 1;
  const pixels::Row coded = out.room(packbits::most_bytes(std::ssize(line)) + count_bytes);
  if (coded.empty()) return out.status();
  const std::uint8_t* const end = packbits::encode(line, coded.data() + count_bytes);
  const std::ptrdiff_t bytes = end - coded.data();
  if (long_count) store_be16(coded.data(), word(bytes - 2));
  if (!long_count) coded[0] = byte(bytes - 1);
  out.take(bytes);
  return kOk;
}

}  // namespace

Status can_encode_pict(const EncodeRequest& request) {
  Form form;
  return choose(request, form);
}

Status encode_pict(const EncodeRequest& request) {
  Form form;
  TQ_TRY(choose(request, form));
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  write_start(request.image->header, out);
  write_pixmap(*request.image, form, out);
  TQ_TRY(formats::supply_rows(form.rows, request,
                              [&](pixels::Bytes line) { return write_row(form, line, out); }));
  out.fill(out.count() % 2, 0);
  out.put_be16(kEnd);
  TQ_TRY(out.flush());
  std::array<std::uint8_t, 2> size;  // its low bits
  store_be16(size.data(), word(out.count() - kFileHeaderBytes));
  return out.patch_put(kFileHeaderBytes, size);
}

}  // namespace tq::pict
