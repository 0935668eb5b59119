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

enum class FaxRows : bool { runs, bits };

// At most `limit` bytes from where `input` stands; afterwards it stands somewhere among them. Rows
// that run lists cannot hold are delivered as bits in any case. Returns how many rows there were:
// fewer when the data end, or have an error from which there is no way back.
Status decode_fax_strip(ChunkReader& input, std::int64_t limit, const FaxStrip& strip,
                        FaxRows delivery, const RowSink& sink);

// The supplier may give transition lists or bits.
Status encode_fax_strip(StreamWriter& out, const FaxStrip& strip, const RowSupplier& rows);

}  // namespace tq::formats
