// The coefficients of a picture whose blocks do not come all at once.
#pragma once

#include <array>
#include <cstdint>

#include "core/memory.h"
#include "formats/jpeg/picture.h"

namespace tq::formats {

// The blocks of one row, from the left. Most blocks have few coefficients and some only the first,
// which is kept apart: what the other 63 take is neither cleared nor touched before one is stored.
struct StoredRow {
  std::int16_t* dc;
  std::uint64_t* present;  // bit k: place k of the zigzag sequence is not 0
  std::int16_t* blocks;    // kBlock each, column by column; undefined where nothing is present

  std::int16_t* block(int x) const { return blocks + std::ptrdiff_t{kBlock} * x; }
};

class CoefficientStore {
 public:
  Status allocate(const Geometry& geometry);

  // Rows become 0 when they are first asked for: a picture may claim more of them than its data
  // fill.
  StoredRow row(int component, int y);

 private:
  struct Part {
    StoredRow first;
    std::size_t columns = 0;
    int cleared = 0;  // rows
  };
  GlobalBlock room_;
  std::array<Part, kMostComponents> parts_{};
};

}  // namespace tq::formats
