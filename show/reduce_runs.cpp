// Transitions to coverage.
#include "show/reduce_runs.h"

#include <algorithm>

namespace tq::show {

Status RunColumns::open(std::span<const Span> columns, const Spans& spans, std::int32_t width) {
  first_ = columns.front().first;
  end_ = std::min(columns.back().last + 1, width);
  sees_end_ = end_ == width;
  TQ_TRY(places_.allocate(std::int64_t{end_} - first_ + 1));
  TQ_TRY(changes_.allocate(std::ssize(columns) + 1));
  TQ_TRY(packed_.allocate(std::ssize(columns) + 1));
  one_ = spans.one();
  std::int32_t column = 0;
  for (std::int32_t pixel = first_; pixel <= end_; ++pixel) {
    while (column < std::ssize(columns) && columns[column].last < pixel) ++column;
    Place& place = places_[pixel - first_];
    place.column = column;
    if (column == std::ssize(columns)) continue;
    Span rest = columns[column];
    if (pixel > rest.first) {
      rest.first_weight = pixel < rest.last ? spans.one() : rest.last_weight;
      if (pixel == rest.last) rest.last_weight = 0;
      rest.first = pixel;
    }
    place.behind = spans.total(rest);
  }
  return kOk;
}

// Calls `add(place, sign)` for every change of colour that columns see, from a white start.
template <class Add>
void RunColumns::each_change(Transitions row, Add&& add) const {
  const Place* const places = places_.data() - first_;
  auto next = row.begin();
  if (first_ > 0) {
    next = std::upper_bound(row.begin(), row.end(), first_);
    if ((next - row.begin()) % 2 != 0) add(places[first_], 1);
  }
  const auto last = sees_end_ ? row.end() : std::lower_bound(next, row.end(), end_);
  if ((next - row.begin()) % 2 != 0 && next != last) add(places[*next++], -1);
  for (; last - next >= 2; next += 2) {
    add(places[next[0]], 1);
    add(places[next[1]], -1);
  }
  if (next != last) add(places[*next], 1);
}

void RunColumns::add(Transitions row, std::uint32_t weight) {
  if (weight == one_) {
    std::int64_t* const packed = packed_.data();
    each_change(row, [=](const Place& place, int sign) {
      const std::int64_t change = (std::int64_t{1} << kPartBits) + place.behind;
      packed[place.column] += sign * change;
    });
    if (++packed_rows_ == kMostRows) unpack();
    return;
  }
  Change* const changes = changes_.data();
  const std::int64_t black = weight;
  each_change(row, [=](const Place& place, int sign) {
    changes[place.column].part += sign * black * place.behind;
    changes[place.column].whole += sign * black;
  });
}

// With those of rows that weigh one.
RunColumns::Change RunColumns::sum_of(const Change& change, std::int64_t packed) const {
  // Sign and all.
  const std::int64_t part =
      static_cast<std::int64_t>(static_cast<std::uint64_t>(packed) << (64 - kPartBits)) >>
      (64 - kPartBits);
  return {change.part + part * one_, change.whole + ((packed - part) >> kPartBits) * one_};
}

void RunColumns::unpack() {
  for (std::size_t column = 0; column < packed_.size(); ++column) {
    changes_.data()[column] = sum_of(changes_.data()[column], packed_.data()[column]);
    packed_.data()[column] = 0;
  }
  packed_rows_ = 0;
}

void RunColumns::take(std::span<const std::uint32_t> totals, bool add,
                      std::span<std::uint64_t> sums) {
  Change* const changes = changes_.data();
  std::int64_t* const packed = packed_.data();
  std::int64_t whole = 0;
  for (std::size_t column = 0; column < sums.size(); ++column) {
    const Change change = sum_of(changes[column], packed[column]);
    const auto sum = static_cast<std::uint64_t>(change.part + whole * totals[column]);
    sums[column] = add ? sums[column] + sum : sum;
    whole += change.whole;
    changes[column] = {};
    packed[column] = 0;
  }
  changes[sums.size()] = {};
  packed[sums.size()] = 0;
  packed_rows_ = 0;
}

}  // namespace tq::show
