// Bytes that some object hands out piece by piece.
#pragma once

#include <cstdint>
#include <span>

namespace tq {

// Where coded bytes come from: next_piece() of some object, which outlives its readers. An empty
// piece is the end; any other stays until the next is asked for.
class PieceSource {
 public:
  PieceSource() = default;
  template <class Owner>
  static PieceSource of(Owner& owner) {
    PieceSource source;
    source.owner_ = &owner;
    source.next_ = [](void* context) { return static_cast<Owner*>(context)->next_piece(); };
    return source;
  }
  std::span<const std::uint8_t> next() const {
    return next_ == nullptr ? std::span<const std::uint8_t>() : next_(owner_);
  }

 private:
  void* owner_ = nullptr;
  std::span<const std::uint8_t> (*next_)(void* owner) = nullptr;
};

}  // namespace tq
