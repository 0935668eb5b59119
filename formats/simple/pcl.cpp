// Pictures for printers: raster graphics of PCL 5, with colours where there are any.
#include <algorithm>

#include "coding/packbits.h"
#include "formats/rows.h"
#include "formats/simple/simple.h"

namespace tq::simple {
namespace {

using formats::EncodeRequest;
using pixels::Layout;

constexpr int kLargestSide = 65535;
constexpr std::int32_t kUsualDots = 300;

Status choose(const EncodeRequest& request, formats::StoredRows& rows) {
  TQ_TRY(formats::check_plain(request, kLargestSide));
  const HeaderBlock& image = *request.image;
  const int bits = image.header.biBitCount;
  rows.layout = bits == 1 ? pixels::find_black_layout(image.palette)
                          : pixels::find_layout(bits <= 8 ? Layout::bytes : Layout::rgb, bits);
  rows.line_bytes = stored_bytes(*rows.layout, image.header.biWidth);
  return kOk;
}

// Printers know these.
std::int32_t printer_dots(const BitmapInfoHeader& header) {
  constexpr std::int32_t kDots[] = {75, 100, 150, 200, 300, 600};
  const std::int32_t dots = std::max(header.biXPelsPerMeter, header.biYPelsPerMeter);
  if (dots <= 0) return kUsualDots;
  const auto* const found = std::lower_bound(std::begin(kDots), std::end(kDots), dots);
  return found == std::end(kDots) ? kDots[std::size(kDots) - 1] : *found;
}

void put_colours(const HeaderBlock& image, StreamWriter& out) {
  const int bits = image.header.biBitCount;
  out.put("\x1B*v6W");
  for (const int value : {0, bits <= 8 ? 1 : 3, 8, 8, 8, 8}) out.put8(value);
  for (int i = 0; bits <= 8 && i < 1 << bits; ++i) {
    const Rgb& colour = image.palette[i];
    out.print("\x1B*v%da%db%dc%dI", colour.red, colour.green, colour.blue, i);
  }
}

}  // namespace

Status can_encode_pcl(const EncodeRequest& request) {
  formats::StoredRows rows;
  return choose(request, rows);
}

Status encode_pcl(const EncodeRequest& request) {
  formats::StoredRows rows;
  TQ_TRY(choose(request, rows));
  const BitmapInfoHeader& header = request.image->header;
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  out.print(
      "\x1B"
      "E\x1B&l0O\x1B&l0E\x1B*t%dR",
      static_cast<int>(printer_dots(header)));
  if (header.biBitCount != 1) put_colours(*request.image, out);
  out.print("\x1B*p0x0Y\x1B*r0F\x1B*r%ds%dT\x1B*r1A\x1B*b2M", static_cast<int>(header.biWidth),
            static_cast<int>(header.biHeight));
  RowBuffer<std::uint8_t> coded;
  TQ_TRY(coded.allocate(packbits::most_bytes(rows.line_bytes)));
  std::int32_t empty_rows = 0;  // that are written before the next, if there is one
  TQ_TRY(formats::supply_rows(rows, request, [&](pixels::Bytes line) {
    if (std::ranges::all_of(line, [](std::uint8_t value) { return value == 0; })) {
      ++empty_rows;
      return out.status();
    }
    for (; empty_rows > 0; --empty_rows) out.put("\x1B*b0W");
    const auto bytes = packbits::encode(line, coded.data()) - coded.data();
    out.print("\x1B*b%dW", static_cast<int>(bytes));
    out.put(coded.pixels().first(static_cast<std::size_t>(bytes)));
    return out.status();
  }));
  out.put(
      "\x1B*rC\x1B"
      "E");
  return out.flush();
}

}  // namespace tq::simple
