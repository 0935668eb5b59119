// Writes indices as a graphic of the first version, colours as one of the second.
#include <array>

#include "formats/rows.h"
#include "formats/wpg/records.h"
#include "formats/wpg/wpg.h"
#include "io/endian.h"
#include "io/stream_writer.h"
#include "pixels/colours.h"

namespace tq::wpg {
namespace {

using namespace pixels;

void put_length(std::int64_t bytes, StreamWriter& out) {
  out.put8(0xFF);
  out.put_le16(static_cast<std::uint32_t>(bytes >> 16 | 0x8000));
  out.put_le16(static_cast<std::uint32_t>(bytes));
}

void put_header(int version, StreamWriter& out) {
  out.put("\xFFWPC");
  out.put_le32(kHeaderBytes);
  out.put8(1);
  out.put8(kGraphic);
  out.put8(version);
  out.fill(5, 0);
}

void put_colours(std::span<const Rgb> colours, StreamWriter& out) {
  out.put8(kColours1);
  put_length(4 + 3 * std::ssize(colours), out);
  out.put_le16(0);
  out.put_le16(static_cast<std::uint32_t>(colours.size()));
  for (const Rgb& colour : colours) {
    for (const int level : {colour.red, colour.green, colour.blue}) out.put8(level);
  }
}

// The codes of a row, at most twice as long and two bytes more.
std::uint8_t* code_row(Bytes row, std::uint8_t* out) {
  constexpr std::ptrdiff_t kMost = 127;
  const std::uint8_t* from = row.data();
  const std::uint8_t* const end = from + row.size();
  while (from < end) {
    const std::uint8_t* const limit = from + std::min(kMost, end - from);
    const std::uint8_t* behind =
        std::find_if(from, limit, [&](std::uint8_t next) { return next != *from; });
    const bool is_run = behind - from > 1;
    if (!is_run) behind = std::adjacent_find(from, limit);
    *out++ = byte(is_run ? 0x80 + (behind - from) : behind - from);
    out = is_run ? std::copy_n(from, 1, out) : std::copy(from, behind, out);
    from = behind;
  }
  return out;
}

// In the first version, in runs.
Status write_indices(const formats::EncodeRequest& request, StreamWriter& out) {
  constexpr std::int64_t kUnitsPerInch = 1200, kUsualDots = 72;
  const HeaderBlock& image = *request.image;
  const int bits = image.header.biBitCount;
  const bool white_first = brightness(image.palette[0]) > brightness(image.palette[1]);
  const RowLayout* const layout =
      bits == 1   ? find_layout(white_first ? Layout::bits_1_black : Layout::bits_1, 1)
      : bits == 4 ? find_layout(Layout::bits_4, 4)
                  : find_layout(Layout::bytes, 8);
  const auto dots = [](std::int32_t said) { return said > 0 && said <= 65535 ? said : kUsualDots; };
  const std::int64_t x_dpi = dots(image.header.biXPelsPerMeter);
  const std::int64_t y_dpi = dots(image.header.biYPelsPerMeter);
  const auto put_side = [&](std::int64_t pixels, std::int64_t dpi) {
    out.put_le16(
        static_cast<std::uint32_t>(std::min<std::int64_t>(pixels * kUnitsPerInch / dpi, 65535)));
  };
  put_header(1, out);
  out.put8(kStart1);
  out.put8(6);
  out.put_le16(1);
  put_side(image.header.biWidth, x_dpi);
  put_side(image.header.biHeight, y_dpi);
  const auto colours = std::span<const Rgb>(image.palette).first(std::size_t{1} << bits);
  put_colours(bits == 1 ? std::span<const Rgb>(black_and_white()) : colours, out);
  out.put8(kBitmap1);
  const std::int64_t length_at = out.count();
  put_length(0, out);
  const std::int64_t start = out.count();
  for (const std::int64_t field :
       {std::int64_t{image.header.biWidth}, std::int64_t{image.header.biHeight}, std::int64_t{bits},
        x_dpi, y_dpi}) {
    out.put_le16(static_cast<std::uint32_t>(field));
  }
  const formats::StoredRows rows{layout, stored_bytes(*layout, image.header.biWidth)};
  TQ_TRY(formats::supply_rows(rows, request, [&](Bytes line) -> Status {
    const Row codes = out.room(2 * std::ssize(line) + 2);
    if (codes.empty()) return out.status();
    out.take(code_row(line, codes.data()) - codes.data());
    return kOk;
  }));
  const std::int64_t bytes = out.count() - start;
  out.put8(kEnd1);
  out.put8(0);
  TQ_TRY(out.flush());
  std::array<std::uint8_t, 4> length;
  store_le16(&length[0], word(bytes >> 16 | 0x8000));
  store_le16(&length[2], word(bytes));
  return out.patch_put(length_at + 1, length);
}

// In the second, plain.
Status write_colours(const formats::EncodeRequest& request, StreamWriter& out) {
  constexpr int kClass = 1, kStart = 1, kStartBytes = 21, kDepth24 = 8, kUnitsPerInch = 1200;
  const BitmapInfoHeader& header = request.image->header;
  const RowLayout* const layout = find_layout(Layout::rgb, header.biBitCount);
  const formats::StoredRows rows{layout, stored_bytes(*layout, header.biWidth)};
  put_header(2, out);
  for (const int field : {kClass, kStart, 0, kStartBytes}) out.put8(field);
  out.put_le16(kUnitsPerInch);
  out.put_le16(kUnitsPerInch);
  out.fill(kStartBytes - 4, 0);
  for (const int field : {kClass, +kBitmap2, 0}) out.put8(field);
  put_length(6 + rows.line_bytes * header.biHeight, out);
  out.put_le16(static_cast<std::uint32_t>(header.biWidth));
  out.put_le16(static_cast<std::uint32_t>(header.biHeight));
  out.put8(kDepth24);
  out.put8(0);
  TQ_TRY(formats::write_rows(rows, request, out));
  for (const int field : {kClass, +kEnd2, 0, 0}) out.put8(field);
  return out.flush();
}

}  // namespace

Status can_encode_wpg(const formats::EncodeRequest& request) {
  return formats::check_plain(request, 65535);
}

Status encode_wpg(const formats::EncodeRequest& request) {
  TQ_TRY(can_encode_wpg(request));
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  const bool indexed = request.image->header.biBitCount <= 8;
  return indexed ? write_indices(request, out) : write_colours(request, out);
}

}  // namespace tq::wpg
