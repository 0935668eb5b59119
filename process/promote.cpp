// To more bits per pixel, without a change of colour where the layouts allow it.
#include <algorithm>
#include <array>
#include <cstring>

#include "core/display_cache.h"
#include "process/kernels.h"
#include "process/pixel_indices.h"
#include "process/process.h"
#include "process/rebuild.h"

namespace tq::process {
namespace {

// Source rows that may be run lists.
class StoredRows {
 public:
  explicit StoredRows(const ImageSource& image) : image_(image) {}
  Status allocate() {
    return image_.in_runs() ? bits_.allocate(row_bytes(image_.width(), 1)) : kOk;
  }
  const std::uint8_t* read(std::int32_t y) const {
    if (!image_.in_runs()) return image_.row(y).data();
    expand_row(image_.record(), y, bits_.pixels());
    return bits_.data();
  }

 private:
  const ImageSource& image_;
  RowBuffer<std::uint8_t> bits_;
};

// 16-bit samples stay as they are, at the start of the wider row.
void copy_samples(const std::uint8_t* from, std::int32_t width, std::span<std::uint8_t> row) {
  const auto there = static_cast<std::size_t>(width) * 2;
  std::copy_n(from, there, row.begin());
  std::fill(row.begin() + there, row.end(), std::uint8_t{0});
}

void widen_to_8(const std::uint8_t* from, int bits, std::int32_t width,
                std::span<std::uint8_t> row) {
  std::uint8_t* out = row.data();
  const int white = bits == 1 ? 255 : 1;
  for_each_index(from, bits, width, [&](std::int32_t x, int index) {
    out[x] = static_cast<std::uint8_t>(index * white);
  });
}

// Inks to blue, green, red; with an RGB marker the pixel is read as unused, red, green, blue.
// Callers rely on both.
void narrow_to_24(const std::uint8_t* from, bool inks, std::int32_t width, std::uint8_t* out) {
  const auto less = [](int a, int b) {
    return static_cast<std::uint8_t>(std::max(255 - a - b, 0));
  };
  for (std::int32_t x = 0; x < width; ++x, from += 4, out += 3) {
    out[0] = inks ? less(from[2], from[3]) : from[3];
    out[1] = inks ? less(from[1], from[3]) : from[2];
    out[2] = inks ? less(from[0], from[3]) : from[1];
  }
}

void widen_to_24(const std::uint8_t* from, const ImageSource& image, std::span<std::uint8_t> row) {
  std::uint8_t* out = row.data();
  // One store of four bytes a pixel, of which the next one overwrites the fourth. The last of them
  // is padding, or belongs to the row above or to the room behind the rows.
  std::uint8_t& behind = out[3 * static_cast<std::size_t>(image.width())];
  const std::uint8_t kept = behind;
  for_each_index(from, image.bits(), image.width(), [&](std::int32_t x, int index) {
    std::memcpy(out + 3 * x, &image.palette()[index], sizeof(Rgb));
  });
  behind = kept;
}

void widen_to_32(const std::uint8_t* from, const ImageSource& image,
                 const std::array<Rgb, 256>& colours, std::span<std::uint8_t> row) {
  Rgb* out = reinterpret_cast<Rgb*>(row.data());
  for_each_index(from, image.bits(), image.width(),
                 [&](std::int32_t x, int index) { out[x] = colours[index]; });
}

// `widen(from, row)` makes a row of `bits` bits out of a stored one.
template <class Widen>
Status promote(ImageSource& image, int bits, std::span<const Rgb> palette, Widen&& widen) {
  StoredRows rows(image);
  TQ_TRY(rows.allocate());
  return replace_rows(image, {bits, palette}, [&](std::int32_t y, std::span<std::uint8_t> row) {
    widen(rows.read(y), row);
  });
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
  const std::span<const Rgb> palette = image.in_runs() ? grey_ramp() : image.palette();
  return promote(image, 8, palette, [&](const std::uint8_t* from, std::span<std::uint8_t> row) {
    widen_to_8(from, image.bits(), image.width(), row);
  });
}

Status promote_24(ImageSource& image) {
  release_display_cache(image.record());
  if (!has_rule(image) || image.bits() == 24) return StatusCode::unsupported;
  const bool inks = image.header().biCompression == 0;
  return promote(image, 24, {}, [&](const std::uint8_t* from, std::span<std::uint8_t> row) {
    if (image.bits() == 16) return copy_samples(from, image.width(), row);
    if (image.bits() == 32) return narrow_to_24(from, inks, image.width(), row.data());
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
  return promote(image, 32, {}, [&](const std::uint8_t* from, std::span<std::uint8_t> row) {
    if (image.bits() == 16) return copy_samples(from, image.width(), row);
    if (image.bits() == 24) {
      return kernels().widen_24_reversed(from, row.data(), image.width());
    }
    widen_to_32(from, image, colours, row);
  });
}

}  // namespace tq::process
