// An encoded image to read: a file, or all of standard input.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// What an image is before it is decoded.
struct ImageFacts {
  int width = 0;
  int height = 0;
  int bits = 0;
  int x_dpi = 0;  // 0: not known
  int y_dpi = 0;
};

// The values of a tag, in this machine's byte order.
struct TagFacts {
  int type = 0;
  int count = 0;
  std::vector<std::uint8_t> bytes;
};

// For messages.
std::string input_label(const std::string& name);

class Input {
 public:
  // Files that cannot be read from any position, and "-", are taken into memory. Throws Failure.
  explicit Input(const std::string& name);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  const std::string& label() const { return label_; }
  bool in_memory() const { return stream_ < 0; }

  // As the library's functions; `page` counts from 0. The first two may give a status code.
  std::int32_t file_type() const;
  std::int32_t pages() const;
  ImageFacts facts(int page) const;  // throws Failure
  // Of a TIFF page; none if the page has no such tag. Throws Failure.
  std::optional<TagFacts> tag(int page, int number) const;
  std::int32_t orientation(int page) const;  // 1 to 8, as TIFF counts; 1 where nothing tells
  // The image handle. Inks arrive as colours if they shall. Throws Failure.
  std::int32_t decode(int page, bool without_inks = true) const;
  // To a stream, as IMG_copy_page_fd; what is in memory is always coded again. The library's status.
  std::int32_t copy_page(int page, std::int32_t stream, std::int32_t code) const;

 private:
  std::string label_;
  std::int32_t stream_ = -1;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace tool
