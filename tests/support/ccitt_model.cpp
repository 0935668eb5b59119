#include "tests/support/ccitt_model.h"

#include <algorithm>
#include <cstring>
#include <random>

#include "core/dib.h"
#include "formats/ccitt/ccitt_codes.h"

namespace tq::test {
namespace {

using formats::CcittCode;
using formats::CcittCoding;
using formats::CcittScheme;

std::string text(CcittCode code) {
  std::string bits;
  for (int i = code.length; i-- > 0;) bits += (code.bits >> i & 1) != 0 ? '1' : '0';
  return bits;
}

std::string run_code(bool black, int run) {
  const auto& codes = formats::kRunCode[black ? 1 : 0];
  std::string bits;
  for (; run > 2560 + 63; run -= 2560) bits += text(codes[63 + 40]);
  if (run > 63) bits += text(codes[static_cast<std::size_t>(63 + run / 64)]);
  return bits + text(codes[static_cast<std::size_t>(run % 64)]);
}

bool pixel(const Pixels& row, int x) {
  return x >= 0 && row[static_cast<std::size_t>(x)];
}

// The first place behind x where the colour differs from that of the pixel before.
int next_change(const Pixels& row, int x) {
  const int width = static_cast<int>(row.size());
  for (++x; x < width; ++x) {
    if (pixel(row, x) != pixel(row, x - 1)) return x;
  }
  return width;
}

std::string one_dimensional(const Pixels& row) {
  std::string bits;
  const int width = static_cast<int>(row.size());
  bool black = false;
  for (int x = 0; x < width; black = !black) {
    int end = x;
    while (end < width && pixel(row, end) == black) ++end;
    bits += run_code(black, end - x);
    x = end;
  }
  return bits;
}

std::string two_dimensional(const Pixels& row, const Pixels& before) {
  static const char* const vertical[] = {"0000010", "000010", "010",    "1",
                                         "011",     "000011", "0000011"};
  std::string bits;
  const int width = static_cast<int>(row.size());
  int a0 = -1;
  bool black = false;  // colour at a0
  while (a0 < width) {
    int a1 = std::max(a0, 0);
    while (a1 < width && (a1 == a0 || pixel(row, a1) == black)) ++a1;
    int b1 = next_change(before, a0);
    while (b1 < width && pixel(before, b1) == black) b1 = next_change(before, b1);
    const int b2 = b1 < width ? next_change(before, b1) : width;
    if (b2 < a1) {
      bits += "0001";
      a0 = b2;
    } else if (a1 - b1 >= -3 && a1 - b1 <= 3) {
      bits += vertical[a1 - b1 + 3];
      a0 = a1;
      black = !black;
    } else {
      const int a2 = a1 < width ? next_change(row, a1) : width;
      bits += "001" + run_code(black, a1 - std::max(a0, 0)) + run_code(!black, a2 - a1);
      a0 = a2;
    }
  }
  return bits;
}

void fill_up(std::string& bits, std::size_t ahead = 0) {
  while ((bits.size() + ahead) % 8 != 0) bits += '0';
}

}  // namespace

Bytes packed(const std::string& bits, bool lsb_first) {
  Bytes bytes((bits.size() + 7) / 8);
  for (std::size_t i = 0; i < bits.size(); ++i) {
    if (bits[i] == '1') {
      bytes[i / 8] |= static_cast<std::uint8_t>(lsb_first ? 1 << i % 8 : 0x80 >> i % 8);
    }
  }
  return bytes;
}

Bytes ccitt_by_model(const CcittCoding& coding, const Page& page) {
  static const std::string eol = "000000000001";
  const bool tagged = coding.scheme == CcittScheme::group3_2d;
  const bool group3 = tagged || coding.scheme == CcittScheme::group3_1d;
  std::string bits;
  Pixels before(page[0].size());
  for (std::size_t y = 0; y < page.size(); ++y) {
    const bool alone =
        tagged ? y % static_cast<std::size_t>(coding.k) == 0 : coding.scheme != CcittScheme::group4;
    const bool has_eol = group3 && coding.end_of_line;
    if (has_eol) {
      if (coding.byte_aligned) fill_up(bits, eol.size());
      bits += eol;
    }
    if (tagged) bits += alone ? '1' : '0';
    bits += alone ? one_dimensional(page[y]) : two_dimensional(page[y], before);
    if (coding.scheme == CcittScheme::huffman || (coding.byte_aligned && !has_eol)) fill_up(bits);
    before = page[y];
  }
  if (coding.end_of_block && coding.scheme != CcittScheme::huffman) {
    for (int i = 0; i < (group3 ? 6 : 2); ++i) bits += eol + (tagged ? "1" : "");
  }
  return packed(bits, coding.lsb_first);
}

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
  for (int x = next_change(row, -1); x < width; x = next_change(row, x)) words.push_back(x);
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
