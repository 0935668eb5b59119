// JPEG in TIFF: a stream for each strip or tile (Technical Note 2), and the older ways (TIFF 6.0,
// section 22, as it was understood).
#pragma once

#include "formats/jpeg/jpeg.h"
#include "formats/tiff/coded.h"

namespace tq::tiff {

class JpegStrips {
 public:
  // Finds out where the page has its streams and tables. Where one stream is the whole picture the
  // page becomes one of one strip.
  Status open(const File& file, Page& page, const Options& options);

  // `rows` rows of a strip or tile, as the decoder of JPEG makes them, as far as they can be read; a
  // frame may have more rows or less. The sink's header is not asked for.
  Status decode(std::uint64_t index, std::int64_t rows, const formats::RowSink& sink);

  // For the decoder: the bytes of the strips at work.
  std::span<const std::uint8_t> next_piece();

 private:
  // What a chunk holds, or what holds the picture.
  enum class Kind : std::uint8_t { streams, all_strips, one_stream, bare_data, nothing };

  Status find_old_layout();
  void become_one(Kind kind);
  Status build_header();
  Status start(const Chunk& chunk);

  const File* file_ = nullptr;
  Page* page_ = nullptr;
  Options options_;
  Kind kind_ = Kind::streams;
  jpeg::Components components_ = jpeg::Components::grey;
  Chunk stream_;                                    // of the picture
  std::uint64_t next_strip_ = 0, strip_count_ = 0;  // that follow the one at work
  CodedPieces pieces_;
  ChunkReader input_;
  jpeg::PartDecoder decoder_;
};

}  // namespace tq::tiff
