// Codings one behind the other, each over what the one before makes of its bytes. Nothing is held but
// a piece of each.
#pragma once

#include <array>

#include "coding/ascii.h"
#include "coding/deflate.h"
#include "coding/packbits.h"
#include "coding/predictor.h"

namespace tq::coding {

enum class FilterKind : std::uint8_t { flate, lzw, lzw_late, ascii85, ascii_hex, run_length };

struct FilterStep {
  FilterKind kind = FilterKind::flate;  // lzw_late: codes grow one string later than early ones
  PredictorForm predictor{};
};

// One of them, and the predictor behind it.
class Filter {
 public:
  Status open(const FilterStep& step);  // out_of_memory, unsupported
  // `source_bytes`: how many bytes the whole chain has been given by then.
  Status start(PieceSource data, const std::int64_t& source_bytes);
  std::span<const std::uint8_t> next_piece();
  Status status() const { return flate_.status(); }
  // Whether the bytes ended because they made no sense.
  bool is_broken() const;

 private:
  // What the predictor reads.
  struct Decoded {
    Filter* filter = nullptr;
    std::span<const std::uint8_t> next_piece() { return filter->decode_piece(); }
  };
  std::span<const std::uint8_t> decode_piece();
  std::ptrdiff_t read(std::span<std::uint8_t> bytes);

  FilterStep step_;
  bool ended_ = true;
  const std::int64_t* source_bytes_ = nullptr;
  std::int64_t made_ = 0;  // bytes
  GlobalBlock room_;       // of a piece
  deflate::Decoder flate_;
  GlobalBlock lzw_;
  packbits::RunDecoder<packbits::Count128::end> runs_;
  AsciiHexDecoder hex_;
  Ascii85Decoder ascii85_;
  Decoded decoded_;
  Predictor predictor_;
};

class FilterChain {
 public:
  static constexpr int kMost = 8;

  // From the outermost on; unsupported: too many, or not in this build; out_of_memory. The chain stays
  // where it is from then on.
  Status open(std::span<const FilterStep> steps);
  // May be called again.
  Status start(PieceSource data);

  std::span<const std::uint8_t> next_piece();

  // out_of_memory when they ended for that.
  Status status() const;
  // Whether the bytes ended because they made no sense.
  bool is_broken() const;

 private:
  // Notices how many bytes there were.
  struct Counted {
    FilterChain* chain = nullptr;
    std::span<const std::uint8_t> next_piece() { return chain->read_source(); }
  };
  std::span<const std::uint8_t> read_source();

  std::array<Filter, kMost> filters_;
  int count_ = 0;
  PieceSource data_;
  Counted counted_;
  std::int64_t source_bytes_ = 0;
};

}  // namespace tq::coding
