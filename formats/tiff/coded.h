// The bytes of strips and tiles, decoded: of every coding but those for facsimiles and for JPEG.
#pragma once

#include "coding/deflate.h"
#include "coding/packbits.h"
#include "core/memory.h"
#include "formats/tiff/page.h"

namespace tq::tiff {

using Bytes = std::span<const std::uint8_t>;
using Row = std::span<std::uint8_t>;

// The coded bytes of a chunk, a piece at a time: in place where the stream is memory.
class CodedPieces {
 public:
  // Turned bytes have their lowest bit first in the stream.
  Status open(const File& file, bool turned);
  void start(const Chunk& chunk);
  std::span<const std::uint8_t> next_piece();

  // Of the data from their start on, without taking it; -1 when there is none.
  int first_byte();
  void turn(bool turned) { turned_ = turned; }

 private:
  static constexpr std::int64_t kPiece = 32768;

  const File* file_ = nullptr;
  bool turned_ = false;
  Chunk left_;
  GlobalBlock buffer_;
};

// A coder that is told where data come from and asked for decoded bytes.
struct Coder {
  // unsupported for data that begin like no data of this coding.
  Status (*start)(void* coder, coding::PieceSource data) = nullptr;
  // How many bytes there were; fewer at the end, or where the data make no sense.
  std::ptrdiff_t (*read)(void* coder, Row bytes) = nullptr;
  void* coder = nullptr;
};

class CodedBytes {
 public:
  // Reads of at most `most_bytes`. `lzw` is the module's coder, for pages that need it.
  Status open(const File& file, const Page& page, std::int64_t most_bytes, const Coder* lzw);
  // Whether there were so many.
  bool skip(std::int64_t bytes);

  CodedPieces& pieces() { return pieces_; }  // for coders of rows
  Status start(const Chunk& chunk);

  // The next so many bytes, valid until the next call; fewer at the end of the data.
  Bytes read(std::ptrdiff_t bytes);

 private:
  std::ptrdiff_t read_into(Row bytes);
  std::ptrdiff_t read_plain(Row bytes);
  std::ptrdiff_t read_thunder_row(Row bytes);

  const Page* page_ = nullptr;
  const Coder* lzw_ = nullptr;
  CodedPieces pieces_;
  Bytes piece_{};  // what is left of it
  packbits::Decoder packbits_;
  deflate::Decoder deflate_;
  RowBuffer<std::uint8_t> bytes_;
};

}  // namespace tq::tiff
