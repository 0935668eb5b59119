// The bytes of strips and tiles, decoded: of every coding but those for facsimiles and for JPEG.
#pragma once

#include "coding/deflate.h"
#include "coding/packbits.h"
#include "core/memory.h"
#include "formats/tiff/page.h"
#include "include/tarnquill_plugin.h"

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

class CodedBytes {
 public:
  // Reads of at most `most_bytes`. `lzw` is the module's coder, for pages that need it.
  Status open(const File& file, const Page& page, std::int64_t most_bytes,
              const img_strip_coder* lzw);
  CodedPieces& pieces() { return pieces_; }  // for coders of rows
  Status start(const Chunk& chunk);

  // The next so many bytes, valid until the next call; fewer at the end of the data.
  Bytes read(std::ptrdiff_t bytes);
  // Whether there were so many.
  bool skip(std::int64_t bytes);
  // out_of_memory when they ended for that.
  Status status() const { return deflate_.status(); }

 private:
  std::ptrdiff_t read_into(Row bytes);
  std::ptrdiff_t read_plain(Row bytes);
  std::ptrdiff_t read_thunder_row(Row bytes);

  const Page* page_ = nullptr;
  const img_strip_coder* lzw_ = nullptr;
  CodedPieces pieces_;
  Bytes piece_{};  // what is left of it
  packbits::Decoder packbits_;
  deflate::Decoder deflate_;
  GlobalBlock lzw_state_;
  RowBuffer<std::uint8_t> bytes_;
};

}  // namespace tq::tiff
