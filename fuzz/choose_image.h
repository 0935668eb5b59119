// Images and arguments from the input.
#pragma once

#include <random>

#include "fuzz/fuzz_support.h"

namespace tq::fuzz {

// Of paper with blots, of noise, or of one colour; palettes of grey now and then.
inline Memory choose_dib(Input& in) {
  constexpr int kBits[] = {1, 1, 1, 4, 8, 8, 16, 24, 32, 2};
  const int bits = kBits[in.below(10)];
  const std::uint8_t size = in.u8();
  const std::int32_t width = size >= 250 ? 65530 + in.below(8) : 1 + in.u8();
  const std::int32_t height = size >= 250 ? 1 + in.below(3) : 1 + in.u8() % 160;
  HeaderBlock block = dib_header(width, height, bits);
  if (bits == 32 && size % 2 == 0) block.header.biCompression = kRgb32;
  const std::uint8_t kind = in.u8();
  std::minstd_rand random(kind);
  const int entries = palette_bytes(bits) / 4;
  for (int i = 0; i < entries; ++i) {
    const auto grey = static_cast<std::uint8_t>(i * 255 / std::max(entries - 1, 1));
    const auto other = kind % 3 == 0 ? static_cast<std::uint8_t>(random()) : grey;
    block.palette[i] = {grey, other, grey, 0};
  }
  Memory dib(static_cast<std::size_t>(dib_bytes(width, height, bits)), 0xFF);
  const std::size_t front = 40 + static_cast<std::size_t>(palette_bytes(bits));
  std::memcpy(dib.data(), &block, front);
  const auto stride = static_cast<std::size_t>(row_bytes(width, bits));
  if (kind % 4 == 0) {
    for (std::size_t i = front; i < dib.size(); ++i) dib[i] = static_cast<std::uint8_t>(random());
  }
  for (int i = in.below(24); i > 0; --i) {
    const std::size_t left = in.u8() % stride, top = in.u8() % static_cast<std::size_t>(height);
    const std::size_t across = std::min<std::size_t>(1 + in.u8() % 40, stride - left);
    const std::size_t down =
        std::min(std::size_t{1} + in.u8() % 40, static_cast<std::size_t>(height) - top);
    const std::uint8_t value = in.u8() % 4 == 0 ? in.u8() : 0;
    for (std::size_t y = top; y < top + down; ++y) {
      std::fill_n(&dib[front + y * stride + left], across, value);
    }
  }
  return dib;
}

// A small number, or one at the edges of what an argument can hold.
inline std::int32_t choose(Input& in, std::int32_t limit) {
  return in.u8() < 230 ? in.below(limit) : in.any_int();
}
inline std::int32_t choose_from(Input& in, std::int32_t least, std::int32_t limit) {
  return in.u8() < 230 ? least + in.below(limit - least) : in.any_int();
}

}  // namespace tq::fuzz
