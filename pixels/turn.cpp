// Where rows stay rows, they are mirrored; where columns become rows, a band of them is gathered from
// a few rows of the source at a time.
#include "pixels/turn.h"

#include <algorithm>
#include <cstring>

#include "pixels/kernels.h"

namespace tq::pixels {
namespace {

constexpr std::uint8_t reversed(std::uint8_t bits) {
  bits = byte((bits & 0x0F) << 4 | bits >> 4);
  bits = byte((bits & 0x33) << 2 | (bits & 0xCC) >> 2);
  return byte((bits & 0x55) << 1 | (bits & 0xAA) >> 1);
}

// Shifts what has been turned round to the start of the row: the padding came first.
void close_gap(Row row, int bits) {
  if (bits == 0) return;
  for (std::size_t i = 0; i < row.size(); ++i) {
    const int next = i + 1 < row.size() ? row[i + 1] : 0;
    row[i] = byte(row[i] << bits | next >> (8 - bits));
  }
}

template <int kBytes>
void mirror_pixels(const std::uint8_t* from, std::int32_t width, std::uint8_t* to) {
  from += std::ptrdiff_t{kBytes} * width;
  for (std::int32_t x = 0; x < width; ++x, to += kBytes) {
    std::memcpy(to, from -= kBytes, kBytes);
  }
}

// A square of bits, a byte a row, along its diagonal (Hacker's Delight, 7-3).
std::uint64_t transposed(std::uint64_t rows) {
  std::uint64_t t = (rows ^ rows >> 7) & 0x00AA00AA00AA00AA;
  rows = rows ^ t ^ t << 7;
  t = (rows ^ rows >> 14) & 0x0000CCCC0000CCCC;
  rows = rows ^ t ^ t << 14;
  t = (rows ^ rows >> 28) & 0x00000000F0F0F0F0;
  return rows ^ t ^ t << 28;
}

template <int kBytes>
void copy_pixels(const std::uint8_t* from, std::int64_t stride, int count, std::uint8_t* to) {
  for (int i = 0; i < count; ++i) std::memcpy(to + kBytes * i, from + i * stride, kBytes);
}

}  // namespace

void mirror_row(Row row, std::int32_t width, int bits) {
  if (bits >= 8) {
    return mirror(row.first(static_cast<std::size_t>(std::int64_t{width} * bits / 8)), bits / 8);
  }
  const Row used = row.first(static_cast<std::size_t>((std::int64_t{width} * bits + 7) / 8));
  std::ranges::reverse(used);
  for (std::uint8_t& pixels : used) {
    pixels = bits == 1 ? reversed(pixels) : byte(pixels << 4 | pixels >> 4);
  }
  close_gap(used, static_cast<int>(8 * used.size() - std::size_t(width) * bits));
}

void mirror_row(Bytes from, std::int32_t width, int bits, Row to) {
  switch (bits) {
    case 8:
      return mirror_pixels<1>(from.data(), width, to.data());
    case 16:
      return mirror_pixels<2>(from.data(), width, to.data());
    case 24:
      return kernels().mirror_24(from.data(), to.data(), width);
    case 32:
      return mirror_pixels<4>(from.data(), width, to.data());
    default:
      return kernels().mirror_part_bytes(from.data(), width, bits, to.data());
  }
}

Status TurnedRows::open(const Source& source, Turn turn) {
  source_ = source;
  turn_ = turn;
  first_ = there_ = 0;
  source_stride_ = row_bytes(source.width, source.bits);
  stride_ = row_bytes(width(), source.bits);
  const std::int64_t fitting = std::max<std::int64_t>(kBandBytes / stride_, kGroup);
  band_rows_ =
      turn.swapped ? static_cast<std::int32_t>(std::min<std::int64_t>(fitting, height())) : 1;
  if (turn.swapped) TQ_TRY(group_.allocate(kGroup * source_stride_));
  return band_.allocate(band_rows_ * stride_);
}

Row TurnedRows::band_row(std::int32_t i) {
  return band_.pixels().subspan(static_cast<std::size_t>(i * stride_),
                                static_cast<std::size_t>(stride_));
}

// Pixels x to x + count - 1 of the band's rows: a column of as many rows of the source.
void TurnedRows::turn_group(std::int32_t x, int count) {
  const auto source_row = [&](int i) { return group_.data() + i * source_stride_; };
  for (int i = 0; i < count; ++i) {
    const std::int32_t y = turn_.from_bottom ? source_.height - 1 - x - i : x + i;
    source_.read(source_.context, y, {source_row(i), static_cast<std::size_t>(source_stride_)});
  }
  const auto column_of = [&](std::int32_t i) {
    return turn_.from_right ? source_.width - 1 - first_ - i : first_ + i;
  };
  if (source_.bits == 1) {
    std::int32_t loaded = -1;  // the eight columns that `square` holds
    std::uint64_t square = 0;
    for (std::int32_t i = 0; i < there_; ++i) {
      const std::int32_t column = column_of(i);
      if (column / 8 != loaded) {
        loaded = column / 8;
        square = 0;
        for (int k = 0; k < kGroup; ++k) {
          square = square << 8 | (k < count ? source_row(k)[loaded] : 0U);
        }
        square = transposed(square);
      }
      band_row(i)[static_cast<std::size_t>(x / 8)] = byte(square >> (8 * (7 - column % 8)));
    }
    return;
  }
  if (source_.bits == 4) {
    for (std::int32_t i = 0; i < there_; ++i) {
      const std::int32_t column = column_of(i);
      for (int k = 0; k < count; ++k) {
        const int pixel = source_row(k)[column / 2] >> (column % 2 == 0 ? 4 : 0) & 15;
        std::uint8_t& pair = band_row(i)[static_cast<std::size_t>((x + k) / 2)];
        pair = byte((x + k) % 2 == 0 ? pixel << 4 : pair | pixel);
      }
    }
    return;
  }
  const int bytes = source_.bits / 8;
  const auto copy = bytes == 1   ? copy_pixels<1>
                    : bytes == 2 ? copy_pixels<2>
                    : bytes == 3 ? copy_pixels<3>
                                 : copy_pixels<4>;
  for (std::int32_t i = 0; i < there_; ++i) {
    copy(group_.data() + std::int64_t{bytes} * column_of(i), source_stride_, count,
         band_row(i).data() + std::int64_t{bytes} * x);
  }
}

void TurnedRows::turn_band(std::int32_t first) {
  first_ = first;
  there_ = std::min(band_rows_, height() - first);
  std::ranges::fill(band_.pixels(), std::uint8_t{0});
  for (std::int32_t x = 0; x < width(); x += kGroup) {
    turn_group(x, std::min(kGroup, width() - x));
  }
}

Bytes TurnedRows::row(std::int32_t y) {
  if (turn_.swapped) {
    if (y < first_ || y >= first_ + there_) turn_band(y);
    return band_row(y - first_);
  }
  const Row row = band_row(0);
  source_.read(source_.context, turn_.from_bottom ? source_.height - 1 - y : y, row);
  if (turn_.from_right) mirror_row(row, source_.width, source_.bits);
  return row;
}

}  // namespace tq::pixels
