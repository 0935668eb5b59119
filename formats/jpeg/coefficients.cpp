#include "formats/jpeg/coefficients.h"

#include <cstring>

namespace tq::formats {

Status CoefficientStore::allocate(const Geometry& geometry) {
  std::uint64_t total = 0;
  for (int i = 0; i < geometry.count; ++i) {
    const Grid& grid = geometry.grids[i];
    parts_[i].start = total;
    parts_[i].row_bytes =
        static_cast<std::uint64_t>(grid.padded_columns) * kBlock * sizeof(std::int16_t);
    total += parts_[i].row_bytes * static_cast<std::uint64_t>(grid.v) *
             static_cast<std::uint64_t>(geometry.mcu_rows);
  }
  return blocks_.allocate(total);
}

std::int16_t* CoefficientStore::row(int component, int y) {
  Part& part = parts_[component];
  const auto row_bytes = static_cast<std::size_t>(part.row_bytes);
  std::uint8_t* const first = blocks_.data() + part.start;
  for (; part.cleared <= y; ++part.cleared) {
    std::memset(first + static_cast<std::size_t>(part.cleared) * row_bytes, 0, row_bytes);
  }
  return reinterpret_cast<std::int16_t*>(first + static_cast<std::size_t>(y) * row_bytes);
}

}  // namespace tq::formats
