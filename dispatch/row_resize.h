// Rows made narrower: scaled by nearest neighbour, or cut. Any depth, packed pixels.
#pragma once

#include <cstdint>
#include <span>

namespace tq::dispatch {

// `out` becomes a row of `out_width` pixels, pixel i being source pixel i * step / 65536 with the
// step (width << 16) / out_width.
void scale_row(std::span<const std::uint8_t> row, std::int32_t width, int bits,
               std::span<std::uint8_t> out, std::int32_t out_width);

// `out` becomes pixels first .. first + out_width - 1; what lies beyond the source is white for 1
// bit, 0 otherwise.
void cut_row(std::span<const std::uint8_t> row, std::int32_t width, int bits, std::int32_t first,
             std::span<std::uint8_t> out, std::int32_t out_width);

}  // namespace tq::dispatch
