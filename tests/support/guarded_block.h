// Bytes that end at an unmapped page: reading or writing one too many stops the test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tq::test {

class GuardedBlock {
 public:
  explicit GuardedBlock(std::size_t size);
  explicit GuardedBlock(std::span<const std::uint8_t> content);
  GuardedBlock(const GuardedBlock&) = delete;
  GuardedBlock& operator=(const GuardedBlock&) = delete;
  ~GuardedBlock();

  std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }
  std::span<std::uint8_t> bytes() const { return {data_, size_}; }

 private:
  void* pages_ = nullptr;
  std::size_t mapped_ = 0;  // bytes, the unmapped page included
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

// The system's part: `bytes`, a multiple of kGuardPage, of pages the last of which must not be
// touched.
inline constexpr std::size_t kGuardPage = 65536;  // pages are no larger anywhere we run
void* map_guarded(std::size_t bytes);
void unmap_guarded(void* pages, std::size_t bytes);

}  // namespace tq::test
