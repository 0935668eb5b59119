// 1-bit pictures that come in tiles, each with rows of its own: tiles that lie side by side are held
// as positions of colour changes until their rows are whole.
#pragma once

#include <cstdint>
#include <span>

#include "formats/fax.h"

namespace tq::formats {

struct Tile {
  std::int32_t x = 0, y = 0;  // of its left top corner; y counts from the first row of all tiles
  std::int32_t width = 0, height = 0;  // in its own pixels
  std::int32_t scale = 1;              // of the picture's pixels in one of its own
  bool black = false;                  // all of it; there are no rows
};

class TileRows {
 public:
  Status open(std::int32_t width);

  // The next tile; of tiles that overlap the later one is seen. Then its rows from the top, of which
  // the last may be missing: they are white. Sides are at most 65535.
  Status begin(const Tile& tile);
  Status put(std::span<const std::int32_t> transitions);

  // Hands rows to the sink, from `first_row` on, and forgets all tiles. Where there is no tile, they
  // are white.
  Status deliver(const RowSink& sink, std::int32_t first_row, std::int32_t rows);

 private:
  struct Held {
    Tile tile;
    std::int64_t next = 0;  // its next row among the words
    std::int32_t rows = 0;  // that were put
  };
  struct Runs {  // black ones
    std::int32_t* at = nullptr;
    std::ptrdiff_t count = 0;  // of numbers: two of each

    void add(std::int32_t first, std::int32_t end);
  };

  Status reserve(GlobalBlock& block, std::int64_t used, std::int64_t more) const;
  Held& held(std::ptrdiff_t i) const { return reinterpret_cast<Held*>(tiles_.data())[i]; }
  std::uint16_t* words() const { return reinterpret_cast<std::uint16_t*>(words_.data()); }
  void add_row(Held& held, std::int32_t y);
  void add_runs(const Tile& tile, std::span<const std::uint16_t> transitions);

  std::int32_t width_ = 0;
  FaxRowDelivery delivery_;
  GlobalBlock tiles_, words_;  // of each row a count, and the positions
  std::ptrdiff_t tile_count_ = 0;
  std::int64_t word_count_ = 0;
  std::int64_t pieces_left_ = 0;
  RowBuffer<std::int32_t> row_room_, other_room_;
  Runs row_, other_;
};

}  // namespace tq::formats
