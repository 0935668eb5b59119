// Facsimile coding of 1-bit rows (ITU-T T.4 and T.6), both ways over lists of transitions. White is
// what the standards call it, and bit 1 in rows of bits.
#pragma once

#include <cstdint>
#include <span>

#include "core/memory.h"
#include "formats/codec.h"
#include "io/chunk_reader.h"

namespace tq::formats {

inline constexpr std::int64_t kCcittChunk = 64 * 1024;  // bytes that a decoder reads at a time

enum class CcittScheme : std::uint8_t {
  huffman,    // runs only, every row from a byte of its own, no end-of-line codes
  group3_1d,  // runs only
  group3_2d,  // a tag bit before every row says whether it refers to the one before
  group4,     // every row refers to the one before
};

struct CcittCoding {
  CcittScheme scheme = CcittScheme::group4;
  bool lsb_first = false;     // the first bit of a byte is its lowest
  bool byte_aligned = false;  // rows start, or with Group 3 end-of-line codes end, at a byte
  bool end_of_line = true;    // Group 3: a code before every row; the decoder finds out by itself
                              // unless rows are byte-aligned
  // The encoder alone.
  bool end_of_block = false;  // the codes that end a page
  std::int32_t k = 4;         // group3_2d: every k-th row stands for itself
};

enum class CcittRows : bool { runs, bits };

// Rows that are decoded or encoded together; rows before them are none of their business.
struct CcittStrip {
  std::int32_t first_row = 0;
  std::int32_t rows = 0;
};

class CcittDecoder {
 public:
  // Rows that run lists cannot hold are delivered as bits in any case.
  Status open(const CcittCoding& coding, std::int32_t width, CcittRows delivery);

  // At most `limit` bytes from where `input` stands; afterwards it stands somewhere among them.
  // Returns how many rows there were: fewer when the data end, or have an error from which there is
  // no way back. A Group 3 row with an error is a copy of the one before it.
  Status decode(ChunkReader& input, std::int64_t limit, CcittStrip strip, const RowSink& sink);

 private:
  void accept(int count, bool ascends);
  Status deliver(const RowSink& sink, std::int32_t y);
  template <class Source>
  Status decode_group4(Source& source, CcittStrip strip, const RowSink& sink);
  template <class Source>
  Status decode_group3(Source& source, CcittStrip strip, const RowSink& sink);

  CcittCoding coding_;
  std::int32_t width_ = 0;
  bool as_runs_ = false;
  RowBuffer<std::int32_t> row_, reference_;  // transitions, then the width a few times
  std::int32_t count_ = 0;                   // of transitions in `reference_`, the row before
  bool ascends_ = true;                      // no two of them are at one place
  RowBuffer<std::uint16_t> list_;
  RowBuffer<std::uint8_t> bits_;
};

class CcittEncoder {
 public:
  Status open(const CcittCoding& coding, std::int32_t width);

  // Returns how many bytes were written.
  Status encode(StreamHandle stream, const RowSupplier& rows, CcittStrip strip);

 private:
  Status take_row(const RowSupplier& rows, std::int32_t y, std::int32_t& count);
  Status make_room(StreamHandle stream, std::int64_t bytes);
  Status flush(StreamHandle stream);

  CcittCoding coding_;
  std::int32_t width_ = 0;
  bool gets_bits_ = false;                   // the supplier's last row was one
  RowBuffer<std::int32_t> row_, reference_;  // a transition list as the supplier fills it
  RowBuffer<std::int32_t> from_bits_;
  GlobalBlock out_;
  std::size_t used_ = 0;      // complete bytes in `out_`
  std::int64_t written_ = 0;  // bytes before them
};

}  // namespace tq::formats
