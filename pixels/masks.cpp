// Pixels whose masks say where their colours are, each to the nearest level of 8 bits.
#include <algorithm>
#include <array>
#include <bit>

#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::pixels {
namespace {

constexpr std::uint8_t nearest_level(std::uint32_t level, std::uint32_t most) {
  return most == 0 ? std::uint8_t{0} : byte((std::uint64_t{level} * 255 + most / 2) / most);
}

// Those of masks of 0 to 8 bits.
constexpr auto kLevels = [] {
  std::array<std::array<std::uint8_t, 256>, 9> levels{};
  for (std::uint32_t bits = 0; bits <= 8; ++bits) {
    const std::uint32_t most = (1u << bits) - 1;
    for (std::uint32_t level = 0; level <= most; ++level) {
      levels[bits][level] = nearest_level(level, most);
    }
  }
  return levels;
}();

template <int kBytes>
std::uint32_t load_number(const std::uint8_t* from) {
  std::uint32_t number = 0;
  for (int i = 0; i < kBytes; ++i) number |= std::uint32_t{from[i]} << 8 * i;
  return number;
}

}  // namespace

PixelMasks::Channel::Channel(std::uint32_t bit_mask)
    : mask(bit_mask), low(bit_mask == 0 ? 0 : std::countr_zero(bit_mask)) {
  const int bits = std::bit_width(mask >> low);
  most = bits == 32 ? UINT32_MAX : (1u << bits) - 1;
  levels = bits <= 8 ? kLevels[bits].data() : nullptr;
}

std::uint8_t PixelMasks::Channel::level(std::uint32_t pixel) const {
  const std::uint32_t value = (pixel & mask) >> low;
  return levels != nullptr ? levels[value] : nearest_level(value, most);
}

PixelMasks::PixelMasks(const ColourMasks& masks, std::uint32_t alpha, int pixel_bytes)
    : pixel_bytes_(pixel_bytes),
      red_(masks.red),
      green_(masks.green),
      blue_(masks.blue),
      alpha_(alpha) {}

template <int kBytes, bool kAlpha>
void PixelMasks::unpack_pixels(const std::uint8_t* stored, int width, std::uint8_t* row) const {
  const Channel red = red_, green = green_, blue = blue_, alpha = alpha_;
  for (int x = 0; x < width; ++x, stored += kBytes, row += 3) {
    const std::uint32_t pixel = load_number<kBytes>(stored);
    std::uint8_t levels[] = {blue.level(pixel), green.level(pixel), red.level(pixel)};
    if constexpr (kAlpha) {
      for (std::uint8_t& level : levels) level = on_white(level, alpha.level(pixel));
    }
    for (int i = 0; i < 3; ++i) row[i] = levels[i];
  }
}

void PixelMasks::unpack(Bytes stored, int width, Row row) const {
  const std::ptrdiff_t there = std::min<std::ptrdiff_t>(width, std::ssize(stored) / pixel_bytes_);
  const int pixels = static_cast<int>(there);
  std::fill(row.begin() + 3 * there, row.end(), std::uint8_t{0});
  if (pixel_bytes_ == 2) {
    unpack_pixels<2, false>(stored.data(), pixels, row.data());
  } else if (alpha_.mask == 0) {
    unpack_pixels<4, false>(stored.data(), pixels, row.data());
  } else {
    unpack_pixels<4, true>(stored.data(), pixels, row.data());
  }
}

bool PixelMasks::any_alpha(Bytes stored, int width) const {
  if (alpha_.mask == 0 || pixel_bytes_ != 4) return false;
  const std::ptrdiff_t there = std::min<std::ptrdiff_t>(width, std::ssize(stored) / 4);
  for (std::ptrdiff_t x = 0; x < there; ++x) {
    if ((load_number<4>(&stored[4 * x]) & alpha_.mask) != 0) return true;
  }
  return false;
}

}  // namespace tq::pixels
