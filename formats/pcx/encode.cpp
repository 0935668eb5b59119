// Writes PCX images: rows from the top, plane by plane, each plane of a row coded on its own.
#include <algorithm>

#include "coding/byte_runs.h"
#include "formats/pcx/pcx.h"
#include "pixels/rows.h"

namespace tq::pcx {
namespace {

constexpr std::int32_t kLargestSide = 0xFFFF;
constexpr int kPaletteMarker = 12;

// How rows of a depth are stored. Those of one plane are so already.
struct Planes {
  const pixels::RowLayout* layout = nullptr;
  int count = 1;
  int bits = 0;  // of a pixel in each
  std::int32_t bytes = 0;

  explicit Planes(const BitmapInfoHeader& header) : bits(header.biBitCount) {
    if (bits == 4) layout = pixels::find_layout(pixels::Layout::bit_planes_4, bits);
    if (bits == 24) layout = pixels::find_layout(pixels::Layout::rgb_planes, bits);
    if (layout != nullptr) {
      count = layout->planes;
      bits = layout->plane_bits;
    }
    bytes = bits == 8 ? header.biWidth : (header.biWidth + 7) / 8;
  }
};

void put_colour(const Rgb& colour, StreamWriter& output) {
  output.put8(colour.red);
  output.put8(colour.green);
  output.put8(colour.blue);
}

void put_header(const HeaderBlock& image, const Planes& planes, StreamWriter& output) {
  const BitmapInfoHeader& header = image.header;
  const int bits = header.biBitCount;
  output.put8(10);
  output.put8(bits == 4 ? 2 : 5);  // version
  output.put8(1);                  // run-length coded
  output.put8(planes.bits);
  output.fill(4, 0);  // left, top
  output.put_le16(header.biWidth - 1);
  output.put_le16(header.biHeight - 1);
  output.put_le16(std::clamp(header.biXPelsPerMeter, 0, 0xFFFF));
  output.put_le16(std::clamp(header.biYPelsPerMeter, 0, 0xFFFF));
  // A 1-bit file's map stays all 0, which readers take for black, white.
  for (int i = 0; i < 16; ++i) put_colour(bits == 4 ? image.palette[i] : Rgb{}, output);
  output.put8(0);
  output.put8(planes.count);
  output.put_le16(planes.bytes);
  output.put_le16(bits == 24 ? 0 : 1);
  output.fill(58, 0);
}

Status write_rows(const EncodeRequest& request, const Planes& planes, StreamWriter& output) {
  const BitmapInfoHeader& header = request.image->header;
  RowBuffer<std::uint8_t, coding::kRunMargin> row, split;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  if (planes.layout != nullptr) TQ_TRY(split.allocate(planes.count * std::int64_t{planes.bytes}));
  const auto write = [&](std::int32_t /*y*/, Status /*supplied*/) -> Status {
    pixels::Bytes stored = row.pixels();
    if (planes.layout != nullptr) {
      pack(*planes.layout, row.pixels(), header.biWidth, split.pixels());
      stored = split.pixels();
    }
    for (int i = 0; i < planes.count; ++i, stored = stored.subspan(planes.bytes)) {
      const pixels::Row room = output.room(2 * std::int64_t{planes.bytes} + coding::kRunMargin);
      TQ_TRY(output.status());
      output.take(coding::code_marked_runs(stored.first(planes.bytes), room));
    }
    return kOk;
  };
  return request.rows.each(row.pixels(), header.biHeight, write);
}

}  // namespace

Status can_encode_pcx(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  const int bits = header.biBitCount;
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24) return StatusCode::wrong_depth;
  if (header.biWidth > kLargestSide || header.biHeight > kLargestSide) {
    return StatusCode::unsupported;
  }
  return kOk;
}

Status write_image(const EncodeRequest& request, StreamWriter& output) {
  TQ_TRY(can_encode_pcx(request));
  const HeaderBlock& image = *request.image;
  const Planes planes(image.header);
  put_header(image, planes, output);
  TQ_TRY(write_rows(request, planes, output));
  if (image.header.biBitCount == 8) {
    output.put8(kPaletteMarker);
    for (const Rgb& colour : image.palette) put_colour(colour, output);
  }
  return output.flush();
}

Status encode_pcx(const EncodeRequest& request) {
  StreamWriter output;
  TQ_TRY(output.open(request.stream));
  return write_image(request, output);
}

}  // namespace tq::pcx
