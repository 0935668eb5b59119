// Images made and read through the exports, and pictures as plain numbers to compare them with.
#pragma once

#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "core/image_table.h"
#include "include/tarnquill.h"

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;
using Rows = std::vector<Bytes>;  // from the top

// A pixel is its value as the depth stores it: an index, or the bytes of a colour, lowest first.
using Pixels = std::vector<std::uint32_t>;

// How many bytes a row has. Depths that nobody knows have one byte a pixel.
std::size_t stride(std::int64_t width, int bits);

// Packed from the left; `filler` is the byte of what lies behind the last pixel.
Bytes pack(const Pixels& pixels, int bits, std::uint8_t filler = 0);
Pixels unpack(const Bytes& row, std::int32_t width, int bits);

// Owns an image handle.
class Image {
 public:
  explicit Image(std::int32_t handle) : handle_(handle) {}
  Image(Image&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image() {
    if (handle_ >= 0) IMG_delete_bitmap(handle_);
  }
  operator std::int32_t() const { return handle_; }  // NOLINT(*-explicit-*): stands for its handle
  ImageHandle named() const { return ImageHandle{handle_}; }
  ImageRecord& record() const { return image_record(named()); }
  std::int32_t release() { return std::exchange(handle_, -1); }

 private:
  std::int32_t handle_;
};

// A shell image with these rows; a 1-bit one may be turned into run lists.
Image make_image(std::int32_t width, int bits, const Rows& rows, bool in_runs = false);

BitmapInfoHeader header_of_image(std::int32_t image);
Rows rows_of_image(std::int32_t image);

// Numbers that are the same in every run.
class Random {
 public:
  explicit Random(std::uint32_t seed) : engine_(seed) {}
  std::int32_t between(std::int32_t low, std::int32_t high) {
    return low +
           static_cast<std::int32_t>(engine_() % (static_cast<std::uint32_t>(high - low) + 1));
  }
  bool chance(int percent) { return between(0, 99) < percent; }
  template <class Value>
  const Value& pick(const std::vector<Value>& values) {
    return values[static_cast<std::size_t>(
        between(0, static_cast<std::int32_t>(values.size()) - 1))];
  }
  Bytes bytes(std::size_t count);
  Pixels pixels(std::int32_t width, int bits);
  // A row of bits in which `percent` of the pixels change colour; the padding is random.
  Bytes bit_row(std::int32_t width, int percent);
  std::mt19937& engine() { return engine_; }

 private:
  std::mt19937 engine_;
};

}  // namespace tq::test
