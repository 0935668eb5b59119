// Which small components are marks of the writing: dots, points, leaders.
#pragma once

#include "process/cleanup/components.h"

namespace tq::process {

// What counts as small, in pixels.
struct SpeckSize {
  std::int32_t width, height;
  bool fits(const Component& c) const { return c.width() <= width && c.height() <= height; }
};

// Components beside and below decide, so a row of the page is decided when as many rows behind it are
// known.
class Marks {
 public:
  explicit Marks(SpeckSize size)
      : size_(size), unit_(std::max(size.width, size.height)), tallest_(18 * unit_) {}

  // Rows that must be known below a small component, and above it.
  std::int64_t rows_below() const { return (kColon + kOver) * unit_ + tallest_ + 2; }
  std::int64_t rows_above() const { return (kColon + kUnder) * unit_ + 2; }

  // Sorts the components of a part of the page; `width` is the page's.
  Status sort(std::span<const Component> all, std::int32_t width);
  bool is_mark(const Component& small) const;

 private:
  // How far from a dot its letter is, over which or under which it stands, which comes before it or
  // behind it; the dots of a row, and those of a colon. In units of the largest speck: scans of pages
  // in ten fonts lost fewest dots for the specks that they kept.
  static constexpr std::int64_t kOver = 2, kUnder = 1, kBefore = 5, kBehind = 3;
  static constexpr std::int64_t kLeader = 12, kColon = 4;

  enum class Size : std::uint8_t { small, large };
  // Per strip of columns the components that reach into it, by their lowest rows.
  struct Strips {
    GrowingBuffer<std::uint32_t> ends, components;
  };

  Status sort(Strips& strips, Size size, std::int32_t width);
  bool is_wanted(const Component& c, Size size) const;
  template <class Test>
  int count(const Strips& strips, std::int64_t left, std::int64_t right, std::int64_t top,
            std::int64_t bottom, Test&& test) const;
  bool is_round(const Component& c) const;
  bool is_dot_or_point(const Component& c) const;

  SpeckSize size_;
  std::int64_t unit_, tallest_;
  std::int64_t strip_ = 1;  // pixels
  std::span<const Component> all_;
  GrowingBuffer<std::uint32_t> order_;
  Strips small_, large_;
};

}  // namespace tq::process
