#include "formats/jpeg/coefficients.h"

#include <cstring>

namespace tq::formats {

Status CoefficientStore::allocate(const Geometry& geometry) {
  std::uint64_t total = 0;
  std::array<std::uint64_t, kMostComponents> counts{};  // blocks
  for (int i = 0; i < geometry.count; ++i) {
    const Grid& grid = geometry.grids[i];
    counts[i] = static_cast<std::uint64_t>(grid.padded_columns) *
                static_cast<std::uint64_t>(grid.v) * static_cast<std::uint64_t>(geometry.mcu_rows);
    total += counts[i];
  }
  TQ_TRY(room_.allocate(total * (sizeof(std::uint64_t) + (kBlock + 1) * sizeof(std::int16_t))));
  // In the order of their alignment.
  auto* present = reinterpret_cast<std::uint64_t*>(room_.data());
  auto* blocks = reinterpret_cast<std::int16_t*>(present + total);
  std::int16_t* dc = blocks + total * kBlock;
  for (int i = 0; i < geometry.count; ++i) {
    parts_[i] = {{dc, present, blocks}, static_cast<std::size_t>(geometry.grids[i].padded_columns)};
    dc += counts[i];
    present += counts[i];
    blocks += counts[i] * kBlock;
  }
  return kOk;
}

StoredRow CoefficientStore::row(int component, int y) {
  Part& part = parts_[component];
  const auto row_at = [&](int row) {
    const std::size_t offset = static_cast<std::size_t>(row) * part.columns;
    const StoredRow& first = part.first;
    return StoredRow{first.dc + offset, first.present + offset, first.blocks + offset * kBlock};
  };
  for (; part.cleared <= y; ++part.cleared) {
    const StoredRow row = row_at(part.cleared);
    std::memset(row.dc, 0, part.columns * sizeof(*row.dc));
    std::memset(row.present, 0, part.columns * sizeof(*row.present));
  }
  return row_at(y);
}

}  // namespace tq::formats
