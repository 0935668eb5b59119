// Rows between the facsimile coder and sinks and suppliers.
#include "formats/fax.h"

#include <algorithm>

#include "core/run_storage.h"

namespace tq::formats {
namespace {

// The strip's bytes, piece by piece.
class StripPieces {
 public:
  StripPieces(ChunkReader& input, std::int64_t limit) : input_(input), left_(limit) {}

  Status open(bool reversed) { return reversed ? reversed_.allocate(kFaxChunk) : kOk; }

  std::span<const std::uint8_t> next_piece() {
    input_.skip(taken_);
    const auto wanted = std::min<std::int64_t>(left_, kFaxChunk);
    const auto piece = input_.peek(static_cast<std::size_t>(wanted));
    taken_ = piece.size();
    left_ = piece.empty() ? 0 : left_ - std::ssize(piece);
    if (reversed_.size() == 0) return piece;
    const auto copy = reversed_.bytes().first(piece.size());
    std::copy(piece.begin(), piece.end(), copy.begin());
    coding::reverse_bits(copy);
    return copy;
  }

 private:
  ChunkReader& input_;
  std::int64_t left_;      // bytes not yet in a piece
  std::size_t taken_ = 0;  // bytes of the present piece
  GlobalBlock reversed_;
};

constexpr int kTerminators = 6;             // of a run list
constexpr std::size_t kMostWords = 0x7FFF;  // the first is the list's length in bytes

// Rows of a supplier on their way to the encoder.
class SuppliedRows {
 public:
  explicit SuppliedRows(const RowSupplier& rows) : rows_(rows) {}

  Status open(std::int32_t width) {
    bits_bytes_ = static_cast<std::size_t>(row_bytes(width, 1));
    return words_.allocate(std::int64_t{width} + kMoreWords);
  }

  // A supplier fills all that it is given, so once it has chosen bits it is asked for no more.
  Status take(std::int32_t y, ccitt::Encoder& encoder) {
    const auto place = gives_bits_ ? room().first(bits_bytes_) : room();
    const Status got = rows_.row(place, y);
    TQ_TRY(got);
    gives_bits_ = got.raw() == 0;
    give(std::min<std::size_t>(got.raw(), place.size()), encoder);
    return kOk;
  }

  // For rows that come by themselves.
  std::span<std::uint8_t> room() const {
    return {reinterpret_cast<std::uint8_t*>(words_.data()), words_.size() * sizeof(std::int32_t)};
  }
  // What is there, of a list so many bytes; 0: bits.
  void give(std::size_t list_bytes, ccitt::Encoder& encoder) const {
    if (list_bytes == 0) {
      encoder.take_bits(room().first(bits_bytes_));
      return;
    }
    const auto words = words_.pixels().first(list_bytes / 4);
    encoder.take_transitions(words.subspan(words.empty() ? 0 : 1));  // the first is none
  }

 private:
  static constexpr int kMoreWords = 16;  // of a list, beside the transitions

