// Nearest-neighbour scaling and cutting of one row.
#include "dispatch/row_resize.h"

#include <algorithm>
#include <cstring>

#include "core/rows.h"

namespace tq::dispatch {
namespace {

using Row = std::span<const std::uint8_t>;
using Out = std::span<std::uint8_t>;

int pixel_bit(Row row, std::int64_t x) {
  return row[static_cast<std::size_t>(x / 8)] >> (7 - x % 8) & 1;
}

int pixel_nibble(Row row, std::int64_t x) {
  const int byte = row[static_cast<std::size_t>(x / 2)];
  return x % 2 == 0 ? byte >> 4 : byte & 15;
}

void put_bit(Out out, std::int32_t x, int bit) {
  out[static_cast<std::size_t>(x / 8)] |= static_cast<std::uint8_t>(bit << (7 - x % 8));
}

void put_nibble(Out out, std::int32_t x, int nibble) {
  out[static_cast<std::size_t>(x / 2)] |=
      static_cast<std::uint8_t>(x % 2 == 0 ? nibble << 4 : nibble);
}

// out pixel i = row pixel source(i), for i below `count`; `out` is clear.
template <class Source>
void gather(Row row, int bits, Out out, std::int32_t count, Source&& source) {
  switch (bits) {
    case 1:
      for (std::int32_t i = 0; i < count; ++i) put_bit(out, i, pixel_bit(row, source(i)));
      return;
    case 4:
      for (std::int32_t i = 0; i < count; ++i) put_nibble(out, i, pixel_nibble(row, source(i)));
      return;
    default:
      break;
  }
  // A depth of its own kind has one byte a pixel.
  const std::size_t bytes = bits == 16 || bits == 24 || bits == 32 ? bits / 8 : 1;
  for (std::int32_t i = 0; i < count; ++i) {
    std::memcpy(&out[static_cast<std::size_t>(i) * bytes],
                &row[static_cast<std::size_t>(source(i)) * bytes], bytes);
  }
}

}  // namespace

void scale_row(Row row, std::int32_t width, int bits, Out out, std::int32_t out_width) {
  const std::int64_t step = (std::int64_t{width} << 16) / out_width;
  std::fill(out.begin(), out.end(), std::uint8_t{0});
  gather(row, bits, out, out_width, [&](std::int32_t i) { return i * step >> 16; });
}

void cut_row(Row row, std::int32_t width, int bits, std::int32_t first, Out out,
             std::int32_t out_width) {
  std::fill(out.begin(), out.end(), bits == 1 ? std::uint8_t{0xFF} : std::uint8_t{0});
  const std::int32_t there = std::clamp(width - first, 0, out_width);
  if (there == 0) return;
  if (bits == 1) return copy_bits(row, first, there, out);
  gather(row, bits, out, there, [&](std::int32_t i) { return std::int64_t{first} + i; });
}

}  // namespace tq::dispatch
