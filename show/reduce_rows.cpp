// Rows are weighed first, then columns: sums of whole numbers, divided once.
#include "show/reduce_rows.h"

#include <algorithm>
#include <array>
#include <utility>

#include "pixels/rows.h"

namespace tq::show {
namespace {

constexpr std::uint64_t kMostWeighed = 1 << 20;  // in one sum: 255 times that fits 32 bits
constexpr std::int32_t kWhole = 255 << 8;        // of a share

// For each byte of bits: 1 where a bit is 0.
constexpr auto kZeros = [] {
  std::array<std::array<std::uint8_t, 8>, 256> table{};
  for (int bits = 0; bits < 256; ++bits) {
    for (int x = 0; x < 8; ++x) table[bits][x] = (bits >> (7 - x) & 1) == 0 ? 1 : 0;
  }
  return table;
}();

// 8 bits behind the point.
constexpr std::uint32_t mean8(std::uint64_t mean40) {
  return static_cast<std::uint32_t>((mean40 + (std::uint64_t{1} << 31)) >> 32);
}

}  // namespace

Status ShownRows::open(const Part& columns, const Part& rows) {
  const std::int32_t count = columns.end - columns.first;
  across_ = columns.spans;
  down_ = rows.spans;
  nearest_ = across_.is_nearest() && down_.is_nearest();
  TQ_TRY(columns_.allocate(count));
  // In the order of the image.
  for (std::int32_t i = 0; i < count; ++i) {
    const std::int32_t shown = columns.axis.from_end ? columns.end - 1 - i : columns.first + i;
    columns_[i] = across_.at(shown);
  }
  TQ_TRY(samples_.open(columns_[0].first, columns_[count - 1].last + 1));
  straight_ = nearest_ && columns_[count - 1].last - columns_[0].first + 1 == count;
  for (std::int32_t i = 0; straight_ && i < count; ++i) {
    straight_ = columns_[i].first == columns_[0].first + i;
  }
  const bool shares = samples_.channels() == 4;
  row_.channels = samples_.channels() == 1 ? 1 : 3;
  TQ_TRY(colours_.allocate(row_.channels * std::int64_t{count}));
  if (shares) {
    TQ_TRY(share_.allocate(count));
    row_.share = share_.data();
  }
  row_.colours = colours_.data();
  if (!nearest_) return open_means(columns);
  return room_.allocate(samples_.room());
}

Status ShownRows::open_means(const Part& columns) {
  const std::int32_t count = columns.end - columns.first;
  const std::int64_t columns_read = samples_.columns();
  channels_ = is_mono() ? 1 : samples_.channels();
  const std::int64_t room = is_mono() ? (columns_read + 7) & -8 : samples_.room();
  TQ_TRY(totals_.allocate(count));
  std::transform(columns_.data(), columns_.data() + count, totals_.data(),
                 [this](const Span& span) { return across_.total(span); });
  const auto [least, most] = std::minmax_element(totals_.data(), totals_.data() + count);
  least_total_ = *least;
  other_total_ = *most;
  TQ_TRY(room_.allocate(Kernels::kRows * room));
  room_bytes_ = static_cast<std::ptrdiff_t>(room);
  TQ_TRY(weighed_samples_.allocate(columns_read * channels_ + 1));
  TQ_TRY(sums_.allocate(std::int64_t{count} * channels_));
  if (is_mono()) TQ_TRY(shares_.allocate(count));
  if (!image_.in_runs) return kOk;
  return runs_.open(columns_.pixels(), across_, image_.width);
}

ShownRow ShownRows::read(std::int32_t shown) {
  const Span rows = down_.at(shown);
  if (rows == made_) return row_;
  made_ = rows;
  if (nearest_) {
    make_nearest(rows.first);
  } else {
    make_means(rows);
  }
  return row_;
}

void ShownRows::make_nearest(std::int32_t y) {
  const std::uint8_t* const row = samples_.read(y, room_.data());
  const int channels = samples_.channels();
  const std::span<const Span> columns = columns_.pixels();
  const std::uint8_t* const from = row - std::ptrdiff_t{channels} * samples_.base();
  std::uint8_t* const out = colours_.data();
  if (straight_ && channels != 4) {
    row_.colours = from + std::ptrdiff_t{channels} * columns[0].first;
    return;
  }
  for (std::ptrdiff_t i = 0; i < std::ssize(columns); ++i) {
    const std::uint8_t* const pixel = from + std::ptrdiff_t{channels} * columns[i].first;
    if (channels == 1) {
      out[i] = *pixel;
      continue;
    }
    std::memcpy(out + 3 * i, pixel, 3);
    if (channels == 4) share_[i] = pixel[3];
  }
}

void ShownRows::make_means(const Span& rows) {
  has_sums_ = false;
  std::uint32_t height = 0;
  for (std::int32_t y = rows.first; y <= rows.last; ++y) {
    const std::uint32_t weight = y == rows.first  ? rows.first_weight
                                 : y == rows.last ? rows.last_weight
                                                  : down_.one();
    gather(y, weight);
    height += weight;
  }
  if (gathered_count_ > 0) weigh();
  const Divisors divisors{.totals = totals_.data(),
                          .least = least_total_,
                          .of_least = Divisor(std::uint64_t{height} * least_total_),
                          .of_others = Divisor(std::uint64_t{height} * other_total_)};
  if (channels_ == 3 && !has_sums_) {  // all rows are in one sum
    weighed_ = 0;
    return kernels_.mean_colours({samples_of_column_0(), columns_.pixels(), across_.one()},
                                 divisors, colours_.data());
  }
  if (weighed_ > 0) add_columns();
  if (any_runs_) runs_.take(totals_.pixels(), std::exchange(has_sums_, true), sums_.pixels());
  clear_sums();
  any_runs_ = false;
  finish(divisors);
}

void ShownRows::clear_sums() {
  if (!has_sums_) std::ranges::fill(sums_.pixels(), std::uint64_t{0});
  has_sums_ = true;
}

// One more row of the present sum.
void ShownRows::gather(std::int32_t y, std::uint32_t weight) {
  std::span<const std::uint8_t> bits;
  if (image_.in_runs) {
    const RowView row = view_row(image_, y);
    if (!row.transitions.empty()) {
      runs_.add(row.transitions, weight);
      any_runs_ = true;
    }
    bits = row.bits;
    if (bits.empty()) return;
  } else if (is_mono()) {
    bits = plain_row(image_, y);
  }
  if (weighed_ + weight > kMostWeighed) {
    weigh();
    add_columns();
  }
  std::uint8_t* const room = room_.data() + gathered_count_ * room_bytes_;
  if (is_mono()) {
    const std::uint8_t* const from = bits.data() + samples_.base() / 8;
    for (std::ptrdiff_t i = 0; i < room_bytes_ / 8; ++i) {
      std::memcpy(room + 8 * i, kZeros[from[i]].data(), 8);
    }
    gathered_[gathered_count_] = room;
  } else {
    gathered_[gathered_count_] = samples_.read(y, room);
  }
  weights_[gathered_count_++] = word(weight);
  weighed_ += weight;
  if (gathered_count_ == Kernels::kRows) weigh();
}

void ShownRows::weigh() {
  std::uint64_t now = 0;
  for (int i = 0; i < gathered_count_; ++i) now += weights_[i];
  kernels_.weigh_rows(gathered_, weights_, gathered_count_, weighed_samples_.data(),
                      static_cast<std::ptrdiff_t>(weighed_samples_.size()) - 1, weighed_ > now);
  gathered_count_ = 0;
}

void ShownRows::add_columns() {
  clear_sums();
  switch (channels_) {
    case 1:
      add_columns<1>();
      break;
    case 3:
      add_columns<3>();
      break;
    default:
      add_columns<4>();
      break;
  }
  weighed_ = 0;
}

template <int kChannels>
void ShownRows::add_columns() {
  const std::uint32_t* const samples = samples_of_column_0();
  std::uint64_t* sums = sums_.data();
  for (const Span& span : columns_.pixels()) {
    for (int i = 0; i < kChannels; ++i)
      *sums++ += weighed_sum(samples + i, kChannels, span, across_.one());
  }
}

// Sums to colours.
void ShownRows::finish(const Divisors& divisors) {
  if (is_mono()) return finish_mono(divisors);
  if (channels_ == 1) return finish_opaque<1>(divisors);
  if (channels_ == 3) return finish_opaque<3>(divisors);
  const std::uint64_t* sums = sums_.data();
  std::uint8_t* out = colours_.data();
  const auto count = std::ssize(columns_.pixels());
  for (std::ptrdiff_t x = 0; x < count; ++x, sums += channels_, out += row_.channels) {
    const Divisor& divisor = divisors.at(x);
    const std::uint32_t share = mean8(divisor.mean40(sums[3]));
    share_[x] = byte((share + 128) >> 8);
    for (int i = 0; i < 3; ++i) {
      const std::uint32_t part = mean8(divisor.mean40(sums[i]));
      out[i] = byte(share == 0 ? 0 : std::min((part * 255 + share / 2) / share, 255u));
    }
  }
}

template <int kChannels>
void ShownRows::finish_opaque(const Divisors& divisors) {
  const std::uint64_t* sums = sums_.data();
  std::uint8_t* out = colours_.data();
  const auto count = std::ssize(columns_.pixels());
  for (std::ptrdiff_t x = 0; x < count; ++x, sums += kChannels, out += kChannels) {
    const Divisor divisor = divisors.at(x);
    for (int i = 0; i < kChannels; ++i) out[i] = divisor.rounded(sums[i]);
  }
}

// Between the two colours by the share of the first.
void ShownRows::finish_mono(const Divisors& divisors) {
  kernels_.mean_shares(sums_.pixels(), divisors, shares_.data());
  const std::span<const Rgb> palette = palette_of(image_);
  const Rgb zero = palette[0], one = palette[1];
  const int transparent = row_.share != nullptr ? image_.transparent_colour & 255 : -1;
  const auto mix = [](int a, int b, std::int32_t part) {
    return byte((b * kWhole + (a - b) * part + kWhole / 2) / kWhole);
  };
  std::uint8_t* out = colours_.data();
  const auto count = std::ssize(columns_.pixels());
  const std::uint16_t* const parts = shares_.data();
  if (row_.channels == 1 && transparent < 0) {
    if (zero.blue == 0 && one.blue == 255) {  // the usual ones: what mix() gives
      for (std::ptrdiff_t x = 0; x < count; ++x) out[x] = byte((kWhole + 128 - parts[x]) >> 8);
      return;
    }
    for (std::ptrdiff_t x = 0; x < count; ++x) out[x] = mix(zero.blue, one.blue, parts[x]);
    return;
  }
  for (std::ptrdiff_t x = 0; x < count; ++x, out += row_.channels) {
    std::int32_t part = parts[x];
    if (transparent >= 0) {
      const std::int32_t opaque = transparent == 0 ? kWhole - part : part;
      share_[x] = byte((opaque + 128) >> 8);
      part = transparent == 0 ? 0 : kWhole;
    }
    out[0] = mix(zero.blue, one.blue, part);
    if (row_.channels == 1) continue;
    out[1] = mix(zero.green, one.green, part);
    out[2] = mix(zero.red, one.red, part);
  }
}

}  // namespace tq::show
