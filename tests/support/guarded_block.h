// Bytes at an odd address that end where their allocation ends: the address sanitizer stops whoever
// reads or writes one too many.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace tq::test {

class GuardedBlock {
 public:
  explicit GuardedBlock(std::size_t size) : size_(size), block_(new std::uint8_t[kFront + size]) {}
  explicit GuardedBlock(std::span<const std::uint8_t> content) : GuardedBlock(content.size()) {
    std::ranges::copy(content, data());
  }

  std::uint8_t* data() const { return block_.get() + kFront; }
  std::size_t size() const { return size_; }
  std::span<std::uint8_t> bytes() const { return {data(), size_}; }

 private:
  static constexpr std::size_t kFront = 5;
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> block_;
};

}  // namespace tq::test
