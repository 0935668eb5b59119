// Between planes, as PCX files store them, and packed pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tq::formats {

void invert(std::span<std::uint8_t> bytes);

// Three or four planes of one bit, each `plane_bytes` long, to 4-bit pixels; plane 0 is the lowest
// bit. Pixels without a byte in the planes become 0.
void merge_bit_planes(std::span<const std::uint8_t> line, std::size_t plane_bytes, int planes,
                      std::span<std::uint8_t> row);

// Plane `plane` (0 to 3) of a row of 4-bit pixels. A row that ends early is 0 there.
void split_bit_plane(std::span<const std::uint8_t> row, int plane, std::span<std::uint8_t> bits);

// Planes of equal length to pixels of blue, green, red; the rest of the row becomes 0.
void interleave(std::span<const std::uint8_t> blue, std::span<const std::uint8_t> green,
                std::span<const std::uint8_t> red, std::span<std::uint8_t> row);

// Every third byte of `row`, from byte `channel` on.
void pick_channel(std::span<const std::uint8_t> row, std::size_t channel,
                  std::span<std::uint8_t> plane);

}  // namespace tq::formats
