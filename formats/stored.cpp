// Data from file to file.
#include "formats/stored.h"

#include <algorithm>

#include "coding/bits.h"
#include "core/context.h"
#include "io/endian.h"

namespace tq::formats {
namespace {

constexpr std::int64_t kPieceBytes = 64 * 1024;

class Copy {
 public:
  Copy(const StoredPicture& stored, StreamWriter& out) : stored_(stored), out_(out) {}

  Status open() { return piece_.allocate(kPieceBytes); }

  // So many bytes from where the stream stands.
  Status copy(std::int64_t bytes) {
    while (bytes > 0) {
      const auto wanted = static_cast<std::size_t>(std::min(bytes, kPieceBytes - in_piece_));
      const std::span<std::uint8_t> piece = piece_.bytes().first(wanted);
      if (read_fully(stored_.stream, piece) < std::ssize(piece)) return StatusCode::read_failed;
      if (stored_.low_bit_first) coding::reverse_bits(piece);
      out_.put(piece);
      TQ_TRY(out_.status());
      bytes -= std::ssize(piece);
      in_piece_ = (in_piece_ + std::ssize(piece)) % kPieceBytes;
      if (in_piece_ == 0) TQ_TRY(report());
    }
    return kOk;
  }
  Status finish() { return in_piece_ > 0 ? report() : kOk; }

 private:
  Status report() const {
    const std::int64_t pieces = (stored_.bytes + kPieceBytes - 1) / kPieceBytes;
    return report_progress(static_cast<std::int32_t>(pieces));
  }

  const StoredPicture& stored_;
  StreamWriter& out_;
  GlobalBlock piece_;
  std::int64_t in_piece_ = 0;
};

}  // namespace

Status copy_stored(const StoredPicture& stored, StreamWriter& out) {
  constexpr std::int64_t kAroundData = 12;  // the length and the name of a chunk, its check sum
  Copy copy(stored, out);
  TQ_TRY(copy.open());
  std::int64_t at = stored.offset;
  for (std::int64_t left = stored.bytes; left > 0;) {
    TQ_TRY(seek_to(stored.stream, at));
    std::int64_t bytes = left;
    if (stored.in_chunks) {
      std::array<std::uint8_t, 8> start;
      if (read_fully(stored.stream, start) < std::ssize(start)) return StatusCode::read_failed;
      bytes = std::min<std::int64_t>(load_be32(start.data()), left);
      at += bytes + kAroundData;
    }
    TQ_TRY(copy.copy(bytes));
    left -= bytes;
  }
  return copy.finish();
}

}  // namespace tq::formats
