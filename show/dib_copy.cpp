// Marks and depths that the library alone knows become what others know: run lists bits, 16-bit grey
// 8, inks colours, resolution pixels per metre.
#include "show/dib_copy.h"

#include <cstring>

#include "core/rows.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::show {
namespace {

bool has_inks(const ImageRecord& image) {
  return image.bits == 32 && header_of(image).biCompression != kRgb32;
}

int copied_bits(const ImageRecord& image) {
  if (image.bits == 16) return 8;
  return has_inks(image) ? 24 : image.bits;
}

std::uint64_t palette_entries(int bits) {
  return bits <= 8 ? std::uint64_t{1} << bits : 0;
}

BitmapInfoHeader copied_header(const ImageRecord& image) {
  const int bits = copied_bits(image);
  BitmapInfoHeader header = dib_header(image.crop.width, image.crop.height, bits).header;
  const Resolution resolution = resolution_of(image);
  header.biXPelsPerMeter = pixels_per_metre(resolution.x);
  header.biYPelsPerMeter = pixels_per_metre(resolution.y);
  header.biClrUsed = static_cast<std::uint32_t>(palette_entries(bits));
  return header;
}

}  // namespace

std::uint64_t dib_copy_bytes(const ImageRecord& image) {
  const int bits = copied_bits(image);
  const std::uint64_t row = row_bytes(image.crop.width, bits);
  return kDibHeaderBytes + 4 * palette_entries(bits) + row * image.crop.height;
}

Status copy_dib(const ImageRecord& image, std::uint8_t* out) {
  const BitmapInfoHeader header = copied_header(image);
  std::memcpy(out, &header, sizeof header);
  out += sizeof header;
  const auto greys = pixels::grey_levels(8);  // 16-bit images have no colours
  std::span<const Rgb> colours = palette_of(image);
  if (image.bits == 16) colours = greys;
  for (const Rgb& colour : colours.first(header.biClrUsed)) {
    const Rgb plain{colour.blue, colour.green, colour.red, 0};
    std::memcpy(out, &plain, sizeof plain);
    out += sizeof plain;
  }
  const std::int64_t stride = row_bytes(header.biWidth, header.biBitCount);
  RowBuffer<std::uint8_t> stored, cut;
  TQ_TRY(stored.allocate(row_bytes(image.width, image.bits)));
  TQ_TRY(cut.allocate(row_bytes(header.biWidth, image.bits)));
  for (std::int32_t y = header.biHeight - 1; y >= 0; --y, out += stride) {
    TQ_TRY(get_raster(image, stored.data(), image.crop.y + y, 0));
    pixels::cut_row(stored.pixels(), image.width, image.bits, image.crop.x, cut.pixels(),
                    header.biWidth);
    const pixels::Row row(out, static_cast<std::size_t>(stride));
    std::fill(row.begin(), row.end(), std::uint8_t{0});
    if (image.bits == 16) {
      for (std::int32_t x = 0; x < header.biWidth; ++x) row[x] = cut[2 * std::size_t(x) + 1];
    } else if (has_inks(image)) {
      pixels::inks_to_colours(cut.pixels(), header.biWidth, row);
    } else {
      std::copy(cut.pixels().begin(), cut.pixels().end(), row.begin());
    }
    for (std::size_t x = 3; header.biBitCount == 32 && x < row.size(); x += 4) row[x] = 0;
  }
  return kOk;
}

}  // namespace tq::show
