// Plain pixels go from row to row, and lists of a page as bits. Of larger images only the block at work is
// ever held as bits, and each list is walked once.
#include "process/geometry/transpose.h"

#include <algorithm>

#include "process/geometry/geometry.h"

namespace tq::process {
namespace {

constexpr int kWord = 64;
constexpr int kGroup = 8;  // source rows that are turned together

constexpr std::int64_t kMostExpanded = 8 << 20;  // bytes of a page of lists as bits

// Other run lists cost two bytes a row and a block of bits, which is to be little beside the page.
constexpr int kWidePage = 4100;

// Of a row, of which `left` bytes are left.
std::uint64_t load_bits(const std::uint8_t* from, std::size_t left) {
  std::uint64_t found = 0;
  if (left >= sizeof found) {
    std::memcpy(&found, from, sizeof found);  // of a known size: one instruction
  } else {
    std::memcpy(&found, from, left);
  }
  return __builtin_bswap64(found);
}

}  // namespace

TransposedRows::TransposedRows(const ImageSource& image, pixels::Turn turn)
    : image_(image),
      turn_(turn),
      is_page_(row_bytes(image.width(), 1) * image.height() <= kMostExpanded),
      columns_(image.in_runs() && !is_page_ && image.width() < kWidePage ? 32 : 64) {}

Status TransposedRows::allocate() {
  if (image_.bits() == 1) TQ_TRY(made_.allocate(columns_ * row_bytes(image_.height(), 1)));
  if (!image_.in_runs()) return kOk;
  if (is_page_) {
    const std::int64_t stride = row_bytes(image_.width(), 1);
    TQ_TRY(expanded_.allocate(stride * image_.height()));
    for (int y = 0; y < image_.height(); ++y) {
      expand_row(image_.record(), y,
                 expanded_.pixels().subspan(static_cast<std::size_t>(y * stride),
                                            static_cast<std::size_t>(stride)));
    }
  } else {
    TQ_TRY(passed_.allocate(image_.height()));
  }
  return kOk;
}

// The pixels of a list from `column` on, the first in the top bit; no more than a block.
std::uint64_t TransposedRows::bits_at(int y, int column) {
  const RowView row = view_row(image_.record(), y);
  if (!row.bits.empty())
    return load_bits(row.bits.data() + column / 8, row.bits.size() - column / 8);
  const Transitions changes = row.transitions;
  std::size_t i = std::min(std::size_t{passed_[y]}, changes.size());
  while (i > 0 && changes[i - 1] >= column) --i;
  while (i < changes.size() && changes[i] < column) ++i;
  passed_[y] = word(i);
  std::uint64_t found = i % 2 == 0 ? ~std::uint64_t{0} : 0;
  for (; i < changes.size() && changes[i] < column + columns_; ++i) {
    found ^= ~std::uint64_t{0} >> (changes[i] - column);
  }
  return found;
}

void TransposedRows::turn_bits(int rows) {
  const int width = image_.height(), column = block_ * columns_;
  const auto stride = static_cast<std::ptrdiff_t>(row_bytes(image_.width(), 1));
  const bool from_lists = image_.in_runs() && !is_page_;
  const std::uint8_t* const top =
      image_.in_runs() ? expanded_.data() : plain_row(image_.record(), 0).data();
  const std::ptrdiff_t step = image_.in_runs() ? stride : -stride;
  const auto left = static_cast<std::size_t>(stride - column / 8);
  for (int x = 0; x < width; x += kWord) {
    std::uint64_t square[kWord];
    const int count = std::min(kWord, width - x);
    if (count < kWord) std::ranges::fill(square, 0);
    const std::uint8_t* from = top + source_row(x) * step + column / 8;
    for (int k = 0; k < count; ++k, from += turn_.from_bottom ? -step : step) {
      square[k] = from_lists ? bits_at(source_row(x + k), column) : load_bits(from, left);
    }
    kernels_.transpose_square(square);
    for (int i = 0; i < rows; ++i) {
      const Row to = rows_[i].subspan(static_cast<std::size_t>(x / 8));
      const std::uint64_t stored = __builtin_bswap64(square[i]);
      if (to.size() >= sizeof stored) {
        std::memcpy(to.data(), &stored, sizeof stored);
      } else {
        std::memcpy(to.data(), &stored, to.size());
      }
    }
  }
}

void TransposedRows::turn_nibbles(int rows) {
  for (int x = 0; x < image_.height(); ++x) {
    const Bytes from = plain_row(image_.record(), source_row(x))
                           .subspan(static_cast<std::size_t>(block_ * columns_ / 2));
    for (int i = 0; i < rows; ++i) {
      const int pixel = from[i / 2] >> (i % 2 == 0 ? 4 : 0) & 15;
      std::uint8_t& pair = rows_[i][x / 2];
      pair = byte(x % 2 == 0 ? pixel << 4 : pair | pixel);
    }
  }
}

template <int kBytes>
void TransposedRows::turn_pixels(int rows) {
  const int width = image_.height();
  const auto place = [&](int x) {
    return plain_row(image_.record(), source_row(x)).data() +
           std::ptrdiff_t{kBytes} * block_ * columns_;
  };
  int x = 0;
  for (; x + kGroup <= width; x += kGroup) {
    const std::uint8_t* from[kGroup];
    for (int k = 0; k < kGroup; ++k) {
      from[k] = place(x + k);
      // Processors do not foresee steps of a row.
      if (x + 2 * kGroup <= width) {
        const std::uint8_t* const next = place(x + k + kGroup);
        for (int at = 0; at < kBytes * rows; at += 64) __builtin_prefetch(next + at);
      }
    }
    if constexpr (kBytes == 3) {
      std::uint8_t* const to = rows_[0].data() + std::ptrdiff_t{3} * x;
      const std::ptrdiff_t stride = rows > 1 ? rows_[1].data() - rows_[0].data() : 0;
      kernels_.turn_24(from, rows, image_.width() - block_ * columns_, to, stride);
      continue;
    }
    for (int i = 0; i < rows; ++i) {
      std::uint8_t* const to = rows_[i].data() + std::ptrdiff_t{kBytes} * x;
      for (int k = 0; k < kGroup; ++k) {
        std::memcpy(to + kBytes * k, from[k] + kBytes * i, kBytes);
      }
    }
  }
  for (; x < width; ++x) {
    const std::uint8_t* const from = place(x);
    for (int i = 0; i < rows; ++i) {
      std::memcpy(rows_[i].data() + std::ptrdiff_t{kBytes} * x, from + kBytes * i, kBytes);
    }
  }
}

Status TransposedRows::make_row(ImageRecord& result, int y) {
  const auto column_of = [&](int row) { return turn_.from_right ? image_.width() - 1 - row : row; };
  const int column = column_of(y);
  if (column / columns_ != block_) {
    block_ = column / columns_;
    const int first = block_ * columns_, rows = std::min(columns_, image_.width() - first);
    const std::ptrdiff_t stride = result.bytes_per_row;
    for (int i = 0; i < rows; ++i) {
      rows_[i] = result.bits == 1 ? made_.pixels().subspan(i * stride, stride)
                                  : plain_row(result, column_of(first + i));
      clear_padding(rows_[i], result.width, result.bits);
    }
    switch (result.bits) {
      case 1:
        turn_bits(rows);
        break;
      case 4:
        turn_nibbles(rows);
        break;
      case 8:
        turn_pixels<1>(rows);
        break;
      case 16:
        turn_pixels<2>(rows);
        break;
      case 24:
        turn_pixels<3>(rows);
        break;
      default:
        turn_pixels<4>(rows);
        break;
    }
  }
  const Row row = rows_[column % columns_];
  if (result.in_runs) return store_bits(result, y, row);
  if (result.bits == 1) copy_row(row, plain_row(result, y));
  return kOk;
}

}  // namespace tq::process
