// Lists of pages and numbered names.
#include "page_choice.h"

#include <algorithm>
#include <optional>

#include "errors.h"

namespace tool {
namespace {

constexpr int kMostPage = 0xFFFFFF;

std::optional<int> page_number(const std::string& text) {
  const auto number = whole_number(text);
  return number && *number >= 1 && *number <= kMostPage ? number : std::nullopt;
}

// "%03d": where it stands, and how many digits it wants at least.
struct Place {
  std::size_t start, length, digits;
};

std::optional<Place> find_place(const std::string& name) {
  for (std::size_t start = name.find('%'); start != std::string::npos;
       start = name.find('%', start + 1)) {
    const std::size_t end = name.find_first_not_of("0123456789", start + 1);
    if (end == std::string::npos || name[end] != 'd' || end - start > 3) continue;
    std::size_t digits = 0;
    for (std::size_t i = start + 1; i < end; ++i) {
      digits = 10 * digits + static_cast<std::size_t>(name[i] - '0');
    }
    return Place{start, end + 1 - start, digits};
  }
  return {};
}

}  // namespace

PageChoice PageChoice::of(const Arguments& arguments) {
  PageChoice choice;
  if (const auto page = arguments.number("page", 1, kMostPage)) {
    choice.ranges_.push_back({*page, *page});
  }
  const auto text = arguments.value("pages");
  if (!text) return choice;
  if (!choice.all()) throw UsageError("--page and --pages exclude each other");
  for (std::size_t start = 0; start <= text->size();) {
    const std::size_t end = std::min(text->find(',', start), text->size());
    const std::string part = text->substr(start, end - start);
    const std::size_t dash = part.find('-');
    const auto first = page_number(part.substr(0, dash));
    const bool open = dash != std::string::npos && dash + 1 == part.size();
    const auto last = dash == std::string::npos ? first
                      : open                    ? std::optional(0)
                                                : page_number(part.substr(dash + 1));
    if (!first || !last || (!open && *last < *first)) {
      refuse("pages", *text, "numbers and ranges as 2-5,8,11-");
    }
    choice.ranges_.push_back({*first, *last});
    start = end + 1;
  }
  return choice;
}

std::vector<int> PageChoice::of_file(int count) const {
  std::vector<int> pages;
  const std::vector<Range> whole = {{1, 0}};
  for (const auto& [first, last] : all() ? whole : ranges_) {
    const int end = last == 0 ? count : first == last ? last : std::min(last, count);
    // A range that lies behind the last page is as wrong as a page that does.
    if (end < first) pages.push_back(first - 1);
    for (int page = first; page <= end; ++page) pages.push_back(page - 1);
  }
  return pages;
}

bool is_numbered(const std::string& name) {
  return find_place(name).has_value();
}

std::string numbered_name(const std::string& name, int number) {
  const auto place = find_place(name);
  if (!place) return name;
  std::string digits = std::to_string(number);
  if (digits.size() < place->digits) digits.insert(0, place->digits - digits.size(), '0');
  return name.substr(0, place->start) + digits + name.substr(place->start + place->length);
}

}  // namespace tool