  const RowSupplier& rows_;
  std::size_t bits_bytes_ = 0;
  bool gives_bits_ = false;  // the supplier's last row was one
  RowBuffer<std::int32_t> words_;
};

}  // namespace

Status FaxRowDelivery::open(std::int32_t width, FaxRows rows, bool inverted) {
  width_ = width;
  inverted_ = inverted;
  as_runs_ = rows == FaxRows::runs && width <= kWidestRuns;
  if (inverted) TQ_TRY(flipped_.allocate(std::int64_t{width} + 1));
  if (as_runs_) TQ_TRY(list_.allocate(std::int64_t{width} + 1 + kTerminators + 2));
  return bits_.allocate(row_bytes(width, 1));
}

Status FaxRowDelivery::deliver(std::span<const std::int32_t> transitions, const RowSink& sink,
                               std::int32_t y) {
  if (inverted_) {  // the row changes where it begins, or does no more
    if (!transitions.empty() && transitions[0] == 0) {
      transitions = transitions.subspan(1);
    } else {
      flipped_[0] = 0;
      std::copy(transitions.begin(), transitions.end(), flipped_.data() + 1);
      transitions = flipped_.pixels().first(transitions.size() + 1);
    }
  }
  std::size_t words = 1 + transitions.size() + kTerminators;
  if (2 * words == bits_.size()) ++words;  // that size would say bits
  if (!as_runs_ || words > kMostWords) {
    transitions_to_bits(transitions, width_, bits_.pixels());
    return sink.row(bits_.pixels(), y);
  }
  std::uint16_t* at = list_.data();
  *at++ = word(2 * words);
  for (const std::int32_t position : transitions) *at++ = word(position);
  at = std::fill_n(at, 3, word(width_));
  std::fill(at, list_.data() + words, word(width_ + 2));
  return sink.row({reinterpret_cast<const std::uint8_t*>(list_.data()), 2 * words}, y);
}

Status FaxDecoder::open(const ccitt::Coding& coding, std::int32_t width, FaxRows delivery,
                        bool inverted) {
  TQ_TRY(decoder_.open(coding, width));
  return rows_.open(width, delivery, inverted);
}

Status FaxDecoder::decode(coding::PieceSource data, std::int32_t first_row, std::int32_t rows,
                          const RowSink& sink) {
  decoder_.start(data);
  std::int32_t y = 0;
  for (; y < rows && decoder_.next_row(); ++y) {
    if (!decoder_.row_is_good()) sink.damaged(StatusCode::bad_image);
    TQ_TRY(rows_.deliver(decoder_.row(), sink, first_row + y));
  }
  if (y < rows) {
    sink.damaged(decoder_.at_end() ? StatusCode::read_failed : StatusCode::bad_image);
  }
  return Status::from_raw(y);
}

Status decode_fax_strip(ChunkReader& input, std::int64_t limit, const FaxStrip& strip,
                        FaxRows delivery, const RowSink& sink) {
  StripPieces pieces(input, limit);
  TQ_TRY(pieces.open(strip.lsb_first));
  FaxDecoder decoder;
  TQ_TRY(decoder.open(strip.coding, strip.width, delivery));
  return decoder.decode(coding::PieceSource::of(pieces), strip.first_row, strip.rows, sink);
}

Status encode_fax_strip(StreamWriter& out, const FaxStrip& strip, const RowSupplier& supplier) {
  ccitt::Encoder encoder;
  TQ_TRY(encoder.open(strip.coding, strip.width));
  SuppliedRows rows(supplier);
  TQ_TRY(rows.open(strip.width));
  encoder.start();
  const auto put = [&](std::int64_t most_bytes, auto code) {
    const std::span<std::uint8_t> room = out.room(most_bytes);
    TQ_TRY(out.status());
    const std::ptrdiff_t bytes = code(room.data()) - room.data();
    if (strip.lsb_first) coding::reverse_bits(room.first(bytes));
    out.take(bytes);
    return kOk;
  };
  const auto put_row = [&] {
    return put(encoder.most_bytes(), [&](std::uint8_t* at) { return encoder.put_row(at); });
  };
  if (supplier.push != nullptr) {  // all rows of the picture
    const auto take = [&](std::int32_t /*y*/, Status supplied) -> Status {
      rows.give(static_cast<std::size_t>(supplied.raw()), encoder);
      return put_row();
    };
    TQ_TRY(supplier.push(supplier.context, RowSupplier::taker_of(rows.room(), take)));
  }
  for (std::int32_t y = 0; y < strip.rows && supplier.push == nullptr; ++y) {
    TQ_TRY(rows.take(strip.first_row + y, encoder));
    TQ_TRY(put_row());
  }
  return put(ccitt::Encoder::kMostBytesAtEnd, [&](std::uint8_t* at) { return encoder.finish(at); });
}

}  // namespace tq::formats
