// Deflate in a zlib stream (RFC 1950, RFC 1951), over zlib. Built without it, start() answers
// unsupported, in both directions.
#pragma once

#include <cstdint>
#include <span>

#include "coding/bits.h"
#include "core/memory.h"

namespace tq::deflate {

// Whether the library has been built with it.
Status is_available();

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

class Encoder {
 public:
  Encoder() = default;
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;
  ~Encoder();

  // Once. `level` is zlib's, 1 to 9. out_of_memory.
  Status start(int level);

  // Takes bytes from the front of `bytes`, and codes some into `room`; answers how many. To be called
  // until `bytes` is empty, and, for those that are the last, until has_ended().
  std::ptrdiff_t write(std::span<const std::uint8_t>& bytes, bool last,
                       std::span<std::uint8_t> room);
  bool has_ended() const { return ended_; }

 private:
  GlobalBlock stream_;  // zlib's
  bool ended_ = false;
};

}  // namespace tq::deflate
