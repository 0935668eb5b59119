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

namespace {

// BITMAPV5HEADER, of which the rest is 0.
struct V5Header {
  BitmapInfoHeader front;
  std::uint32_t red, green, blue, alpha;
  std::uint32_t colour_space;
  std::uint32_t endpoints[9], gamma[3];
  std::uint32_t intent;
  std::uint32_t profile[2], reserved;
};
static_assert(sizeof(V5Header) == 124);

constexpr std::uint32_t kBitFields = 3, kSrgb = 0x73524742, kPerceptual = 4;

}  // namespace

std::uint64_t transparent_dib_bytes(const ImageRecord& image) {
  const std::uint64_t row = row_bytes(image.crop.width, 32);
  return sizeof(V5Header) + row * image.crop.height;
}

Status copy_transparent_dib(const ImageRecord& image, std::uint8_t* out) {
  V5Header header{.front = copied_header(image),
                  .red = 0x00FF0000,
                  .green = 0x0000FF00,
                  .blue = 0x000000FF,
                  .alpha = 0xFF000000,
                  .colour_space = kSrgb,
                  .endpoints = {},
                  .gamma = {},
                  .intent = kPerceptual,
                  .profile = {},
                  .reserved = 0};
  header.front.biSize = sizeof header;
  header.front.biBitCount = 32;
  header.front.biCompression = kBitFields;
  header.front.biSizeImage = image_bytes(image.crop.width, image.crop.height, 32);
  header.front.biClrUsed = 0;
  std::memcpy(out, &header, sizeof header);
  out += sizeof header;
  const std::span<const Rgb> palette = palette_of(image);
  const int transparent = image.transparent_colour & 255;
  RowBuffer<std::uint8_t> stored;
  TQ_TRY(stored.allocate(row_bytes(image.width, image.bits)));
  const std::int32_t width = image.crop.width;
  for (std::int32_t y = image.crop.height - 1; y >= 0; --y) {
    TQ_TRY(get_raster(image, stored.data(), image.crop.y + y, 0));
    pixels::for_each_index(stored.data(), image.bits, image.crop.x + width, [&](int x, int index) {
      if (x < image.crop.x) return;
      const Rgb colour = palette[index];
      const std::uint8_t alpha = index == transparent ? 0 : 255;
      const std::uint8_t pixel[4] = {colour.blue, colour.green, colour.red, alpha};
      std::memcpy(out + 4 * std::ptrdiff_t{x - image.crop.x}, pixel, sizeof pixel);
    });
    out += 4 * std::ptrdiff_t{width};
  }
  return kOk;
}

}  // namespace tq::show
