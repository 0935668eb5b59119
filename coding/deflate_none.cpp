// Of a build without zlib.
#include "coding/deflate.h"

namespace tq::deflate {

Status is_available() {
  return StatusCode::unsupported;
}

Decoder::~Decoder() = default;
Status Decoder::start(coding::PieceSource /*data*/) {
  return StatusCode::unsupported;
}
std::ptrdiff_t Decoder::read(std::span<std::uint8_t> /*bytes*/) {
  return 0;
}

Encoder::~Encoder() = default;
Status Encoder::start(int /*level*/) {
  return StatusCode::unsupported;
}
std::ptrdiff_t Encoder::write(std::span<const std::uint8_t>& /*bytes*/, bool /*last*/,
                              std::span<std::uint8_t> /*room*/) {
  return 0;
}

}  // namespace tq::deflate
