// Narrowing by name, where the high bits are meant to go.
#pragma once

#include <concepts>
#include <cstdint>

namespace tq {

constexpr std::uint8_t byte(std::integral auto value) {
  return static_cast<std::uint8_t>(value);
}
constexpr std::uint16_t word(std::integral auto value) {
  return static_cast<std::uint16_t>(value);
}

}  // namespace tq
