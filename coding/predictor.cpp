// A piece is some rows in one block, in front of which the row before the first of them is kept.
#include "coding/predictor.h"

#include <algorithm>
#include <cstdlib>

#include "coding/differences.h"

namespace tq::coding {
namespace {

constexpr std::ptrdiff_t kPiece = 32 * 1024;   // bytes, or one row
constexpr std::int64_t kLongestRow = 1 << 26;  // bytes: a file may claim any
constexpr int kMostSamples = 32;               // of a pixel

// PNG's filters 1 to 4: what is added to a byte from those to the left, above, and above that.
template <int kFilter>
int predict(int left, int up, int corner) {
  if constexpr (kFilter == 1) return left;
  if constexpr (kFilter == 2) return up;
  if constexpr (kFilter == 3) return (left + up) >> 1;
  const int to_left = std::abs(up - corner), to_up = std::abs(left - corner);
  const int to_corner = std::abs(left + up - 2 * corner);
  const int of_two = to_up < to_left ? up : left;
  return to_corner < std::min(to_left, to_up) ? corner : of_two;
}

// The bytes of a pixel are kept in registers from pixel to pixel.
template <int kFilter, int kBytes>
void undo_pixels(std::uint8_t* row, const std::uint8_t* above, std::ptrdiff_t bytes) {
  int left[kBytes] = {}, corner[kBytes] = {};
  std::ptrdiff_t x = 0;
  for (; x + kBytes <= bytes; x += kBytes) {
#pragma GCC unroll 8
    for (int i = 0; i < kBytes; ++i) {
      const int up = above[x + i];
      left[i] = byte(row[x + i] + predict<kFilter>(left[i], up, corner[i]));
      corner[i] = up;
      row[x + i] = byte(left[i]);
    }
  }
  for (int i = 0; x < bytes; ++x, ++i) {
    row[x] = byte(row[x] + predict<kFilter>(left[i], above[x], corner[i]));
  }
}

template <int kFilter>
void undo(std::uint8_t* row, const std::uint8_t* above, std::ptrdiff_t bytes, int pixel) {
  switch (pixel) {
    case 1:
      return undo_pixels<kFilter, 1>(row, above, bytes);
    case 2:
      return undo_pixels<kFilter, 2>(row, above, bytes);
    case 3:
      return undo_pixels<kFilter, 3>(row, above, bytes);
    case 4:
      return undo_pixels<kFilter, 4>(row, above, bytes);
    case 6:
      return undo_pixels<kFilter, 6>(row, above, bytes);
    case 8:
      return undo_pixels<kFilter, 8>(row, above, bytes);
    default:
      break;
  }
  for (std::ptrdiff_t x = 0; x < bytes; ++x) {
    const bool first = x < pixel;
    const int left = first ? 0 : row[x - pixel], corner = first ? 0 : above[x - pixel];
    row[x] = byte(row[x] + predict<kFilter>(left, above[x], corner));
  }
}

}  // namespace

Status Predictor::open(const PredictorForm& form) {
  form_ = form;
  const bool tiff = form.predictor == 2, png = form.predictor >= 10;
  const bool known_bits =
      form.bits == 1 || form.bits == 2 || form.bits == 4 || form.bits == 8 || form.bits == 16;
  const bool known = (tiff || png) && known_bits && form.samples > 0 &&
                     form.samples <= kMostSamples && form.columns > 0 &&
                     form.columns <= kLongestRow;
  if (!known) return StatusCode::unsupported;
  const std::int64_t row_bytes = (form.columns * form.samples * form.bits + 7) / 8;
  if (row_bytes > kLongestRow) return StatusCode::out_of_memory;
  row_bytes_ = static_cast<std::ptrdiff_t>(row_bytes);
  pixel_bytes_ = (form.samples * form.bits + 7) / 8;
  const std::int64_t rows = std::max<std::int64_t>(kPiece / row_bytes, 1);
  return rows_.allocate((rows + 1) * row_bytes);
}

void Predictor::start(PieceSource data) {
  data_ = data;
  piece_ = {};
  ended_ = broken_ = false;
  std::fill(rows_.bytes().end() - row_bytes_, rows_.bytes().end(), std::uint8_t{0});
}

// How many there were; fewer at the end.
std::ptrdiff_t Predictor::read(std::span<std::uint8_t> bytes) {
  return read_pieces(data_, piece_, bytes);
}

bool Predictor::undo_filter(int filter, std::uint8_t* row, std::ptrdiff_t bytes) const {
  const std::uint8_t* const above = row - row_bytes_;
  switch (filter) {
    case 0:
      return true;
    case 1:
      undo<1>(row, above, bytes, pixel_bytes_);
      return true;
    case 2:
      for (std::ptrdiff_t x = 0; x < bytes; ++x) row[x] = byte(row[x] + above[x]);
      return true;
    case 3:
      undo<3>(row, above, bytes, pixel_bytes_);
      return true;
    case 4:
      undo<4>(row, above, bytes, pixel_bytes_);
      return true;
    default:
      return false;
  }
}

// Of less than a byte.
void Predictor::add_small_differences(std::span<std::uint8_t> row) const {
  const int bits = form_.bits, top = (1 << bits) - 1;
  std::uint8_t before[kMostSamples] = {};
  int sample = 0;
  for (std::uint8_t& packed : row) {
    int sums = 0;
    for (int shift = 8 - bits; shift >= 0; shift -= bits) {
      before[sample] = byte((before[sample] + (packed >> shift)) & top);
      sums |= before[sample] << shift;
      if (++sample == form_.samples) sample = 0;
    }
    packed = byte(sums);
  }
}

std::span<const std::uint8_t> Predictor::next_piece() {
  if (ended_) return {};
  const std::span<std::uint8_t> all = rows_.bytes();
  const std::span<std::uint8_t> rows = all.subspan(static_cast<std::size_t>(row_bytes_));
  std::copy(all.end() - row_bytes_, all.end(), all.begin());
  std::ptrdiff_t filled = 0;
  while (filled < std::ssize(rows) && !ended_) {
    const auto row =
        rows.subspan(static_cast<std::size_t>(filled), static_cast<std::size_t>(row_bytes_));
    std::uint8_t filter = 0;
    const bool png = form_.predictor >= 10;
    if (png && read({&filter, 1}) == 0) {
      ended_ = true;
      break;
    }
    const std::ptrdiff_t there = read(row);
    ended_ = there < row_bytes_;
    const auto part = row.first(static_cast<std::size_t>(there));
    if (png) {
      if (!undo_filter(filter, part.data(), there)) {
        ended_ = broken_ = true;
        break;
      }
    } else if (form_.bits < 8) {
      add_small_differences(part);
    } else {
      add_differences({form_.bits, form_.samples, true}, part);
    }
    filled += there;
  }
  return rows.first(static_cast<std::size_t>(filled));
}

}  // namespace tq::coding
