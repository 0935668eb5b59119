#include "tests/support/guarded_block.h"

#include <algorithm>
#include <cstdlib>

namespace tq::test {

GuardedBlock::GuardedBlock(std::size_t size) : size_(size) {
  mapped_ = (size + kGuardPage - 1) / kGuardPage * kGuardPage + kGuardPage;
  pages_ = map_guarded(mapped_);
  if (pages_ == nullptr) std::abort();
  data_ = static_cast<std::uint8_t*>(pages_) + (mapped_ - kGuardPage - size);
}

GuardedBlock::GuardedBlock(std::span<const std::uint8_t> content) : GuardedBlock(content.size()) {
  std::copy(content.begin(), content.end(), data_);
}

GuardedBlock::~GuardedBlock() {
  unmap_guarded(pages_, mapped_);
}

}  // namespace tq::test
