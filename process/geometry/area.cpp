// Rows are summed up column by column first, so that what is done per pixel is one addition.
#include "process/geometry/area.h"

#include <algorithm>

namespace tq::process {
namespace {

// Means of `blocks` blocks of `wide` pixels.
template <int kChannels, class Sum>
void mean_of_blocks(const Sum* sums, std::int32_t wide, Mean mean, std::int32_t blocks,
                    std::uint8_t* to) {
  for (std::int32_t x = 0; x < blocks; ++x, to += kChannels) {
    std::uint64_t totals[kChannels] = {};
    for (std::int32_t i = 0; i < wide; ++i, sums += kChannels) {
      for (int c = 0; c < kChannels; ++c) totals[c] += sums[c];
    }
    for (int c = 0; c < kChannels; ++c) to[c] = mean(static_cast<std::int64_t>(totals[c]));
  }
}

// The same of totals that fit 16 bits: channels of a pixel are added together.
template <int kChannels>
void mean_of_small_blocks(const std::uint16_t* sums, std::int32_t wide, Mean mean,
                          std::int32_t blocks, std::uint8_t* to) {
  for (std::int32_t x = 0; x < blocks; ++x, to += kChannels) {
    std::uint64_t all = 0;
    for (std::int32_t i = 0; i < wide; ++i, sums += kChannels) {
      std::uint64_t pixel;
      std::memcpy(&pixel, sums, sizeof pixel);  // of 3 channels with what follows, on top
      all += pixel;
    }
    for (int c = 0; c < kChannels; ++c) to[c] = mean(all >> 16 * c & 0xFFFF);
  }
}

template <int kChannels>
void mean_of_columns(ColumnSums& columns, std::ptrdiff_t first, std::int32_t wide, int high,
                     std::int32_t blocks, std::uint8_t* to) {
  const Mean mean(std::int64_t{wide} * high);
  const std::ptrdiff_t at = first * kChannels;
  if (high > ColumnSums::kMostRows) {
    mean_of_blocks<kChannels>(columns.sums() + at, wide, mean, blocks, to);
  } else if (kChannels == 1 || wide > ColumnSums::kMostRows / high) {
    mean_of_blocks<kChannels>(columns.small_sums() + at, wide, mean, blocks, to);
  } else if constexpr (kChannels > 1) {
    mean_of_small_blocks<kChannels>(columns.small_sums() + at, wide, mean, blocks, to);
  }
}

}  // namespace

Status ColumnSums::allocate(std::int64_t count, std::uint32_t whole_share) {
  whole_share_ = whole_share;
  TQ_TRY(whole_.allocate(count));
  return sums_.allocate(count);
}

void ColumnSums::clear() {
  rows_ = 0;
  has_sums_ = false;
  std::ranges::fill(whole_.pixels(), std::uint16_t{0});
}

void ColumnSums::need_sums() {
  if (!has_sums_) std::ranges::fill(sums_.pixels(), std::uint64_t{0});
  has_sums_ = true;
}

void ColumnSums::add(Bytes row, std::uint32_t share) {
  need_sums();
  kernels_.add_shares(row.data(), share, sums_.data(), std::ssize(row));
}

void ColumnSums::add_whole(GreyOrColourRows& rows, int first, int last) {
  const int most = rows.in_place() ? kTogether : 1;
  while (first < last) {
    if (rows_ == kMostRows) flush();
    const int count = std::min({most, last - first, kMostRows - rows_});
    const std::uint8_t* together[kTogether];
    for (int k = 0; k < count; ++k) together[k] = rows.read(first + k).data();
    kernels_.add_rows(together, count, whole_.data(), std::ssize(whole_.pixels()));
    rows_ += count;
    first += count;
  }
}

void ColumnSums::flush() {
  need_sums();
  if (rows_ == 0) return;
  kernels_.add_shares_16(whole_.data(), whole_share_, sums_.data(), std::ssize(sums_.pixels()));
  std::ranges::fill(whole_.pixels(), std::uint16_t{0});
  rows_ = 0;
}

const std::uint64_t* ColumnSums::sums() {
  flush();
  return sums_.data();
}

Status BlockMeans::allocate() {
  TQ_TRY(rows_.allocate());
  if (wide_ == 1 && high_ == 1) return kOk;
  if (halves()) TQ_TRY(lower_.allocate());
  return columns_.allocate(std::int64_t{channels()} * image_.width(), 1);
}

void BlockMeans::read(int block_row, std::uint8_t* to) {
  const int first = block_row * high_;
  const int last =
      static_cast<int>(std::min<std::int64_t>(std::int64_t{first} + high_, image_.height()));
  if (wide_ == 1 && high_ == 1) {
    const Bytes from = rows_.read(first);
    std::memcpy(to, from.data(), from.size());
  } else if (halves() && last - first == 2) {
    const std::ptrdiff_t whole = image_.width() / 2, size = channels();
    const Bytes upper = rows_.read(first), lower = lower_.read(first + 1);
    kernels_.halve(upper.data(), lower.data(), channels(), to, whole);
    if (image_.width() % 2 == 0) return;
    for (std::ptrdiff_t c = 0; c < size; ++c) {
      to[whole * size + c] =
          byte((upper.data()[2 * whole * size + c] + lower.data()[2 * whole * size + c] + 1) >> 1);
    }
  } else {
    add_up(first, last, to);
  }
}

void BlockMeans::add_up(int first, int last, std::uint8_t* to) {
  columns_.clear();
  columns_.add_whole(rows_, first, last);
  const auto means = [&](std::int32_t at, std::int32_t wide, std::int32_t blocks,
                         std::uint8_t* out) {
    (channels() == 1   ? mean_of_columns<1>
     : channels() == 3 ? mean_of_columns<3>
                       : mean_of_columns<4>)(columns_, at, wide, last - first, blocks, out);
  };
  const std::int32_t whole = image_.width() / wide_, rest = image_.width() % wide_;
  means(0, wide_, whole, to);
  if (rest > 0) means(whole * wide_, rest, 1, to + std::ptrdiff_t{whole} * channels());
}

Status AreaMeans::allocate() {
  TQ_TRY(rows_.allocate());
  mean_ = Mean(std::int64_t{image_.width()} * image_.height());
  return columns_.allocate(std::int64_t{rows_.channels()} * image_.width(),
                           static_cast<std::uint32_t>(height_));
}

void AreaMeans::make(int y, std::uint8_t* to) {
  columns_.clear();
  const std::int64_t high = image_.height(), units = height_, top = y * high, end = top + high;
  // Rows of the image that begin within the row of the result, and end there.
  const std::int64_t first = (top + units - 1) / units, last = end / units;
  if (first > last) {
    columns_.add(rows_.read(static_cast<int>(last)), static_cast<std::uint32_t>(high));
  } else {
    if (first * units > top) {
      columns_.add(rows_.read(static_cast<int>(first - 1)),
                   static_cast<std::uint32_t>(first * units - top));
    }
    columns_.add_whole(rows_, static_cast<int>(first), static_cast<int>(last));
    if (end > last * units) {
      columns_.add(rows_.read(static_cast<int>(last)),
                   static_cast<std::uint32_t>(end - last * units));
    }
  }
  const std::uint64_t* const sums = columns_.sums();
  switch (rows_.channels()) {
    case 1:
      finish_row<1>(sums, to);
      break;
    case 3:
      finish_row<3>(sums, to);
      break;
    default:
      finish_row<4>(sums, to);
      break;
  }
}

// Whole pixels are added up before they are multiplied.
template <int kChannels>
void AreaMeans::finish_row(const std::uint64_t* sums, std::uint8_t* to) {
  const std::int64_t wide = image_.width(), units = width_;
  std::int64_t left = 0;  // units of the pixel at `sums` that are taken already
  for (int x = 0; x < width_; ++x, to += kChannels) {
    std::uint64_t totals[kChannels] = {}, whole[kChannels] = {};
    std::int64_t wanted = wide;
    if (left > 0) {
      const std::int64_t share = std::min(units - left, wanted);
      for (int c = 0; c < kChannels; ++c) totals[c] = static_cast<std::uint64_t>(share) * sums[c];
      wanted -= share;
      left += share;
      if (left == units) {
        left = 0;
        sums += kChannels;
      }
    }
    for (; wanted >= units; wanted -= units, sums += kChannels) {
      for (int c = 0; c < kChannels; ++c) whole[c] += sums[c];
    }
    for (int c = 0; c < kChannels; ++c) totals[c] += static_cast<std::uint64_t>(units) * whole[c];
    if (wanted > 0) {
      for (int c = 0; c < kChannels; ++c) totals[c] += static_cast<std::uint64_t>(wanted) * sums[c];
      left += wanted;
    }
    for (int c = 0; c < kChannels; ++c) to[c] = mean_(static_cast<std::int64_t>(totals[c]));
  }
}

Status RunMeans::allocate() {
  const std::int32_t wide = image_.width(), high = image_.height();
  if (wide % width_ == 0 && high % height_ == 0) {
    wide_ = wide / width_;
    high_ = high / height_;
    if ((wide_ != 2 && wide_ != 4 && wide_ != 8) || high_ > kMostRows || wide_ * high_ > 255) {
      wide_ = 0;
    }
  }
  if (wide_ != 0) {
    while (1 << shift_ < wide_ * high_) ++shift_;
    if (1 << shift_ != wide_ * high_) shift_ = 0;
    const Mean mean(std::int64_t{wide_} * high_);
    for (int white = 0; white <= wide_ * high_; ++white) {
      level_of_count_[white] = mean(std::int64_t{255} * white);
    }
    if (image_.in_runs()) TQ_TRY(expanded_.allocate(row_bytes(wide, 1) * high_));
    return counts_.allocate(row_bytes(wide, 1) * 8 / wide_ + 32);
  }
  TQ_TRY(changes_.allocate(most_transitions(wide)));
  TQ_TRY(places_.allocate(wide));
  for (std::int64_t x = 0, cell = 0, before = 0; x < wide; ++x, before += width_) {
    cell += before / wide;
    before %= wide;
    places_[static_cast<std::ptrdiff_t>(x)] = {static_cast<std::int32_t>(cell),
                                               static_cast<std::int32_t>(before)};
  }
  return sums_.allocate(std::int64_t{width_} + 1);
}

void RunMeans::make(int y, std::uint8_t* to) {
  if (wide_ != 0) return count_bits(y, to);
  std::ranges::fill(sums_.pixels(), 0);
  const std::int64_t high = image_.height(), units = height_, top = y * high, end = top + high;
  for (std::int64_t j = top / units; j * units < end; ++j) {
    add_runs(static_cast<int>(j), std::min((j + 1) * units, end) - std::max(j * units, top));
  }
  const std::int64_t area = std::int64_t{image_.width()} * image_.height();
  kernels_.levels_of_black(sums_.data(), area, to, width_);
}

// Cells of whole bytes' parts are counted in bits.
void RunMeans::count_bits(int y, std::uint8_t* to) {
  const std::uint8_t* rows[kMostRows];
  const std::int64_t stride = row_bytes(image_.width(), 1);
  for (int j = 0; j < high_; ++j) {
    const int from = y * high_ + j;
    if (!image_.in_runs()) {
      rows[j] = plain_row(image_.record(), from).data();
    } else if (const Bytes bits = view_row(image_.record(), from).bits; !bits.empty()) {
      rows[j] = bits.data();
    } else {
      std::uint8_t* const made = expanded_.data() + static_cast<std::ptrdiff_t>(j * stride);
      expand_row(image_.record(), from, {made, static_cast<std::size_t>(stride)});
      rows[j] = made;
    }
  }
  std::uint8_t* const counts = counts_.data();
  kernels_.count_cells({rows, high_, wide_, shift_}, static_cast<std::ptrdiff_t>(stride), counts);
  if (shift_ > 0) {
    std::memcpy(to, counts, static_cast<std::size_t>(width_));
  } else {
    for (int x = 0; x < width_; ++x) to[x] = level_of_count_[counts[x]];
  }
}

// What a change adds to the black of its cell and of those that follow is kept as differences: a run
// costs the same however long it is.
void RunMeans::add_runs(int j, std::int64_t share) {
  Bytes bits;
  if (image_.in_runs()) {
    const RowView row = view_row(image_.record(), j);
    if (row.bits.empty()) {
      return add_changes(row.transitions.data(), static_cast<std::int32_t>(row.transitions.size()),
                         share);
    }
    bits = row.bits;
  } else {
    bits = plain_row(image_.record(), j);
  }
  // A row may lie in two of the result.
  if (j != changes_of_) found_ = bits_to_transitions(bits, image_.width(), changes_.pixels());
  changes_of_ = j;
  add_changes(changes_.data(), found_, share);
}

template <class Column>
void RunMeans::add_changes(const Column* changes, std::int32_t count, std::int64_t share) {
  std::int64_t* const sums = sums_.data();
  const std::int32_t wide = image_.width();
  for (std::int32_t i = 0; i < count; ++i, share = -share) {
    const Place place = places_.data()[changes[i]];
    sums[place.cell] += share * (wide - place.before);
    sums[place.cell + 1] += share * place.before;
  }
}

}  // namespace tq::process
