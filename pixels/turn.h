// Rows of a picture that is turned, as TIFF's Orientation tag counts ways to turn (TIFF 6.0): 1 as it
// is, 2 mirrored, 3 by 180 degrees, 4 upside down, 5 mirrored along the main diagonal, 6 by 90 degrees
// clockwise, 7 mirrored along the other diagonal, 8 by 90 degrees counter-clockwise.
#pragma once

#include "core/memory.h"
#include "pixels/rows.h"

namespace tq::pixels {

struct Turn {
  bool swapped;      // columns become rows
  bool from_right;   // of the source's columns the last becomes the first
  bool from_bottom;  // likewise of its rows
};
constexpr Turn turn_of(int orientation) {
  constexpr Turn kTurns[] = {{false, false, false}, {false, true, false}, {false, true, true},
                             {false, false, true},  {true, false, false}, {true, false, true},
                             {true, true, true},    {true, true, false}};
  return kTurns[orientation >= 1 && orientation <= 8 ? orientation - 1 : 0];
}

// The last pixel comes first, of 1, 4 bits or whole bytes; what is behind them stays, but for the last
// byte of them.
void mirror_row(Row row, std::int32_t width, int bits);

// The same from one row to another; further bytes of that keep their value.
void mirror_row(Bytes from, std::int32_t width, int bits, Row to);

// A picture that is asked for a row at a time, of 1, 4, 8, 16, 24 or 32 bits.
struct Source {
  void (*read)(const void* context, std::int32_t y, Row row) = nullptr;
  const void* context = nullptr;
  std::int32_t width = 0, height = 0;
  int bits = 0;
};

class TurnedRows {
 public:
  Status open(const Source& source, Turn turn);

  std::int32_t width() const { return turn_.swapped ? source_.height : source_.width; }
  std::int32_t height() const { return turn_.swapped ? source_.width : source_.height; }

  // Row y, valid until the next call. Ascending rows are fastest.
  Bytes row(std::int32_t y);

 private:
  static constexpr std::int64_t kBandBytes = std::int64_t{4} << 20;
  static constexpr int kGroup = 8;  // rows of the source that are turned together

  void turn_band(std::int32_t first);
  void turn_group(std::int32_t x, int count);
  Row band_row(std::int32_t i);

  Source source_;
  Turn turn_{};
  std::int32_t first_ = 0, there_ = 0;  // the rows that the band holds
  std::int32_t band_rows_ = 0;
  std::int64_t stride_ = 0, source_stride_ = 0;
  RowBuffer<std::uint8_t> band_, group_;
};

}  // namespace tq::pixels
