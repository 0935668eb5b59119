// BMP files written byte by byte, right or wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "core/dib.h"

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;

struct BmpFields {
  bool file_header = true;
  std::uint32_t header_bytes =
      40;  // 12: an OS/2 core header; 0x77 behind the fields of a longer one
  std::int32_t width = 0, height = 0;
  int bits = 0;
  std::uint32_t compression = 0;
  std::vector<Rgb> palette{};  // three bytes per entry behind a core header
  Bytes pixels{};
  std::uint32_t colours_used = 0;
  std::int32_t x_per_metre = 0, y_per_metre = 0;
  Bytes masks{};                                // behind 40 bytes of header
  std::uint32_t image_bytes = 0;                // biSizeImage
  std::optional<std::uint32_t> pixel_offset{};  // in the file header, if not the true one
};

Bytes bmp_file(const BmpFields& fields);

Bytes bytes_of(std::string_view text);

Bytes joined(const std::vector<Bytes>& parts);

// `count` entries from black to white, each with a reserved byte of 0.
std::vector<Rgb> grey_palette(int count);

}  // namespace tq::test
