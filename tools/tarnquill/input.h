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
  std::uint32_t compression = 0;  // 200: 32 bits of colour
  bool is_grey = false;           // of palettes
  int x_dpi = 0;                  // 0: not known
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
std::string page_label(const std::string& label, int page);  // "scan.tif, page 3" for page 2

class Input {
 public:
  // Files that cannot be read from any position, and "-", are taken into memory. Throws Failure.
  explicit Input(const std::string& name);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  const std::string& label() const { return label_; }
  bool in_memory() const { return stream_ < 0; }

  // Pages count from 0. All throw Failure.
  std::int32_t file_type() const;
  // Those that the library counts; else as many as can be asked for, one after the other.
  int pages() const;
  ImageFacts facts(int page) const;
  // Of a TIFF page; none if the page has no such tag.
  std::optional<TagFacts> tag(int page, int number) const;
  // "Group 4"; empty where the format does not tell.
  std::string coding(int page) const;
  std::uint64_t bytes() const;
  std::int32_t orientation(int page) const;  // 1 to 8, as TIFF counts; 1 where nothing tells
  // The image handle. Inks arrive as colours if they shall.
  std::int32_t decode(int page, bool without_inks = true) const;
  // To a stream, as IMG_copy_page_fd; what is in memory is always coded again. The library's status.
  std::int32_t copy_page(int page, std::int32_t stream, std::int32_t code) const;
  // The same without an image, as IMG_convert_page_fd; IMG_UNSUPPORTED for what is in memory.
  std::int32_t pass_page(int page, std::int32_t stream, std::int32_t code) const;

 private:
  void rewind() const;
  std::int32_t found_type() const;                         // a status for none
  std::int32_t find_header(int page, void* header) const;  // a status, or IMG_STOP_AFTER_HEADER
  std::int32_t checked(std::int32_t result, int page) const;
  std::string tiff_coding(int page) const;  // empty: there is none
  std::string obstacle(int page) const;
  std::string unknown_frame() const;  // empty: it is known, or there is none
  std::string first_bytes(std::size_t count) const;

  std::string label_, name_;
  std::int32_t stream_ = -1;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace tool
