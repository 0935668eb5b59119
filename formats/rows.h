// Rows that a file holds line behind line in one layout: from lines of bytes to a row sink, from a
// row supplier to lines.
#pragma once

#include <algorithm>

#include "formats/codec.h"
#include "io/stream_writer.h"
#include "pixels/rows.h"

namespace tq::formats {

// Dots per inch of a number with 16 bits behind the point; 0 for what nothing can have.
constexpr std::int32_t dots_of_fixed(std::uint32_t value) {
  const std::int64_t dots = (std::int64_t{value} + 0x8000) >> 16;
  return dots <= 65535 ? static_cast<std::int32_t>(dots) : 0;
}

struct StoredRows {
  const pixels::RowLayout* layout = nullptr;
  std::int64_t line_bytes = 0;  // with what the file pads lines by
  bool bottom_up = false;

  // The row that a line is, of those from the top.
  std::int32_t row_of(std::int32_t line, const BitmapInfoHeader& header) const {
    return bottom_up ? header.biHeight - 1 - line : line;
  }
};

// `read(line)` fills a line and returns how many bytes there were; fewer only at the end. A file
// that is cut off keeps the rows it has.
template <class Read>
Status deliver_rows(const StoredRows& stored, const BitmapInfoHeader& header, const RowSink& sink,
                    Read&& read) {
  RowBuffer<std::uint8_t> line, row;
  TQ_TRY(line.allocate(stored.line_bytes));
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int32_t i = 0; i < header.biHeight; ++i) {
    const std::ptrdiff_t there = read(line.pixels());
    if (there == 0) break;
    if (there < std::ssize(line.pixels())) sink.damaged(StatusCode::read_failed);
    std::fill(line.pixels().begin() + there, line.pixels().end(), std::uint8_t{0});
    unpack(*stored.layout, line.pixels(), header.biWidth, row.pixels());
    TQ_TRY(sink.row(row.pixels(), stored.row_of(i, header)));
  }
  return kOk;
}

// What formats of indices and colours refuse: 16 bits, and cyan, magenta, yellow, black, are a wrong
// depth; sides that their field cannot hold are not supported.
inline Status check_plain(const EncodeRequest& request, std::int32_t largest_side) {
  const BitmapInfoHeader& header = request.image->header;
  const int bits = header.biBitCount;
  const bool plain = bits == 1 || bits == 4 || bits == 8 || bits == 24 || bits == 32;
  if (!plain || request.cmyk) return StatusCode::wrong_depth;
  const bool fits = header.biWidth <= largest_side && header.biHeight <= largest_side;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

// `write(line)` takes a line and returns the status of what it is written to.
template <class Write>
Status supply_rows(const StoredRows& stored, const EncodeRequest& request, Write&& write) {
  const BitmapInfoHeader& header = request.image->header;
  RowBuffer<std::uint8_t> line, row;
  TQ_TRY(line.allocate(stored.line_bytes));
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int32_t i = 0; i < header.biHeight; ++i) {
    TQ_TRY(request.rows.row(row.pixels(), stored.row_of(i, header)));
    pack(*stored.layout, row.pixels(), header.biWidth, line.pixels());
    TQ_TRY(write(line.pixels()));
  }
  return kOk;
}

inline Status write_rows(const StoredRows& stored, const EncodeRequest& request,
                         StreamWriter& out) {
  return supply_rows(stored, request, [&](pixels::Bytes line) {
    out.put(line);
    return out.status();
  });
}

}  // namespace tq::formats
