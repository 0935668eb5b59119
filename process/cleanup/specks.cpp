// Marks are told from specks by what they stand beside: a letter under a dot, a line before a point.
#include "process/cleanup/specks.h"

namespace tq::process {

// Roughly; and not a grain.
bool Marks::is_round(const Component& c) const {
  const std::int64_t longer = c.longer_side(), shorter = std::min(c.width(), c.height());
  return longer >= 2 && 2 * longer >= unit_ && longer <= 2 * shorter;
}

bool Marks::is_wanted(const Component& c, Size size) const {
  if (size == Size::large) return !size_.fits(c) && c.height() <= tallest_;
  return size_.fits(c) && c.longer_side() >= 2 && 4 * c.longer_side() >= unit_;
}

Status Marks::sort(std::span<const Component> all, std::int32_t width) {
  all_ = all;
  strip_ = std::max<std::int64_t>(4 * unit_, 32);
  TQ_TRY(sort(small_, Size::small, width));
  return sort(large_, Size::large, width);
}

Status Marks::sort(Strips& strips, Size size, std::int32_t width) {
  order_.shrink(0);
  TQ_TRY(order_.reserve(all_.size()));
  std::uint64_t entries = 0;
  for (std::size_t i = 0; i < all_.size(); ++i) {
    if (!is_wanted(all_[i], size)) continue;
    order_.add(static_cast<std::uint32_t>(i));
    entries += (all_[i].right - 1) / strip_ - all_[i].left / strip_ + 1;
  }
  std::ranges::sort(order_.values(), {}, [this](std::uint32_t i) { return all_[i].bottom; });
  const std::uint64_t count = (width - 1) / strip_ + 1;
  strips.ends.shrink(0);
  strips.components.shrink(0);
  TQ_TRY(strips.ends.reserve(count));
  TQ_TRY(strips.components.reserve(entries));
  for (std::uint64_t i = 0; i < count; ++i) strips.ends.add(0);
  for (std::uint64_t i = 0; i < entries; ++i) strips.components.add(0);
  const auto for_each_place = [&](auto&& visit) {
    for (const std::uint32_t i : order_.values()) {
      const std::int64_t last = (all_[i].right - 1) / strip_;
      for (std::int64_t s = all_[i].left / strip_; s <= last; ++s) visit(strips.ends.data()[s], i);
    }
  };
  for_each_place([](std::uint32_t& end, std::uint32_t) { ++end; });
  std::uint32_t sum = 0;  // an end holds its strip's begin until the strip is filled
  for (std::uint32_t& end : strips.ends.values()) {
    const std::uint32_t begin = sum;
    sum += end;
    end = begin;
  }
  for_each_place([&](std::uint32_t& end, std::uint32_t i) { strips.components.data()[end++] = i; });
  return kOk;
}

// How many components of the strips of columns left .. right - 1, with their lowest row in
// top .. bottom - 1, pass the test.
template <class Test>
int Marks::count(const Strips& strips, std::int64_t left, std::int64_t right, std::int64_t top,
                 std::int64_t bottom, Test&& test) const {
  int passed = 0;
  const std::int64_t first = std::max<std::int64_t>(left, 0) / strip_;
  const auto last =
      std::min<std::int64_t>((right - 1) / strip_, std::ssize(strips.ends.values()) - 1);
  for (std::int64_t s = first; s <= last; ++s) {
    const std::uint32_t begin = s == 0 ? 0 : strips.ends.data()[s - 1];
    const auto strip = std::span<const std::uint32_t>(strips.components.values())
                           .subspan(begin, strips.ends.data()[s] - begin);
    const auto lowest = [this](std::uint32_t i) { return std::int64_t{all_[i].bottom} - 1; };
    for (auto i = std::ranges::lower_bound(strip, top, {}, lowest);
         i != strip.end() && lowest(*i) < bottom; ++i) {
      const bool is_counted = s == std::max(all_[*i].left / strip_, first);
      passed += is_counted && test(all_[*i]) ? 1 : 0;
    }
  }
  return passed;
}

bool Marks::is_dot_or_point(const Component& c) const {
  if (!is_round(c)) return false;
  const std::int64_t lowest = c.bottom - 1;
  // Over or under a letter.
  const auto is_under_or_over = [&](const Component& other) {
    return other.left < c.right && c.left < other.right && other.top <= lowest + kOver * unit_;
  };
  if (count(large_, c.left, c.right, c.top - kUnder * unit_, lowest + kOver * unit_ + tallest_ + 1,
            is_under_or_over) > 0) {
    return true;
  }
  // On the line of a letter that it follows, or comes before.
  return count(large_, c.left - kBefore * unit_ - 1, c.right + kBehind * unit_ + 1, lowest - 1,
               lowest + 2, [&](const Component& other) {
                 const bool before = other.left < c.left && other.right + kBefore * unit_ >= c.left;
                 const bool behind =
                     other.right > c.right && other.left <= c.right + kBehind * unit_;
                 return before || behind;
               }) > 0;
}

bool Marks::is_mark(const Component& c) const {
  if (is_dot_or_point(c)) return true;
  if (!is_wanted(c, Size::small)) return false;
  const std::int64_t lowest = c.bottom - 1;
  const auto is_alike = [&](const Component& other) {
    const auto is_near = [](std::int64_t a, std::int64_t b) { return a - b <= 1 && b - a <= 1; };
    return &other != &c && is_near(other.width(), c.width()) && is_near(other.height(), c.height());
  };
  // One of a row of dots.
  const auto is_beside = [&](const Component& other) {
    return is_alike(other) && other.left < c.right + kLeader * unit_ &&
           other.right > c.left - kLeader * unit_;
  };
  const int beside = count(small_, c.left - kLeader * unit_, c.right + kLeader * unit_, lowest - 1,
                           lowest + 2, is_beside);
  if (beside >= 2) return true;
  // The upper one of a colon.
  return is_round(c) && count(small_, c.left, c.right, lowest + 1, lowest + kColon * unit_ + 1,
                              [&](const Component& other) {
                                return is_alike(other) && other.left < c.right &&
                                       other.right > c.left && is_dot_or_point(other);
                              }) > 0;
}

}  // namespace tq::process
