// Lines of text on a page that lies level, found in strips of an inch: columns of text need not be level
// with each other.
#pragma once

#include "process/cleanup/components.h"
#include "process/cleanup/ink.h"

namespace tq::process {

// Rows of a strip. Most letters lie between `upper` and `lower`; some rise to `top` or hang to `bottom`.
struct TextLine {
  std::int32_t top, upper, lower, bottom;
  std::int32_t height() const { return lower - upper; }
};

class TextLines {
 public:
  // `inch`: of the page, in hundredths of its blocks.
  Status find(const InkPage& page, double inch);

  std::size_t count() const { return lines_.size(); }
  // The line whose place it is, or null.
  const TextLine* at(int x, int y) const;

  // How many lines have a bar along their top, from which the rest hangs, and how many at their bottom.
  int bars_above() const { return bars_above_; }
  int bars_below() const { return bars_below_; }

 private:
  class Profile;
  Status find_in_strip(const InkPage& page, int left, int right, double inch, Profile& profile);
  void judge_bar(const InkPage& page, int left, int right, const Profile& profile,
                 const TextLine& line);

  int strip_width_ = 1, bars_above_ = 0, bars_below_ = 0;
  GrowingBuffer<TextLine> lines_;
  GrowingBuffer<std::size_t> ends_;  // per strip, in `lines_`
};

}  // namespace tq::process
