// What a page paints: places, and the list of pictures.
#include <algorithm>
#include <cstring>
#include <type_traits>

#include "formats/pdf/content/content.h"

namespace tq::pdf::content {

// --- Geometry ---

Matrix operator*(const Matrix& first, const Matrix& then) {
  return {
      first.a * then.a + first.b * then.c,          first.a * then.b + first.b * then.d,
      first.c * then.a + first.d * then.c,          first.c * then.b + first.d * then.d,
      first.e * then.a + first.f * then.c + then.e, first.e * then.b + first.f * then.d + then.f};
}

Rectangle intersection(const Rectangle& one, const Rectangle& other) {
  return {std::max(one.left, other.left), std::max(one.bottom, other.bottom),
          std::min(one.right, other.right), std::min(one.top, other.top)};
}

Rectangle transformed(const Rectangle& rectangle, const Matrix& matrix) {
  const double x[] = {matrix.a * rectangle.left, matrix.a * rectangle.right};
  const double y[] = {matrix.c * rectangle.bottom, matrix.c * rectangle.top};
  const double u[] = {matrix.b * rectangle.left, matrix.b * rectangle.right};
  const double v[] = {matrix.d * rectangle.bottom, matrix.d * rectangle.top};
  return {std::min(x[0], x[1]) + std::min(y[0], y[1]) + matrix.e,
          std::min(u[0], u[1]) + std::min(v[0], v[1]) + matrix.f,
          std::max(x[0], x[1]) + std::max(y[0], y[1]) + matrix.e,
          std::max(u[0], u[1]) + std::max(v[0], v[1]) + matrix.f};
}

// --- The list ---

Painting::~Painting() {
  while (kept_ != nullptr) {
    std::uint8_t* next = nullptr;
    std::memcpy(&next, kept_, sizeof next);
    free_block(kept_);
    kept_ = next;
  }
}

Status Painting::add(const Painted& picture) {
  static_assert(std::is_trivially_copyable_v<Painted>);
  const std::size_t needed = (count_ + 1) * sizeof picture;
  if (needed > block_.size()) {
    const std::size_t room = std::max(2 * needed, 8 * sizeof picture);
    TQ_TRY(block_.size() == 0 ? block_.allocate(room) : block_.resize(room));
  }
  std::memcpy(block_.data() + count_ * sizeof picture, &picture, sizeof picture);
  ++count_;
  return kOk;
}

std::uint8_t* Painting::allocate(std::size_t bytes) {
  GlobalBlock block;
  if (block.allocate(sizeof kept_ + bytes).failed()) return nullptr;
  std::memcpy(block.data(), &kept_, sizeof kept_);
  kept_ = block.release();
  return kept_ + sizeof kept_;
}

}  // namespace tq::pdf::content
