// Bytes that some object hands out piece by piece.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
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

// Copies `piece`, which is what is left of the last one, and pieces behind it; keeps what is left then.
// How many bytes there were; fewer at the end.
inline std::ptrdiff_t read_pieces(const PieceSource& source, std::span<const std::uint8_t>& piece,
                                  std::span<std::uint8_t> bytes) {
  std::ptrdiff_t filled = 0;
  while (filled < std::ssize(bytes)) {
    if (piece.empty()) piece = source.next();
    if (piece.empty()) break;
    const std::ptrdiff_t here = std::min(std::ssize(piece), std::ssize(bytes) - filled);
    std::copy_n(piece.begin(), here, bytes.begin() + filled);
    piece = piece.subspan(static_cast<std::size_t>(here));
    filled += here;
  }
  return filled;
}

}  // namespace tq
