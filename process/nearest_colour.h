// The nearest of 256 colours, remembered by cells.
#pragma once

#include <array>
#include <span>

#include "core/dib.h"

namespace tq::process {

// The nearest of 256 colours for every 15-bit colour. The first colour of such a cell that is asked
// for decides for all of them; callers rely on the result.
class CellColours {
 public:
  // Entry 0 of `palette` is black.
  explicit CellColours(std::span<const Rgb, 256> palette) : palette_(palette) {}
  Status allocate();

  struct Entry {
    std::uint8_t blue, green, red, index;
  };
  Entry find(Rgb colour) {
    const Entry entry = entries_.data()[cell(colour)];
    return is_free(entry) ? fill(colour) : entry;
  }

  static constexpr int cell(Rgb c) {
    return (c.red >> 3) << 10 | (c.green >> 3) << 5 | c.blue >> 3;
  }
  // Entry 0 is black, so no colour of the palette looks like this.
  static constexpr bool is_free(Entry e) { return e.index == 0 && e.blue == 255; }
  const Entry* entries() const { return entries_.data(); }
  Entry fill(Rgb colour);

 private:
  std::span<const Rgb, 256> palette_;
  RowBuffer<Entry> entries_;
};

}  // namespace tq::process
