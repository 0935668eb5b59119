// Reading at any place: by seeking, or by inflating once more.
#include "formats/dicom/source.h"

#include <array>
#include <utility>

namespace tq::dicom {

Status Source::inflate_from(std::int64_t start) {
  constexpr std::int64_t kPiece = 16384;
  TQ_TRY(buffer_.allocate(kPiece));
  start_ = start;
  return restart();
}

Status Source::open_like(const Source& other) {
  open(other.stream_);
  return other.buffer_.size() == 0 ? kOk : inflate_from(other.start_);
}

Status Source::restart() {
  at_ = next_ = start_;
  has_begun_ = false;
  return inflater_.start(coding::PieceSource::of(*this));
}

// The bytes lack the header of a zlib stream; what is missing behind them is no matter.
std::span<const std::uint8_t> Source::next_piece() {
  static constexpr std::uint8_t kZlibHeader[] = {0x78, 0x01};
  if (!std::exchange(has_begun_, true)) return kZlibHeader;
  if (seek_to(stream_, next_).failed()) return {};
  const std::size_t most = end_is_known(stream_) ? buffer_.size() : 1;
  const auto piece = buffer_.bytes().first(tq::read(stream_, buffer_.bytes().first(most)));
  next_ += std::ssize(piece);
  return piece;
}

std::ptrdiff_t Source::read_at(std::int64_t position, pixels::Row bytes) {
  if (buffer_.size() == 0) {
    return seek_to(stream_, position).failed() ? 0 : read_fully(stream_, bytes);
  }
  if (position < at_ && restart().failed()) return 0;
  std::array<std::uint8_t, 4096> passed;
  while (at_ < position) {
    const auto wanted =
        static_cast<std::ptrdiff_t>(std::min<std::int64_t>(position - at_, std::ssize(passed)));
    const std::ptrdiff_t count = inflater_.read(std::span(passed).first(wanted));
    at_ += count;
    if (count < wanted) return 0;
  }
  const std::ptrdiff_t count = inflater_.read(bytes);
  at_ += count;
  return count;
}

}  // namespace tq::dicom
