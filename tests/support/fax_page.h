// Pages as facsimile coders have them, pixel by pixel.
#pragma once

#include <cstdint>
#include <vector>

#include "formats/codec.h"

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;
using Pixels = std::vector<bool>;  // true: black
using Page = std::vector<Pixels>;

// Rows as the library has them: 1 is white, padded with 1 to a multiple of 4 bytes.
std::vector<Bytes> bits_of(const Page& page);

// A transition list: a word for its length, which is 0, the transitions, what closes it.
std::vector<std::int32_t> transition_words(const Pixels& row);

// Rows that look like a printed page: runs of about `run` pixels, most transitions at or near one
// of the row before, now and then a row of its own or an empty one.
Page printed_page(int width, int height, int run, unsigned seed);

// Supplies a page as transition lists where they fit, like the library's own supplier, or as bits.
class PageSupplier {
 public:
  PageSupplier(const Page& page, bool lists) : page_(page), bits_(bits_of(page)), lists_(lists) {}
  formats::RowSupplier supplier() { return {on_row, this}; }
  std::int32_t failed_row = -1;

 private:
  static std::int32_t IMG_CB_C on_row(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes);

  Page page_;
  std::vector<Bytes> bits_;
  bool lists_;
};

}  // namespace tq::test
