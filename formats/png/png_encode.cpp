// Writes PNG images: grey where the palette is a grey ramp, else indexed, else of colours.
#include "formats/png/png.h"
#include "formats/png/png_library.h"

namespace tq::formats {
namespace {

std::uint32_t per_metre(std::int32_t dots_per_inch) {
  if (dots_per_inch <= 0) return 0;
  const std::uint64_t dots =
      (std::uint64_t{static_cast<std::uint32_t>(dots_per_inch)} * 10000 + 127) / 254;
  return static_cast<std::uint32_t>(dots < 0x7FFFFFFF ? dots : 0x7FFFFFFF);
}

bool is_grey_ramp(const HeaderBlock& image) {
  const int last = (1 << image.header.biBitCount) - 1;
  for (int i = 0; i <= last; ++i) {
    const int level = i * 255 / last;
    const Rgb& entry = image.palette[i];
    if (entry.blue != level || entry.green != level || entry.red != level) return false;
  }
  return true;
}

void choose_indexed(const HeaderBlock& image, PngHeader& file) {
  const bool transparent = (image.header.biClrUsed & kTransparent) != 0;
  file.bits = image.header.biBitCount;
  if (!transparent && is_grey_ramp(image)) return;
  file.indexed = file.colour = true;
  file.entries = 1 << file.bits;
  for (int i = 0; i < file.entries; ++i) {
    const Rgb& entry = image.palette[i];
    file.palette[i] = {entry.red, entry.green, entry.blue, 255};
  }
  const int index = image.header.biClrUsed & 0xFF;
  if (transparent && index < file.entries) file.palette[index].alpha = 0;
}

// Saving to memory does not tell which 32-bit images are of colours.
bool has_colours(const EncodeRequest& request) {
  return request.image->header.biCompression == kRgb32 || request.stream == kMemoryStream;
}

Status choose(const EncodeRequest& request, PngHeader& file) {
  const BitmapInfoHeader& header = request.image->header;
  file.width = header.biWidth;
  file.height = header.biHeight;
  file.x_per_metre = per_metre(header.biXPelsPerMeter);
  file.y_per_metre = per_metre(header.biYPelsPerMeter);
  switch (header.biBitCount) {
    case 1:
    case 4:
    case 8:
      choose_indexed(*request.image, file);
      return kOk;
    case 16:
      file.bits = 16;
      return kOk;
    case 24:
    case 32:
      if (header.biBitCount == 32 && !has_colours(request)) return StatusCode::wrong_depth;
      file.bits = 8;
      file.colour = true;
      return kOk;
    default:
      return StatusCode::wrong_depth;
  }
}

}  // namespace

Status can_encode_png(const EncodeRequest& request) {
  PngHeader file;
  return choose(request, file);
}

Status encode_png(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  PngHeader file;
  TQ_TRY(choose(request, file));
  PngWriter writer;
  TQ_TRY(writer.open(request.stream));
  TQ_TRY(writer.write_header(file, header.biBitCount / 8));
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    TQ_TRY(request.rows.row(row.pixels(), y));
    TQ_TRY(writer.write_row(row.data()));
  }
  return writer.finish();
}

}  // namespace tq::formats
