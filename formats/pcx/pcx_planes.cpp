// Bit planes eight pixels at a time, byte planes one by one where the processor has nothing better.
#include "formats/pcx/pcx_planes.h"

#include <algorithm>
#include <array>

#include "formats/pcx/x86/pcx_ssse3.h"
#include "io/endian.h"

namespace tq::formats {
namespace {

// A byte's bits in the lowest bits of eight nibbles, the first pixel in the highest nibble.
constexpr std::array<std::uint32_t, 256> kSpread = [] {
  std::array<std::uint32_t, 256> spread{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    for (int bit = 0; bit < 8; ++bit) spread[byte] |= (byte >> bit & 1) << 4 * bit;
  }
  return spread;
}();

// The opposite.
constexpr std::uint8_t gather(std::uint32_t nibbles) {
  std::uint32_t bits = nibbles & 0x11111111;
  bits = (bits | bits >> 3) & 0x03030303;
  bits = (bits | bits >> 6) & 0x000F000F;
  return static_cast<std::uint8_t>(bits | bits >> 12);
}

}  // namespace

void invert(std::span<std::uint8_t> bytes) {
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(~byte);
}

void merge_bit_planes(std::span<const std::uint8_t> line, std::size_t plane_bytes, int planes,
                      std::span<std::uint8_t> row) {
  const std::size_t groups = std::min(plane_bytes, row.size() / 4);  // of eight pixels, four bytes
  for (std::size_t i = 0; i < groups; ++i) {
    std::uint32_t pixels = 0;
    for (int plane = 0; plane < planes; ++plane) {
      pixels |= kSpread[line[plane * plane_bytes + i]] << plane;
    }
    store_be32(&row[4 * i], pixels);
  }
  std::fill(row.begin() + 4 * groups, row.end(), std::uint8_t{0});
}

void split_bit_plane(std::span<const std::uint8_t> row, int plane, std::span<std::uint8_t> bits) {
  const std::size_t groups = std::min(bits.size(), row.size() / 4);
  for (std::size_t i = 0; i < groups; ++i) bits[i] = gather(load_be32(&row[4 * i]) >> plane);
  std::fill(bits.begin() + groups, bits.end(), std::uint8_t{0});
}

void interleave(std::span<const std::uint8_t> blue, std::span<const std::uint8_t> green,
                std::span<const std::uint8_t> red, std::span<std::uint8_t> row) {
  const std::size_t width = blue.size();
  const std::uint8_t *b = blue.data(), *g = green.data(), *r = red.data();
  std::size_t x = x86::interleave(b, g, r, row.data(), width);
  for (std::uint8_t* pixel = row.data() + 3 * x; x < width; ++x, pixel += 3) {
    pixel[0] = b[x];
    pixel[1] = g[x];
    pixel[2] = r[x];
  }
  std::fill(row.begin() + 3 * width, row.end(), std::uint8_t{0});
}

void pick_channel(std::span<const std::uint8_t> row, std::size_t channel,
                  std::span<std::uint8_t> plane) {
  const std::uint8_t* from = row.data() + channel;
  std::uint8_t* to = plane.data();
  std::size_t x = x86::pick_channel(row.data(), channel, to, plane.size());
  for (; x < plane.size(); ++x) to[x] = from[3 * x];
}

}  // namespace tq::formats
