// 16- and 32-bit fields of files, byte by byte: no alignment, no host order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tq {

constexpr std::uint16_t load_le16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}
constexpr std::uint32_t load_le32(const std::uint8_t* p) {
  return load_le16(p) | static_cast<std::uint32_t>(load_le16(p + 2)) << 16;
}
constexpr std::uint16_t load_be16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}
constexpr std::uint32_t load_be32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(load_be16(p)) << 16 | load_be16(p + 2);
}
constexpr void store_le16(std::uint8_t* p, std::uint16_t value) {
  p[0] = static_cast<std::uint8_t>(value);
  p[1] = static_cast<std::uint8_t>(value >> 8);
}
constexpr void store_le32(std::uint8_t* p, std::uint32_t value) {
  store_le16(p, static_cast<std::uint16_t>(value));
  store_le16(p + 2, static_cast<std::uint16_t>(value >> 16));
}
constexpr void store_be16(std::uint8_t* p, std::uint16_t value) {
  p[0] = static_cast<std::uint8_t>(value >> 8);
  p[1] = static_cast<std::uint8_t>(value);
}
constexpr void store_be32(std::uint8_t* p, std::uint32_t value) {
  store_be16(p, static_cast<std::uint16_t>(value >> 16));
  store_be16(p + 2, static_cast<std::uint16_t>(value));
}

}  // namespace tq
