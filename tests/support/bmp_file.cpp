// BMP files written byte by byte.
#include "tests/support/bmp_file.h"

namespace tq::test {
namespace {

Bytes field(std::uint32_t value, int bytes = 4) {
  Bytes field;
  for (int i = 0; i < bytes; ++i) field.push_back(static_cast<std::uint8_t>(value >> 8 * i));
  return field;
}

}  // namespace

Bytes bytes_of(std::string_view text) {
  return {text.begin(), text.end()};
}

Bytes joined(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes bmp_file(const BmpFields& f) {
  const bool core = f.header_bytes == 12;
  Bytes info = joined({field(f.header_bytes), field(f.width, core ? 2 : 4),
                       field(f.height, core ? 2 : 4), field(1, 2), field(f.bits, 2)});
  if (!core) {
    info = joined({info, field(f.compression), field(f.image_bytes), field(f.x_per_metre),
                   field(f.y_per_metre), field(f.colours_used), field(0)});
    if (f.header_bytes > 40) info = joined({info, f.header_bytes >= 52 ? f.masks : Bytes()});
    info.resize(f.header_bytes, 0x77);
  }
  if (f.header_bytes < 52) info = joined({info, f.masks});
  for (const Rgb& entry : f.palette) {
    info.insert(info.end(), {entry.blue, entry.green, entry.red});
    if (!core) info.push_back(entry.reserved);
  }
  if (!f.file_header) return joined({info, f.pixels});
  const auto offset = static_cast<std::uint32_t>(14 + info.size());
  const auto size = static_cast<std::uint32_t>(offset + f.pixels.size());
  return joined(
      {{'B', 'M'}, field(size), field(0), field(f.pixel_offset.value_or(offset)), info, f.pixels});
}

std::vector<Rgb> grey_palette(int count) {
  std::vector<Rgb> palette;
  for (int i = 0; i < count; ++i) {
    const auto level = static_cast<std::uint8_t>(i * 255 / (count - 1));
    palette.push_back({level, level, level, 0});
  }
  return palette;
}

}  // namespace tq::test
