// Transitions to coverage.
#include "show/reduce_runs.h"

#include <algorithm>

namespace tq::show {

Status RunColumns::open(std::span<const Span> columns, const Spans& spans, std::int32_t width) {
  first_ = columns.front().first;
  end_ = std::min(columns.back().last + 1, width);
  TQ_TRY(places_.allocate(std::int64_t{end_} - first_ + 1));
  TQ_TRY(changes_.allocate(std::ssize(columns) + 1));
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

void RunColumns::add(Transitions row, std::uint32_t weight) {
  const Place* const places = places_.data();
  Change* const changes = changes_.data();
  const auto change = [=](std::int32_t at, std::int64_t by) {
    const Place place = places[at];
    changes[place.column].part += by * place.behind;
    changes[place.column].whole += by;
  };
  const std::int64_t black = weight;
  auto next = row.begin();
  if (first_ > 0) {
    next = std::upper_bound(row.begin(), row.end(), first_);
    if ((next - row.begin()) % 2 != 0) change(0, black);
  }
  const auto last = std::lower_bound(next, row.end(), end_);
  if ((next - row.begin()) % 2 != 0 && next != last) change(*next++ - first_, -black);
  for (; last - next >= 2; next += 2) {
    change(next[0] - first_, black);
    change(next[1] - first_, -black);
  }
  if (next != last) change(*next - first_, black);
}

void RunColumns::take(std::span<const std::uint32_t> totals, std::span<std::uint64_t> sums) {
  std::int64_t whole = 0;
  for (std::size_t column = 0; column < sums.size(); ++column) {
    Change& change = changes_.data()[column];
    sums[column] += static_cast<std::uint64_t>(change.part + whole * totals[column]);
    whole += change.whole;
    change = {};
  }
  changes_[std::ssize(sums)] = {};
}

}  // namespace tq::show
