// A page of black on white that a test draws.
#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "core/dib.h"
#include "tests/process/generated_image.h"

namespace tq::test {

class Page {
 public:
  Page(int width, int height)
      : width_(width), height_(height), black_(static_cast<std::size_t>(width * height)) {}

  static Page of(std::int32_t image) {
    const Snapshot seen = snapshot(image);
    BitmapInfoHeader header;
    std::memcpy(&header, seen.front.data(), sizeof header);
    Page page(header.biWidth, header.biHeight);
    for (int y = 0; y < page.height_; ++y) {
      const Bytes& row = seen.rows[static_cast<std::size_t>(y)];
      for (int x = 0; x < page.width_; ++x) page.at(x, y) = (row[x / 8] >> (7 - x % 8) & 1) == 0;
    }
    return page;
  }

  int width() const { return width_; }
  int height() const { return height_; }
  std::uint8_t& at(int x, int y) { return black_[static_cast<std::size_t>(y * width_ + x)]; }
  std::uint8_t at(int x, int y) const { return black_[static_cast<std::size_t>(y * width_ + x)]; }

  // What lies outside is left out.
  void draw(int x, int y, int width, int height, bool black = true) {
    for (int j = std::max(y, 0); j < std::min(y + height, height_); ++j) {
      for (int i = std::max(x, 0); i < std::min(x + width, width_); ++i) at(i, j) = black;
    }
  }
  void erase(int x, int y, int width, int height) { draw(x, y, width, height, false); }
  void place(const Page& other, int y) {
    std::ranges::copy(other.black_, black_.begin() + y * width_);
  }
  Page part(int y, int height) const {
    Page part(width_, height);
    std::copy_n(black_.begin() + y * width_, width_ * height, part.black_.begin());
    return part;
  }

  Bytes dib() const {
    const auto stride = static_cast<std::size_t>(row_bytes(width_, 1));
    Bytes dib(48 + stride * static_cast<std::size_t>(height_));
    HeaderBlock block = dib_header(width_, height_, 1);
    block.palette[1] = {255, 255, 255, 0};
    std::memcpy(dib.data(), &block, 48);
    for (int y = 0; y < height_; ++y) {
      std::uint8_t* const row = &dib[48 + stride * static_cast<std::size_t>(height_ - 1 - y)];
      for (int x = 0; x < width_; ++x) {
        if (at(x, y) == 0) row[x / 8] |= static_cast<std::uint8_t>(0x80 >> x % 8);
      }
    }
    return dib;
  }

  friend bool operator==(const Page&, const Page&) = default;

 private:
  int width_, height_;
  std::vector<std::uint8_t> black_;
};

}  // namespace tq::test
