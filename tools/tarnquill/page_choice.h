// Which pages of a file are wanted, and names with their numbers.
#pragma once

#include <string>
#include <vector>

#include "options.h"

namespace tool {

inline constexpr Option kPageOption = {"page", 0, "N", "the page to take, from 1 on"};
inline constexpr Option kPagesOption = {"pages", 0, "LIST", "the pages to take, as 2-5,8,11-"};

class PageChoice {
 public:
  // All of them, or what --page or --pages say. Throws UsageError.
  static PageChoice of(const Arguments& arguments);

  bool all() const { return ranges_.empty(); }

  // The numbers, from 0 on and in the order wanted, of a file of so many pages. Numbers that it does
  // not have are among them if they were asked for one by one.
  std::vector<int> of_file(int count) const;

 private:
  struct Range {
    int first, last;  // from 1 on; last 0: to the end
  };
  std::vector<Range> ranges_;
};

// Whether a name has a place for a number, as "out-%d" and "out-%03d" have.
bool is_numbered(const std::string& name);
std::string numbered_name(const std::string& name, int number);

}  // namespace tool
