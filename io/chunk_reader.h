// Sequential reading: in chunks from files and callers, in place from memory and from pieces.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "core/memory.h"
#include "io/byte_stream.h"
#include "io/piece_source.h"

namespace tq {

// How many bytes to read at a time so that whole rows arrive: as many rows as the read budget
// holds, one if a row is larger.
std::int64_t read_chunk_bytes(std::int64_t file_row_bytes);

// Reads on from the stream's current position. Memory is consumed where it lies and never touched
// beyond what is asked for, so a block that ends with its last pixel is enough.
class ChunkReader {
 public:
  ChunkReader() = default;
  ChunkReader(const ChunkReader&) = delete;
  ChunkReader& operator=(const ChunkReader&) = delete;
  ~ChunkReader() { close(); }

  Status open(StreamHandle stream, std::int64_t chunk_bytes);  // out_of_memory

  // What `pieces` hand out: in place, but for what lies across two of them.
  Status open(PieceSource pieces, std::int64_t chunk_bytes);  // out_of_memory

  // Leaves the memory stream behind the last byte taken, unless a callback has opened another one
  // meanwhile. Other streams stay wherever the last chunk ended.
  void close();

  // The next byte, or -1 at the end.
  int next() {
    if (available_ == 0 && !refill(1)) return -1;
    --available_;
    return *cursor_++;
  }

  // The next `wanted` bytes, at most the chunk size, without taking them; fewer only at the end.
  // Valid until the next call.
  std::span<const std::uint8_t> peek(std::size_t wanted) {
    if (available_ < wanted) refill(wanted);
    return {cursor_, available_ < wanted ? available_ : wanted};
  }
  // The same, and as many more as can be looked at without reading.
  std::span<const std::uint8_t> peek_all(std::size_t wanted) {
    const std::span<const std::uint8_t> wanted_only = peek(wanted);
    return without_end_ ? wanted_only : std::span(cursor_, available_);
  }
  void skip(std::size_t bytes);  // of what was peeked

  // Takes the next bytes.size() bytes, however many; returns how many there were.
  std::size_t read(std::span<std::uint8_t> bytes);

 private:
  bool refill(std::size_t wanted);  // whether there is a byte
  bool refill_from_pieces(std::size_t wanted);

  // In place: the cursor runs over the memory stream itself. Copied: over the chunk. Pieces: over
  // a piece, or over what the chunk holds of two.
  enum class Mode : std::uint8_t { closed, in_place, copied, pieces };

  StreamHandle stream_{-1};
  Mode mode_ = Mode::closed;
  bool without_end_ = false;  // in place: memory that does not say where it ends
  GlobalBlock chunk_;
  PieceSource pieces_;
  std::span<const std::uint8_t> rest_;  // of a piece, behind what the chunk holds
  const std::uint8_t* cursor_ = nullptr;
  std::size_t available_ = 0;      // bytes at the cursor; counted, as their end may have no address
  std::int32_t end_position_ = 0;  // in place: of the memory stream behind those bytes
  std::uint32_t openings_ = 0;     // of the memory stream, when reading began
};

// The next bytes of a reader, at most so many, for decoders that take pieces: a byte at a time from
// memory that does not say where it ends.
class ReaderPieces {
 public:
  explicit ReaderPieces(ChunkReader& input, std::int64_t most = INT64_MAX)
      : input_(&input), left_(most) {}

  std::span<const std::uint8_t> next_piece() {
    input_->skip(taken_);
    const auto there = input_->peek_all(left_ > 0 ? 1 : 0);
    taken_ = static_cast<std::size_t>(std::min<std::int64_t>(std::ssize(there), left_));
    left_ -= static_cast<std::int64_t>(taken_);
    return there.first(taken_);
  }

 private:
  ChunkReader* input_;
  std::int64_t left_;      // bytes not yet in a piece
  std::size_t taken_ = 0;  // bytes of the present piece
};

}  // namespace tq
