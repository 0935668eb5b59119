// 16- and 32-bit fields of files, byte by byte: no alignment, no host order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "core/numbers.h"

namespace tq {

constexpr std::uint16_t load_le16(const std::uint8_t* p) {
  return word(p[0] | p[1] << 8);
}
constexpr std::uint32_t load_le32(const std::uint8_t* p) {
  return load_le16(p) | std::uint32_t{load_le16(p + 2)} << 16;
}
constexpr std::uint16_t load_be16(const std::uint8_t* p) {
  return word(p[0] << 8 | p[1]);
}
constexpr std::uint32_t load_be32(const std::uint8_t* p) {
  return std::uint32_t{load_be16(p)} << 16 | load_be16(p + 2);
}
constexpr void store_le16(std::uint8_t* p, std::uint16_t value) {
  p[0] = byte(value);
  p[1] = byte(value >> 8);
}
constexpr void store_le32(std::uint8_t* p, std::uint32_t value) {
  store_le16(p, word(value));
  store_le16(p + 2, word(value >> 16));
}
constexpr void store_be16(std::uint8_t* p, std::uint16_t value) {
  p[0] = byte(value >> 8);
  p[1] = byte(value);
}
constexpr void store_be32(std::uint8_t* p, std::uint32_t value) {
  store_be16(p, word(value >> 16));
  store_be16(p + 2, word(value));
}

}  // namespace tq
