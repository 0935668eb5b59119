// zlib, with memory of the library's own, and pieces of data.
#include "coding/deflate.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <new>

namespace tq::deflate {
namespace {

void* allocate(void* /*context*/, unsigned items, unsigned bytes) {
  return alloc_block(std::uint64_t{items} * bytes);
}
void release(void* /*context*/, void* block) {
  free_block(block);
}

z_stream& zlib(const GlobalBlock& block) {
  return *reinterpret_cast<z_stream*>(block.data());
}

// With its functions of memory set.
z_stream* new_stream(const GlobalBlock& block) {
  z_stream* const stream = new (block.data()) z_stream{};
  stream->zalloc = allocate;
  stream->zfree = release;
  return stream;
}

}  // namespace

Status is_available() {
  return kOk;
}

Decoder::~Decoder() {
  if (stream_.size() != 0) inflateEnd(&zlib(stream_));
}

Status Decoder::start(coding::PieceSource data) {
  data_ = data;
  ended_ = broken_ = false;
  if (stream_.size() != 0) {
    z_stream& stream = zlib(stream_);
    stream.avail_in = 0;
    return inflateReset(&stream) == Z_OK ? StatusCode::ok : StatusCode::unsupported;
  }
  GlobalBlock block;
  TQ_TRY(block.allocate(sizeof(z_stream)));
  if (inflateInit(new_stream(block)) != Z_OK) return StatusCode::out_of_memory;
  // zlib's state knows its stream by the address, which stays.
  stream_ = std::move(block);
  return kOk;
}

std::ptrdiff_t Decoder::read(std::span<std::uint8_t> bytes) {
  if (ended_) return 0;
  z_stream& stream = zlib(stream_);
  std::ptrdiff_t filled = 0;
  while (filled < std::ssize(bytes) && !ended_) {
    if (stream.avail_in == 0) {
      const std::span<const std::uint8_t> piece = data_.next();
      stream.next_in = const_cast<std::uint8_t*>(piece.data());
      stream.avail_in = static_cast<unsigned>(piece.size());
    }
    const std::ptrdiff_t room = std::min<std::ptrdiff_t>(std::ssize(bytes) - filled, INT_MAX);
    stream.next_out = bytes.data() + filled;
    stream.avail_out = static_cast<unsigned>(room);
    const bool had_input = stream.avail_in != 0;
    const int result = inflate(&stream, Z_NO_FLUSH);
    filled += room - stream.avail_out;
    if (result == Z_MEM_ERROR) status_ = StatusCode::out_of_memory;
    broken_ = result != Z_OK && result != Z_BUF_ERROR && result != Z_STREAM_END;
    ended_ = result != Z_OK && (result != Z_BUF_ERROR || !had_input);
  }
  return filled;
}

Encoder::~Encoder() {
  if (stream_.size() != 0) deflateEnd(&zlib(stream_));
}

Status Encoder::start(int level) {
  GlobalBlock block;
  TQ_TRY(block.allocate(sizeof(z_stream)));
  if (deflateInit(new_stream(block), level) != Z_OK) return StatusCode::out_of_memory;
  stream_ = std::move(block);
  return kOk;
}

std::ptrdiff_t Encoder::write(std::span<const std::uint8_t>& bytes, bool last,
                              std::span<std::uint8_t> room) {
  z_stream& stream = zlib(stream_);
  stream.next_in = const_cast<std::uint8_t*>(bytes.data());
  stream.avail_in = static_cast<unsigned>(bytes.size());
  stream.next_out = room.data();
  stream.avail_out = static_cast<unsigned>(room.size());
  ended_ = ::deflate(&stream, last ? Z_FINISH : Z_NO_FLUSH) == Z_STREAM_END;
  bytes = bytes.last(stream.avail_in);
  return std::ssize(room) - stream.avail_out;
}

}  // namespace tq::deflate
