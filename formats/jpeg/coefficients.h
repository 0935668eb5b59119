// The coefficients of a picture whose blocks do not come all at once.
#pragma once

#include <array>
#include <cstdint>

#include "core/memory.h"
#include "formats/jpeg/picture.h"

namespace tq::formats {

class CoefficientStore {
 public:
  Status allocate(const Geometry& geometry);

  // The blocks of a row, from the left, kBlock coefficients each. Rows become 0 when they are first
  // asked for: a picture may claim more of them than its data fill.
  std::int16_t* row(int component, int y);
  bool untouched(int component, int y) const { return y >= parts_[component].cleared; }

 private:
  struct Part {
    std::uint64_t start = 0;  // bytes
    std::uint64_t row_bytes = 0;
    int cleared = 0;  // rows
  };
  GlobalBlock blocks_;
  std::array<Part, kMostComponents> parts_;
};

}  // namespace tq::formats
