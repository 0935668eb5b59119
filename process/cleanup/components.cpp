// Runs of two rows that touch belong to one component: a forest in which each knows what it has been
// joined to, in the order in which they were begun.
#include "process/cleanup/components.h"

#include <utility>

namespace tq::process {

std::span<const Run> Components::row(std::int32_t y) const {
  const std::size_t at = y - first_row_;
  return std::span<const Run>(runs_.values()).subspan(start_of(at), ends_[at] - start_of(at));
}

std::uint32_t Components::find(std::uint32_t component) const {
  Component* const all = components_.data();
  while (all[component].joined != component) {
    all[component].joined = all[all[component].joined].joined;
    component = all[component].joined;
  }
  return component;
}

// The older one stays.
std::uint32_t Components::join(std::uint32_t a, std::uint32_t b) const {
  if (a > b) std::swap(a, b);
  Component& stays = components_.data()[a];
  Component& ends = components_.data()[b];
  ends.joined = a;
  stays.left = std::min(stays.left, ends.left);
  stays.top = std::min(stays.top, ends.top);
  stays.right = std::max(stays.right, ends.right);
  stays.bottom = std::max(stays.bottom, ends.bottom);
  stays.pixels += ends.pixels;
  return a;
}

// `above` is the first run of the row before that the next one may touch.
inline void Components::add_run(const Run*& above, const Run* above_end, std::int32_t first,
                                std::int32_t end) {
  const std::int64_t reach = neighbours_ == Neighbours::eight ? 1 : 0;
  while (above != above_end && above->end + reach <= first) ++above;
  const std::int32_t y = rows();
  const Run* touched = above;
  if (touched == above_end || touched->first >= end + reach) {
    const auto added = static_cast<std::uint32_t>(components_.size());
    components_.add({.left = first,
                     .top = y,
                     .right = end,
                     .bottom = y + 1,
                     .pixels = end - first,
                     .joined = added,
                     .mark = 0,
                     .in_use = false});
    runs_.add({first, end, added});
    return;
  }
  std::uint32_t found = find(touched->component);
  for (++touched; touched != above_end && touched->first < end + reach; ++touched) {
    const std::uint32_t other = find(touched->component);
    if (other != found) found = join(found, other);
  }
  Component& grown = components_.data()[found];
  grown.left = std::min(grown.left, first);
  grown.right = std::max(grown.right, end);
  grown.bottom = y + 1;
  grown.pixels += end - first;
  runs_.add({first, end, found});
}

Status Components::add_row(std::span<const std::int32_t> changes, std::int32_t width) {
  const std::size_t most = changes.size() / 2 + 1;
  TQ_TRY(runs_.reserve(most));
  TQ_TRY(components_.reserve(most));
  TQ_TRY(ends_.reserve(1));
  const std::size_t count = ends_.size();
  const Run* above = runs_.data() + (count == 0 ? 0 : start_of(count - 1));
  const Run* const above_end = runs_.data() + runs_.size();
  std::size_t i = 0;
  if (colour_ == Colour::white) {
    const std::int32_t end = changes.empty() ? width : changes[0];
    if (end > 0) add_run(above, above_end, 0, end);
    i = 1;
  }
  for (; i + 1 < changes.size(); i += 2) add_run(above, above_end, changes[i], changes[i + 1]);
  if (i < changes.size()) add_run(above, above_end, changes[i], width);
  ends_.add(runs_.size());
  return kOk;
}

void Components::forget_rows(std::int32_t y) {
  if (y <= first_row_) return;
  const std::size_t rows = y - first_row_, runs = start_of(rows);
  runs_.drop_front(runs);
  ends_.drop_front(rows);
  for (std::size_t& end : ends_.values()) end -= runs;
  first_row_ = y;
}

void Components::settle() {
  for (Run& run : runs_.values()) {
    run.component = find(run.component);
    components_.data()[run.component].in_use = true;
  }
  std::uint32_t count = 0;
  for (Component& component : components_.values()) {
    if (component.in_use) component.joined = count++;
  }
  for (Run& run : runs_.values()) run.component = components_.data()[run.component].joined;
  for (const Component& component : components_.values()) {
    if (!component.in_use) continue;
    Component& place = components_.data()[component.joined];
    place = component;
    place.in_use = false;
  }
  components_.shrink(count);
}

}  // namespace tq::process
