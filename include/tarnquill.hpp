// The interface of tarnquill.h for C++17: images that free themselves, statuses as exceptions. Header only.
#ifndef TARNQUILL_HPP
#define TARNQUILL_HPP

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tarnquill.h"

namespace tq {

// What a call has answered below 0.
class Error : public std::runtime_error {
 public:
  explicit Error(std::int32_t status, const std::string& what = {})
      : std::runtime_error((what.empty() ? what : what + ": ") + IMG_status_text(status)),
        status_(status) {}
  std::int32_t status() const noexcept { return status_; }

 private:
  std::int32_t status_;
};

// The result of a call, if it is none of the statuses: tq::check(IMG_set_option(...)).
inline std::int32_t check(std::int32_t result, const std::string& what = {}) {
  if (result < 0) throw Error(result, what);
  return result;
}

// A context is the thread's from the making of this object to its end, which frees the images in it.
class Context {
 public:
  Context() : number_(check(IMG_new_context())), before_(IMG_use_context(number_)) {
    if (before_ < 0) {
      IMG_delete_context(number_);
      throw Error(before_);
    }
  }
  ~Context() {
    IMG_use_context(before_);
    IMG_delete_context(number_);
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

 private:
  std::int32_t number_, before_;
};

struct Resolution {
  double x, y;  // dots per inch, 0: not known
};

// Rows of plain pixels; row(0) is the top one, and the stride is negative. They are the image's own
// memory, until something replaces its pixels.
struct Pixels {
  std::uint8_t* top = nullptr;
  std::ptrdiff_t stride = 0;
  std::int32_t width = 0, height = 0, bits = 0;
  std::uint8_t* row(std::int32_t y) const { return top + y * stride; }
};

// An image of the context that was the thread's when it was made; deleted there, too.
class Image {
 public:
  Image() = default;
  explicit Image(std::int32_t handle) noexcept : handle_(handle) {}  // takes it over
  Image(Image&& other) noexcept : handle_(other.release()) {}
  Image& operator=(Image&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image() {
    if (handle_ >= 0) IMG_delete_bitmap(handle_);
  }

  // A page, from 0, of a file. Later ones are taken from the whole file in memory.
  static Image open(const std::string& name, std::int32_t page = 0) {
    if (page == 0) return Image(check(IMG_decompress_bitmap(name.c_str()), name));
    const std::int32_t count = IMGLOW_get_pages(name.c_str());  // not every kind of file is counted
    if (page < 0 || (count >= 0 && page >= count)) throw Error(IMG_PAGE_PAST_END, name);
    std::ifstream file(name, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    return Image(check(IMG_decompress_bitmap_block(bytes.data(), bytes.size(), page), name));
  }
  static Image from_memory(const void* file, std::size_t size, std::int32_t page = 0) {
    return Image(check(IMG_decompress_bitmap_block(file, size, page)));
  }
  static std::int32_t pages(const std::string& name) {
    return check(IMGLOW_get_pages(name.c_str()), name);
  }

  std::int32_t handle() const noexcept { return handle_; }
  std::int32_t release() noexcept { return std::exchange(handle_, -1); }

  std::int32_t width() const { return info().width; }
  std::int32_t height() const { return info().height; }
  std::int32_t bits() const { return info().bits; }
  Resolution dpi() const {
    std::int32_t x = 0, y = 0;
    check(IMG_get_resolution(handle_, &x, &y));
    return {x / 1000.0, y / 1000.0};
  }

  // Any export that takes an image first: image.apply(IMG_tone_bitmap, 10, 0, 100). What it answers is
  // in result().
  template <typename Export, typename... Arguments>
  Image& apply(Export function, Arguments... arguments) {
    result_ = check(function(handle_, arguments...));
    return *this;
  }
  std::int32_t result() const noexcept { return result_; }

  Image& flip() { return apply(IMG_flip_bitmap); }
  Image& mirror() { return apply(IMG_mirror_bitmap); }
  Image& invert() { return apply(IMG_invert_bitmap); }
  Image& crop(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height) {
    return apply(IMG_crop_bitmap, x, y, width, height);
  }
  Image& rotate(std::int32_t hundredths, std::int32_t colour = -1, std::int32_t mode = 0) {
    return apply(IMG_rotate_bitmap, hundredths, colour, mode);
  }
  Image& resize(std::int32_t width, std::int32_t height, std::int32_t method = 1) {
    return apply(IMG_resize_bitmap, width, height, method);
  }
  Image& resample(std::int32_t x_dpi, std::int32_t y_dpi, std::int32_t method = 1) {
    return apply(IMG_resample_bitmap, x_dpi, y_dpi, method);
  }
  Image& filter(std::int32_t kind, std::int32_t radius, std::int32_t amount = 100) {
    return apply(IMG_filter_bitmap, kind, radius, amount);
  }
  Image& adaptive_mono(std::int32_t method = 1) {
    return apply(IMG_adaptive_mono, method, 0, 0);
  }
  Image& deskew() { return apply(IMG_deskew_bitmap, 0, -1, -1, nullptr); }
  Image& auto_orient() { return apply(IMG_auto_orient_bitmap, -1, nullptr); }
  Image& despeckle(std::int32_t width = 3, std::int32_t height = 3, std::int32_t mode = 5) {
    return apply(IMG_despeckle_bitmap, width, height, mode);
  }
  Image& promote_24() { return apply(IMG_promote_24); }

  Pixels pixels() {
    check(info().bits == 1 ? IMG_runs_to_dib(handle_) : 0);
    Pixels found = info();
    const auto bytes =
        static_cast<std::ptrdiff_t>((std::int64_t{found.width} * found.bits + 31) / 32 * 4);
    const std::ptrdiff_t entries = check(IMG_bitmap_palette(handle_));
    found.top += 40 + 4 * entries + (found.height - 1) * bytes;
    found.stride = -bytes;
    return found;
  }

  void save(const std::string& name, std::int32_t code = IMG_TYPE_BY_NAME) const {
    check(IMG_save_bitmap(handle_, name.c_str(), code), name);
  }
  std::vector<std::uint8_t> save_to_memory(std::int32_t code) const {
    const Pixels found = info();
    std::size_t room = 65536;
    room += (static_cast<std::size_t>(found.width) * static_cast<std::size_t>(found.bits) / 8 + 4) *
            static_cast<std::size_t>(found.height);
    for (;; room *= 2) {
      std::vector<std::uint8_t> bytes(room);
      const std::int32_t written = IMG_save_bitmap_block(handle_, bytes.data(), room, code);
      if (written == IMG_WRITE_FAILED && room <= 0x3FFFFFFF) continue;
      bytes.resize(static_cast<std::size_t>(check(written)));
      return bytes;
    }
  }

 private:
  Pixels info() const {  // `top` is where the header begins
    Pixels found;
    const std::intptr_t address =
        IMG_bitmap_info(handle_, &found.width, &found.height, &found.bits);
    if (address == IMG_BAD_HANDLE || address == IMG_OUT_OF_MEMORY) {
      throw Error(static_cast<std::int32_t>(address));
    }
    found.top = reinterpret_cast<std::uint8_t*>(address);
    return found;
  }

  std::int32_t handle_ = -1;
  std::int32_t result_ = 0;
};

}  // namespace tq

#endif  // TARNQUILL_HPP
