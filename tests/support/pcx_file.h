// PCX and DCX files, byte by byte.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "io/endian.h"

namespace tq::test {

struct PcxSize {
  int width = 1, height = 1;
  int bits = 8, planes = 1, bytes_per_line = 1;
};

struct PcxFields {
  PcxSize size{};
  int version = 5;
  int palette_information = 1;
  std::vector<std::array<std::uint8_t, 3>> colours{};  // red, green, blue, in the header
  std::vector<std::uint8_t> data{};                    // run-length coded
  std::vector<std::uint8_t> tail{};
  std::array<int, 2> corner{7, 9};  // need not be 0
  int encoding = 1;
};

inline std::vector<std::uint8_t> pcx_file(const PcxFields& fields) {
  std::vector<std::uint8_t> file(128);
  file[0] = 10;
  file[1] = static_cast<std::uint8_t>(fields.version);
  file[2] = static_cast<std::uint8_t>(fields.encoding);
  file[3] = static_cast<std::uint8_t>(fields.size.bits);
  const int sides[] = {fields.size.width, fields.size.height};
  for (std::size_t i = 0; i < 2; ++i) {
    store_le16(&file[4 + 2 * i], static_cast<std::uint16_t>(fields.corner[i]));
    store_le16(&file[8 + 2 * i], static_cast<std::uint16_t>(fields.corner[i] + sides[i] - 1));
  }
  store_le16(&file[12], 300);
  store_le16(&file[14], 150);
  for (std::size_t i = 0; i < fields.colours.size(); ++i) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
      file[16 + 3 * i + channel] = fields.colours[i][channel];
    }
  }
  file[65] = static_cast<std::uint8_t>(fields.size.planes);
  store_le16(&file[66], static_cast<std::uint16_t>(fields.size.bytes_per_line));
  store_le16(&file[68], static_cast<std::uint16_t>(fields.palette_information));
  file.insert(file.end(), fields.data.begin(), fields.data.end());
  file.insert(file.end(), fields.tail.begin(), fields.tail.end());
  return file;
}

// The marker and 256 entries whose red is i + first, green 255 - i, blue 7.
inline std::vector<std::uint8_t> pcx_palette(int first = 0, std::uint8_t marker = 12) {
  std::vector<std::uint8_t> bytes{marker};
  for (int i = 0; i < 256; ++i) {
    bytes.push_back(static_cast<std::uint8_t>(i + first));
    bytes.push_back(static_cast<std::uint8_t>(255 - i));
    bytes.push_back(7);
  }
  return bytes;
}

// `entries` 32-bit offsets behind the magic, all 0 but those of the pages.
inline std::vector<std::uint8_t> dcx_file(const std::vector<std::vector<std::uint8_t>>& pages,
                                          std::size_t entries = 100) {
  std::vector<std::uint8_t> file(4 + 4 * entries);
  store_le32(&file[0], 0x3ADE68B1);
  for (std::size_t i = 0; i < pages.size(); ++i) {
    store_le32(&file[4 + 4 * i], static_cast<std::uint32_t>(file.size()));
    file.insert(file.end(), pages[i].begin(), pages[i].end());
  }
  return file;
}

}  // namespace tq::test
