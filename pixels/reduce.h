// Reduction of rows to 8, 4 or 1 bits while decoding. Each pixel depends on its colour and place
// alone, so rows may arrive in any order.
#pragma once

#include "core/memory.h"
#include "pixels/rows.h"

namespace tq::pixels {

class RowReducer {
 public:
  // Reduces to `bits`, if that lowers the source's depth.
  void choose(const HeaderBlock& source, std::int32_t bits, std::int32_t dither_mode);
  bool active() const { return bits_ != 0; }
  int bits() const { return bits_; }
  const Rgb* palette() const;

  Status allocate(const HeaderBlock& source);  // buffers, when active

  // The row of source line y (0 = top), valid until the next call.
  Bytes reduce(Bytes row, int y);

 private:
  struct CachedColour {
    std::uint32_t key;  // the colour and a mark that the entry is in use
    std::uint8_t index;
  };

  void reduce_to_8(int y);
  void reduce_to_4(int y);
  void reduce_to_1(int y);
  std::uint8_t nearest(Rgb colour);

  int bits_ = 0;
  bool plain_thresholds_ = false;  // dither mode 2: no ordered dither
  RowFormat source_;
  RowBuffer<Rgb> colours_;
  RowBuffer<std::uint8_t> reduced_;
  RowBuffer<CachedColour> cache_;
};

}  // namespace tq::pixels
