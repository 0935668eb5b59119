// Facsimile data inside files, a strip at a time: from a stream to a row sink, from a row supplier
// to a stream.
#pragma once

#include <cstdint>

#include "coding/ccitt/ccitt.h"
#include "formats/codec.h"
#include "io/chunk_reader.h"
#include "io/stream_writer.h"

namespace tq::formats {

inline constexpr std::int32_t kFaxChunk = 64 * 1024;  // bytes that are read and written at a time

// Rows that are coded together; rows before them are none of their business.
struct FaxStrip {
  ccitt::Coding coding{};
  bool lsb_first = false;  // the first bit of a byte is its lowest
  std::int32_t width = 0;
  std::int32_t first_row = 0, rows = 0;
};

enum class FaxRows : std::uint8_t { runs, bits };

// Hands rows to a sink, as run lists if they can be.
class FaxRowDelivery {
 public:
  // Inverted: what is coded as white is black.
  Status open(std::int32_t width, FaxRows rows, bool inverted);
  Status deliver(std::span<const std::int32_t> transitions, const RowSink& sink, std::int32_t y);

 private:
  std::int32_t width_ = 0;
  bool as_runs_ = false, inverted_ = false;
  RowBuffer<std::int32_t> flipped_;
  RowBuffer<std::uint16_t> list_;
  RowBuffer<std::uint8_t> bits_;
};

// Decodes strips of one kind, one after the other.
class FaxDecoder {
 public:
  Status open(const ccitt::Coding& coding, std::int32_t width, FaxRows delivery,
              bool inverted = false);

  // Returns how many rows there were: fewer when the data end, or have an error from which there is
  // no way back. Rows that run lists cannot hold are delivered as bits in any case.
  Status decode(coding::PieceSource data, std::int32_t first_row, std::int32_t rows,
                const RowSink& sink);

 private:
  ccitt::Decoder decoder_;
  FaxRowDelivery rows_;
};

// The same for a strip of at most `limit` bytes from where `input` stands; afterwards it stands
// somewhere among them.
Status decode_fax_strip(ChunkReader& input, std::int64_t limit, const FaxStrip& strip,
                        FaxRows delivery, const RowSink& sink);

// The supplier may give transition lists or bits.
Status encode_fax_strip(StreamWriter& out, const FaxStrip& strip, const RowSupplier& rows);

}  // namespace tq::formats
