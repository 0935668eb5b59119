// PCX images: scan lines of one to four planes, assembled into rows of pixels.
#include "formats/pcx/pcx_decode.h"

#include <algorithm>

#include "formats/pcx/pcx.h"
#include "formats/pcx/pcx_planes.h"
#include "formats/pcx/pcx_rows.h"

namespace tq::formats {
namespace {

using Line = std::span<const std::uint8_t>;
using Row = std::span<std::uint8_t>;

// Pixels for which the planes have no bytes are 0.
void assemble(Line line, const PcxHeader& file, bool inverted, Row row) {
  const auto plane = static_cast<std::size_t>(file.bytes_per_line);
  if (file.planes == 1) {
    const std::size_t bytes = std::min(plane, row.size());
    std::copy_n(line.begin(), bytes, row.begin());
    if (inverted) invert(row.first(bytes));
  } else if (file.bits == 1) {
    merge_bit_planes(line, plane, file.planes, row);
  } else {
    const std::size_t there = std::min(plane, static_cast<std::size_t>(file.width));
    interleave(line.subspan(2 * plane, there), line.subspan(plane, there), line.first(there), row);
  }
}

Status decode_rows(const DecodeRequest& request, const PcxHeader& file, bool inverted) {
  PcxLines lines;
  TQ_TRY(lines.open(request.stream, file));
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(row_bytes(file.width, file.pixel_bits())));
  for (std::int32_t y = 0; y < file.height; ++y) {
    Line line;
    bool more = false;
    TQ_TRY(lines.next(line, more));
    if (!more) return kOk;  // a file that is cut off keeps the rows it has
    assemble(line, file, inverted, row.pixels());
    TQ_TRY(request.sink.row(row.pixels(), y));
  }
  return kOk;
}

}  // namespace

Status decode_pcx_in(const DecodeRequest& request, const PcxExtent& extent) {
  PcxHeader file;
  TQ_TRY(read_pcx_header(request.stream, extent.start, file));
  HeaderBlock image = dib_header(file.width, file.height, file.pixel_bits());
  image.header.biXPelsPerMeter = file.x_dpi;
  image.header.biYPelsPerMeter = file.y_dpi;
  const bool inverted = read_pcx_palette(request.stream, extent, file, image);

  seek(request.stream, extent.start + kPcxHeaderBytes, Origin::start);
  TQ_TRY(request.sink.header(image));
  TQ_TRY(decode_rows(request, file, inverted));
  return Status::from_raw(1);  // and not 0; callers rely on it
}

Status decode_pcx(const DecodeRequest& request) {
  // There is one page; a page number means the image at the current position.
  const std::int32_t start = request.start();
  return decode_pcx_in(request, {.start = start});
}

}  // namespace tq::formats
