// Sequential reading in chunks, in place, or in pieces.
#include "io/chunk_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/context.h"

namespace tq {

std::int64_t read_chunk_bytes(std::int64_t file_row_bytes) {
  const std::int64_t budget = std::max<std::int64_t>(context().settings.read_budget, 1);
  const std::int64_t row = std::max<std::int64_t>(file_row_bytes, 1);
  return std::max<std::int64_t>(budget / row, 1) * row;
}

Status ChunkReader::open(StreamHandle stream, std::int64_t chunk_bytes) {
  close();
  const std::span<const std::uint8_t> rest = memory_rest(stream);
  if (rest.empty()) {
    TQ_TRY(chunk_.allocate(std::max<std::int64_t>(chunk_bytes, 1)));
  }
  stream_ = stream;
  openings_ = memory_openings();
  without_end_ = !rest.empty() && !end_is_known(stream);
  if (!rest.empty()) {
    mode_ = Mode::in_place;
    cursor_ = rest.data();
    available_ = rest.size();
    end_position_ = memory_position() + static_cast<std::int32_t>(rest.size());
  } else {
    mode_ = Mode::copied;
    cursor_ = chunk_.data();
  }
  return kOk;
}

Status ChunkReader::open(PieceSource pieces, std::int64_t chunk_bytes) {
  close();
  if (std::cmp_not_equal(chunk_.size(), chunk_bytes)) TQ_TRY(chunk_.allocate(chunk_bytes));
  mode_ = Mode::pieces;
  without_end_ = false;
  pieces_ = pieces;
  rest_ = {};
  return kOk;
}

void ChunkReader::close() {
  const auto untaken = static_cast<std::int32_t>(available_);
  if (openings_ == memory_openings()) {
    if (mode_ == Mode::in_place) set_memory_position(end_position_ - untaken);
    if (mode_ == Mode::copied && untaken != 0 && reads_memory(stream_)) {
      set_memory_position(memory_position() - untaken);
    }
  }
  mode_ = Mode::closed;
  available_ = 0;
}

// A piece goes when the next is asked for: what is left of it moves to the chunk before.
bool ChunkReader::refill_from_pieces(std::size_t wanted) {
  wanted = std::min(wanted, chunk_.size());
  if (available_ >= wanted) return true;
  if (available_ == 0) {
    if (rest_.empty()) rest_ = pieces_.next();
    if (rest_.empty() || rest_.size() >= wanted) {
      cursor_ = rest_.data();
      available_ = std::exchange(rest_, {}).size();
      return available_ != 0;
    }
  } else {
    std::memmove(chunk_.data(), cursor_, available_);
  }
  cursor_ = chunk_.data();
  while (available_ < wanted) {
    if (rest_.empty()) rest_ = pieces_.next();
    if (rest_.empty()) break;
    const std::size_t here = std::min(wanted - available_, rest_.size());
    std::memcpy(chunk_.data() + available_, rest_.data(), here);
    rest_ = rest_.subspan(here);
    available_ += here;
  }
  return true;
}

bool ChunkReader::refill(std::size_t wanted) {
  if (mode_ == Mode::pieces) return refill_from_pieces(wanted);
  if (mode_ != Mode::copied) return available_ != 0;
  wanted = std::min(wanted, chunk_.size());
  // Memory that cannot be taken in place (scrambled, or moved by a caller's seek function) may end
  // right behind what is wanted.
  const std::size_t limit = reads_memory(stream_) ? wanted : chunk_.size();
  if (available_ != 0) std::memmove(chunk_.data(), cursor_, available_);
  cursor_ = chunk_.data();
  while (available_ < wanted) {
    const std::int32_t got =
        tq::read(stream_, chunk_.bytes().subspan(available_, limit - available_));
    if (got == 0) break;
    available_ += got;
  }
  return available_ != 0;
}

void ChunkReader::skip(std::size_t bytes) {
  const std::size_t taken = std::min(bytes, available_);
  cursor_ += taken;
  available_ -= taken;
}

std::size_t ChunkReader::read(std::span<std::uint8_t> bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const std::size_t missing = bytes.size() - done;
    if (available_ == 0 && mode_ == Mode::copied && missing >= chunk_.size()) {
      // What would fill the chunk goes straight to its place.
      const std::int32_t got = tq::read(stream_, bytes.subspan(done));
      if (got == 0) break;
      done += got;
      continue;
    }
    if (available_ == 0 && !refill(missing)) break;
    const std::size_t piece = std::min(missing, available_);
    std::memcpy(bytes.data() + done, cursor_, piece);
    skip(piece);
    done += piece;
  }
  return done;
}

}  // namespace tq
