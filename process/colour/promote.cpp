// To more bits per pixel, without a change of colour where the layouts allow it.
#include <algorithm>
#include <array>
#include <cstring>

#include "core/image_record.h"
#include "process/process.h"

namespace tq::process {
namespace {

using pixels::Layout;

// 16-bit samples stay as they are, at the start of the wider row.
void copy_samples(Bytes from, int width, Row row) {
  std::fill(std::copy_n(from.begin(), 2 * width, row.begin()), row.end(), std::uint8_t{0});
}

using EightLevels = std::array<std::uint8_t, 8>;

// Of the bits of a byte, the top one first.
constexpr std::array<EightLevels, 256> kLevelsOfBits = [] {
  std::array<EightLevels, 256> levels{};
  for (int i = 0; i < 256 * 8; ++i) levels[i / 8][i % 8] = (i / 8 << i % 8 & 0x80) != 0 ? 255 : 0;
  return levels;
}();

void widen_to_8(Bytes from, int bits, int width, Row row) {
  std::uint8_t* out = row.data();
  for (; bits == 1 && width >= 8; width -= 8, out += 8, from = from.subspan(1)) {
    std::memcpy(out, kLevelsOfBits[from[0]].data(), 8);
  }
  const int white = bits == 1 ? 255 : 1;
  pixels::for_each_index(from.data(), bits, width,
                         [&](int x, int index) { out[x] = byte(index * white); });
}

void widen_to_24(Bytes from, const ImageSource& image, Row row) {
  std::uint8_t* out = row.data();
  // One store of four bytes a pixel, of which the next one overwrites the fourth. The last of them
  // is padding, or belongs to the row above or to the room behind the rows.
  std::uint8_t& behind = out[3 * image.width()];
  const std::uint8_t kept = behind;
  pixels::for_each_index(from.data(), image.bits(), image.width(), [&](int x, int index) {
    std::memcpy(out + 3 * x, &image.palette()[index], sizeof(Rgb));
  });
  behind = kept;
}

void widen_to_32(Bytes from, const ImageSource& image, const std::array<Rgb, 256>& colours,
                 Row row) {
  Rgb* out = reinterpret_cast<Rgb*>(row.data());
  pixels::for_each_index(from.data(), image.bits(), image.width(),
                         [&](int x, int index) { out[x] = colours[index]; });
}

// `widen(from, row)` makes a row of `bits` bits out of a stored one.
template <class Widen>
Status promote(ImageSource& image, int bits, std::span<const Rgb> palette, Widen&& widen) {
  StoredRows rows(image);
  TQ_TRY(rows.allocate());
  return replace_rows(image, {bits, palette}, [&](int y, Row row) { widen(rows.read(y), row); });
}

bool has_rule(const ImageSource& image) {
  return image.bits() == 1 || image.is_deep();
}

}  // namespace

Status promote_8(ImageSource& image) {
  if (!has_rule(image) || image.bits() >= 24) return StatusCode::unsupported;
  release_display_cache(image.record());
  // Run lists have no palette of their own; any other image keeps its entries, whatever its pixels
  // turn into.
  const std::span<const Rgb> palette = image.in_runs() ? pixels::grey_ramp() : image.palette();
  return promote(image, 8, palette,
                 [&](Bytes from, Row row) { widen_to_8(from, image.bits(), image.width(), row); });
}

Status promote_24(ImageSource& image) {
  release_display_cache(image.record());
  if (!has_rule(image) || image.bits() == 24) return StatusCode::unsupported;
  // With an RGB marker a pixel is read as unused, red, green, blue; callers rely on it.
  const bool cmyk = image.header().biCompression == 0;
  const auto* const four = pixels::find_layout(cmyk ? Layout::cmyk : Layout::xrgb, 24);
  return promote(image, 24, {}, [&](Bytes from, Row row) {
    if (image.bits() == 16) return copy_samples(from, image.width(), row);
    if (image.bits() == 32) return pixels::unpack(*four, from, image.width(), row);
    widen_to_24(from, image, row);
  });
}

Status promote_32(ImageSource& image) {
  if (!has_rule(image) || image.bits() == 32) return StatusCode::unsupported;
  release_display_cache(image.record());
  std::array<Rgb, 256> colours{};  // the palette with what is to stand in the fourth byte
  for (std::size_t i = 0; i < image.palette().size(); ++i) {
    colours[i] = image.palette()[i];
    colours[i].reserved = 0;
  }
  const auto* const four = pixels::find_layout(Layout::xrgb, 24);
  return promote(image, 32, {}, [&](Bytes from, Row row) {
    if (image.bits() == 16) return copy_samples(from, image.width(), row);
    if (image.bits() == 24) return pixels::pack(*four, from, image.width(), row);
    widen_to_32(from, image, colours, row);
  });
}

}  // namespace tq::process
