// FNV-1a, 64 bits.
#pragma once

#include <cstdint>
#include <span>

namespace tq::test {

class Digest {
 public:
  void add(std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes) value_ = (value_ ^ byte) * 0x100000001B3;
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325;
};

}  // namespace tq::test
