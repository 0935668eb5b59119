// Deflate in a zlib stream (RFC 1950, RFC 1951), over zlib. Built without it, start() answers
// unsupported.
#pragma once

#include <cstdint>
#include <span>

#include "coding/bits.h"
#include "core/memory.h"

namespace tq::deflate {

class Decoder {
 public:
  Decoder() = default;
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  ~Decoder();

  // May be called again. out_of_memory.
  Status start(coding::PieceSource data);

  // How many bytes there were; fewer at the end of the data, or where they make no sense. A wrong
  // checksum behind enough bytes is no matter.
  std::ptrdiff_t read(std::span<std::uint8_t> bytes);
  // out_of_memory when they ended for that.
  Status status() const { return status_; }
  bool is_broken() const { return broken_; }  // they made no sense

 private:
  GlobalBlock stream_;  // zlib's
  coding::PieceSource data_;
  bool ended_ = true, broken_ = false;
  Status status_ = kOk;
};

}  // namespace tq::deflate
