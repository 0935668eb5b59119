#include "tests/support/fax_page.h"

#include <algorithm>
#include <cstring>
#include <random>

#include "core/dib.h"

namespace tq::test {

std::vector<Bytes> bits_of(const Page& page) {
  std::vector<Bytes> rows;
  for (const Pixels& row : page) {
    Bytes bytes(static_cast<std::size_t>(row_bytes(static_cast<std::int64_t>(row.size()), 1)), 255);
    for (std::size_t x = 0; x < row.size(); ++x) {
      if (row[x]) bytes[x / 8] &= static_cast<std::uint8_t>(~(0x80 >> x % 8));
    }
    rows.push_back(bytes);
  }
  return rows;
}

std::vector<std::int32_t> transition_words(const Pixels& row) {
  const int width = static_cast<int>(row.size());
  std::vector<std::int32_t> words = {0};
  for (int x = 0; x < width; ++x) {
    if (row[x] != (x > 0 && row[x - 1])) words.push_back(x);
  }
  words.insert(words.end(), {width, width, width, width + 2, width + 2, width + 2});
  return words;
}

std::int32_t IMG_CB_C PageSupplier::on_row(void* context, void* dest, std::int32_t y,
                                           std::int32_t bytes) {
  const auto& self = *static_cast<const PageSupplier*>(context);
  if (y == self.failed_row) return -777;
  const auto words = transition_words(self.page_.at(static_cast<std::size_t>(y)));
  const auto size = static_cast<std::int32_t>(4 * words.size());
  if (self.lists_ && size <= bytes) {
    std::memcpy(dest, words.data(), 4 * words.size());
    return size;
  }
  std::ranges::copy(self.bits_[static_cast<std::size_t>(y)], static_cast<std::uint8_t*>(dest));
  return 0;
}

Page printed_page(int width, int height, int run, unsigned seed) {
  std::mt19937 random(seed);
  const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  Page page;
  std::vector<int> changes;
  for (int y = 0; y < height; ++y) {
    const int kind = y == 0 ? 1 : below(16);
    if (kind <= 2) changes.clear();
    for (int x = below(2 * run); kind >= 1 && kind <= 2 && x < width; x += 1 + below(2 * run)) {
      changes.push_back(x);
    }
    for (int& x : changes) x = std::max(0, x + (below(4) == 0 ? below(9) - 4 : 0));
    if (kind == 5 && !changes.empty()) changes.pop_back();
    Pixels row(static_cast<std::size_t>(width));
    for (const int x : changes) {
      if (x < width) row[static_cast<std::size_t>(x)].flip();
    }
    for (std::size_t x = 1; x < row.size(); ++x) row[x] = row[x] != row[x - 1];
    page.push_back(row);
  }
  return page;
}

}  // namespace tq::test
