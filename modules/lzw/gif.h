// What the parts of the GIF codec share: the host's streams and the shape of an image.
#pragma once

#include <array>
#include <cstdint>
#include <cstdlib>

#include "tarnquill_plugin.h"

namespace gif {

// Set once by the host. Null functions read and write nothing.
struct Host {
  img_read_fn read = nullptr;
  img_write_fn write = nullptr;
  img_seek_fn seek = nullptr;
};
Host& host();

struct Colour {
  std::uint8_t blue, green, red, reserved;
};

// IMG_HEADER_BLOCK_BYTES as they are handed over.
struct HeaderBlock {
  std::uint32_t size;
  std::int32_t width, height;
  std::uint16_t planes, bits;
  std::uint32_t compression, image_bytes;
  std::int32_t x_dots_per_inch, y_dots_per_inch;
  std::uint32_t colours_used, colours_important;
  std::array<Colour, 256> palette;
};
static_assert(sizeof(HeaderBlock) == IMG_HEADER_BLOCK_BYTES);

inline constexpr std::uint32_t kTransparent = 0x1000;  // colours_used: index in the low byte
inline constexpr int kCodes = 4096;                    // of 12 bits
inline constexpr int kMostBits = 12;

constexpr std::int32_t row_bytes(std::int32_t width, int bits) {
  return (width * bits + 31) / 32 * 4;
}

// The n-th row in an interlaced file: every eighth, those between, and so on.
constexpr std::int32_t interlaced_row(std::int32_t n, std::int32_t height) {
  constexpr struct { std::int32_t first, step; } kPasses[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  for (const auto& pass : kPasses) {
    const std::int32_t rows = height > pass.first ? (height - pass.first - 1) / pass.step + 1 : 0;
    if (n < rows) return pass.first + n * pass.step;
    n -= rows;
  }
  return height - 1;
}

// Memory that is given back at the end of the scope. Zeroed.
template <class Type>
class Owned {
 public:
  explicit Owned(std::size_t count) : data_(static_cast<Type*>(std::calloc(count, sizeof(Type)))) {}
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { std::free(data_); }
  Type* get() const { return data_; }
  Type* operator->() const { return data_; }
  explicit operator bool() const { return data_ != nullptr; }

 private:
  Type* data_;
};

std::int32_t decode(std::uint32_t offset_or_page, img_row_fn row, void* sink_context,
                    img_header_fn header, std::int32_t stream);
std::int32_t encode(std::int32_t stream, const HeaderBlock& image, img_supply_fn supply,
                    void* save_context, bool interlaced);

}  // namespace gif
