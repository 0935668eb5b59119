// Cutting rows at any pixel.
#include "cropped_rows.h"

#include <algorithm>
#include <cstring>

#include "dib_header.h"

namespace tool {
namespace {

// Copies `count` bits from bit `first` on, most significant bit first; the rest of `dest` becomes
// 0.
void copy_bits(std::span<const std::uint8_t> source, std::uint64_t first, std::uint64_t count,
               std::span<std::uint8_t> dest) {
  source = source.subspan(std::min(static_cast<std::size_t>(first / 8), source.size()));
  const auto at = [&](std::size_t i) { return i < source.size() ? source[i] : 0; };
  const int shift = static_cast<int>(first % 8);
  const auto shifted = [&](std::size_t i) {
    return static_cast<std::uint8_t>(at(i) << shift | at(i + 1) >> (8 - shift));
  };
  const std::size_t whole = std::min(static_cast<std::size_t>(count / 8), dest.size());
  for (std::size_t i = 0; i < whole; ++i) dest[i] = shifted(i);
  if (whole == dest.size()) return;
  const auto mask = static_cast<std::uint8_t>(0xFF00 >> count % 8);
  dest[whole] = shifted(whole) & mask;
  std::fill(dest.begin() + whole + 1, dest.end(), std::uint8_t{0});
}

}  // namespace

CroppedRows::CroppedRows(std::int32_t image, const Rect& crop, Progress& progress)
    : image_(image), crop_(crop), progress_(progress) {}

std::int32_t CroppedRows::make_header() {
  if (const std::int32_t got = IMGLOW_get_bitmap_header(image_, header_.data()); got < 0) {
    return got;
  }
  DibHeader header;
  std::memcpy(&header, header_.data(), sizeof header);
  bits_ = header.biBitCount;
  row_.resize(static_cast<std::size_t>(row_bytes(header.biWidth, bits_)));
  header.biWidth = crop_.width;
  header.biHeight = crop_.height;
  header.biSizeImage = static_cast<std::uint32_t>(row_bytes(crop_.width, bits_) * crop_.height);
  if (header.biCompression == kRunLists) header.biCompression = 0;
  if (const std::int32_t index = IMGLOW_get_transp_color(image_); index >= 0) {
    header.biClrUsed = kTransparent | static_cast<std::uint32_t>(index);
  }
  std::memcpy(header_.data(), &header, sizeof header);
  return IMG_OK;
}

std::int32_t CroppedRows::save(std::int32_t stream, std::int32_t code) {
  if (const std::int32_t made = make_header(); made < 0) return made;
  return IMGLOW_save_bitmap(stream, header_.data(), code, on_row, this);
}

std::int32_t IMG_CB_C CroppedRows::on_row(void* self, void* dest, std::int32_t y,
                                          std::int32_t bytes) {
  return static_cast<CroppedRows*>(self)->supply(static_cast<std::uint8_t*>(dest), y, bytes);
}

std::int32_t CroppedRows::supply(std::uint8_t* dest, std::int32_t y, std::int32_t bytes) {
  if (const std::int32_t answer = progress_.step(crop_.height); answer < 0) return answer;
  if (const std::int32_t got = IMGLOW_get_raster(image_, row_.data(), crop_.y + y, 0); got < 0) {
    return got;
  }
  const auto bits = static_cast<std::uint64_t>(bits_);
  copy_bits(row_, static_cast<std::uint64_t>(crop_.x) * bits,
            static_cast<std::uint64_t>(crop_.width) * bits,
            {dest, static_cast<std::size_t>(std::max(bytes, 0))});
  return 0;
}

}  // namespace tool
