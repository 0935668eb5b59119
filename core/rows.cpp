// Rows in and out of an image, and their colours.
#include "core/rows.h"

#include <algorithm>
#include <cstring>

#include "core/run_storage.h"

namespace tq {
namespace {

Status check_copy(const ImageRecord& image, std::int32_t y, std::int32_t& bytes) {
  if (y < 0 || y >= image.height || bytes < 0) return StatusCode::unsupported;
  if (bytes == 0 || bytes > image.bytes_per_row) bytes = image.bytes_per_row;
  return kOk;
}

Rgb ink_to_colour(const std::uint8_t* cmyk) {
  const auto channel = [&](int ink) {
    return static_cast<std::uint8_t>(std::max(255 - cmyk[ink] - cmyk[3], 0));
  };
  return {channel(2), channel(1), channel(0), 0};
}

}  // namespace

Status get_raster(const ImageRecord& image, std::uint8_t* out, std::int32_t y, std::int32_t bytes) {
  TQ_TRY(check_copy(image, y, bytes));
  if (!image.in_runs) {
    std::memcpy(out, plain_row(image, y).data(), static_cast<std::size_t>(bytes));
    return kOk;
  }
  if (bytes == image.bytes_per_row) {
    expand_row(image, y, {out, static_cast<std::size_t>(bytes)});
    return kOk;
  }
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(image.bytes_per_row));
  expand_row(image, y, row.pixels());
  std::copy_n(row.data(), bytes, out);
  return kOk;
}

Status put_raster(ImageRecord& image, const std::uint8_t* in, std::int32_t y, std::int32_t bytes) {
  TQ_TRY(check_copy(image, y, bytes));
  if (!image.in_runs) {
    std::memcpy(plain_row(image, y).data(), in, static_cast<std::size_t>(bytes));
    return kOk;
  }
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(image.bytes_per_row));
  expand_row(image, y, row.pixels());
  std::copy_n(in, bytes, row.data());
  return store_bits(image, y, row.pixels());
}

void copy_bits(std::span<const std::uint8_t> bits, std::int32_t first, std::int32_t width,
               std::span<std::uint8_t> out) {
  const auto from = bits.subspan(static_cast<std::size_t>(first / 8));
  const int shift = first & 7;
  const auto byte_at = [&](std::size_t i) {
    const int next = shift != 0 && i + 1 < from.size() ? from[i + 1] >> (8 - shift) : 0;
    return static_cast<std::uint8_t>(from[i] << shift | next);
  };
  const auto whole = static_cast<std::size_t>(width / 8);
  for (std::size_t i = 0; i < whole; ++i) out[i] = byte_at(i);
  if (const int rest = width & 7; rest != 0) {
    const auto stay = static_cast<std::uint8_t>(0xFF >> rest);
    out[whole] = static_cast<std::uint8_t>((out[whole] & stay) | (byte_at(whole) & ~stay));
  }
}

void row_to_colours(std::span<const std::uint8_t> row, const RowFormat& format,
                    std::span<Rgb> colours) {
  const auto width = static_cast<std::size_t>(format.width);
  const auto convert = [&](auto&& colour_at) {
    for (std::size_t x = 0; x < width; ++x) colours[x] = colour_at(x);
  };
  switch (format.bits) {
    case 1:
      return convert([&](std::size_t x) { return format.palette[row[x / 8] >> (7 - x % 8) & 1]; });
    case 4:
      return convert([&](std::size_t x) {
        return format.palette[x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15];
      });
    case 8:
      return convert([&](std::size_t x) { return format.palette[row[x]]; });
    case 16:
      return convert([&](std::size_t x) { return format.palette[row[2 * x + 1]]; });
    case 24:
      return convert([&](std::size_t x) {
        return Rgb{row[3 * x], row[3 * x + 1], row[3 * x + 2], 0};
      });
    case 32:
      if (format.cmyk) return convert([&](std::size_t x) { return ink_to_colour(&row[4 * x]); });
      return convert([&](std::size_t x) {
        return Rgb{row[4 * x], row[4 * x + 1], row[4 * x + 2], 0};
      });
    default:
      return convert([](std::size_t) { return Rgb{}; });
  }
}

}  // namespace tq
