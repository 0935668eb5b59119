// The decoders of bytes behind one face.
#include "coding/filters.h"

#include <algorithm>
#include <memory>

#include "coding/lzw.h"

namespace tq::coding {
namespace {

constexpr int kPiece = 32 * 1024;

using EarlyLzw = lzw::TiffDecoder;
using LateLzw = lzw::Decoder<BitOrder::msb_first, false>;
static_assert(sizeof(EarlyLzw) == sizeof(LateLzw));

template <class Lzw>
Lzw& lzw_in(const GlobalBlock& block) {
  return *reinterpret_cast<Lzw*>(block.data());
}

// No honest data become more by one coding; those that do could take forever, one behind the other.
constexpr std::int64_t most_bytes(std::int64_t source_bytes) {
  constexpr std::int64_t kGrowth = 4096, kAlways = 64 * 1024 * 1024;
  return kAlways + kGrowth * source_bytes;
}

}  // namespace

Status Filter::open(const FilterStep& step) {
  step_ = step;
  TQ_TRY(room_.allocate(kPiece));
  if (step.kind == FilterKind::lzw || step.kind == FilterKind::lzw_late) {
    TQ_TRY(lzw_.allocate(sizeof(EarlyLzw)));
  }
  return step.predictor.predictor > 1 ? predictor_.open(step.predictor) : kOk;
}

Status Filter::start(PieceSource data, const std::int64_t& source_bytes) {
  source_bytes_ = &source_bytes;
  made_ = 0;
  ended_ = false;
  decoded_.filter = this;
  predictor_.start(PieceSource::of(decoded_));
  constexpr int kByteBits = 8;
  switch (step_.kind) {
    case FilterKind::flate:
      return flate_.start(data);
    case FilterKind::lzw:
      std::construct_at(&lzw_in<EarlyLzw>(lzw_))->start(kByteBits, data);
      return kOk;
    case FilterKind::lzw_late:
      std::construct_at(&lzw_in<LateLzw>(lzw_))->start(kByteBits, data);
      return kOk;
    case FilterKind::ascii85:
      ascii85_.start(data);
      return kOk;
    case FilterKind::ascii_hex:
      hex_.start(data);
      return kOk;
    case FilterKind::run_length:
      runs_.start(data);
      return kOk;
  }
  return StatusCode::unsupported;
}

std::ptrdiff_t Filter::read(std::span<std::uint8_t> bytes) {
  switch (step_.kind) {
    case FilterKind::flate:
      return flate_.read(bytes);
    case FilterKind::lzw:
      return lzw_in<EarlyLzw>(lzw_).read(bytes);
    case FilterKind::lzw_late:
      return lzw_in<LateLzw>(lzw_).read(bytes);
    case FilterKind::ascii85:
      return ascii85_.read(bytes);
    case FilterKind::ascii_hex:
      return hex_.read(bytes);
    case FilterKind::run_length:
      return runs_.read(bytes);
  }
  return 0;
}

std::span<const std::uint8_t> Filter::decode_piece() {
  if (ended_) return {};
  const std::span<std::uint8_t> room = room_.bytes();
  const std::ptrdiff_t there = read(room);
  made_ += there;
  ended_ = there < std::ssize(room) || made_ > most_bytes(*source_bytes_);
  return room.first(static_cast<std::size_t>(there));
}

std::span<const std::uint8_t> Filter::next_piece() {
  return step_.predictor.predictor > 1 ? predictor_.next_piece() : decode_piece();
}

bool Filter::is_broken() const {
  return flate_.is_broken() || predictor_.is_broken();
}

Status FilterChain::open(std::span<const FilterStep> steps) {
  count_ = 0;
  if (steps.size() > kMost) return StatusCode::unsupported;
  for (const FilterStep& step : steps) TQ_TRY(filters_[count_++].open(step));
  return kOk;
}

Status FilterChain::start(PieceSource data) {
  data_ = data;
  source_bytes_ = 0;
  counted_.chain = this;
  PieceSource before = PieceSource::of(counted_);
  for (int i = 0; i < count_; ++i) {
    TQ_TRY(filters_[i].start(before, source_bytes_));
    before = PieceSource::of(filters_[i]);
  }
  return kOk;
}

std::span<const std::uint8_t> FilterChain::read_source() {
  const std::span<const std::uint8_t> piece = data_.next();
  source_bytes_ += std::ssize(piece);
  return piece;
}

std::span<const std::uint8_t> FilterChain::next_piece() {
  return count_ > 0 ? filters_[count_ - 1].next_piece() : read_source();
}

Status FilterChain::status() const {
  for (int i = 0; i < count_; ++i) TQ_TRY(filters_[i].status());
  return kOk;
}

bool FilterChain::is_broken() const {
  return std::any_of(filters_.begin(), filters_.begin() + count_,
                     [](const Filter& filter) { return filter.is_broken(); });
}

}  // namespace tq::coding
