// What stands before the pixels of a BMP file: read into the header block that a decode delivers,
// and written from the one that an encode is given.
#pragma once

#include <cstdint>

#include "formats/codec.h"
#include "io/chunk_reader.h"
#include "io/stream_writer.h"

namespace tq::bmp {

using formats::DecodeRequest;
using formats::EncodeRequest;
using formats::RowSink;

// How a row lies in the file.
enum class Rows : std::uint8_t {
  as_delivered,
  rgb555,
  rgb565,
  rle4,
  rle8,
  length_prefixed,  // each row with its length in front
  jpeg,             // no rows: a JPEG file
};

struct File {
  HeaderBlock image;  // as delivered: full palette, dots per inch, height above 0
  Rows rows = Rows::as_delivered;
  bool top_down = false;       // the first row in the file is the top one
  bool inverted = false;       // 1 bit: the file's 0 is white
  std::int32_t pixels_at = 0;  // position in the stream; -1: one that no stream has
};

// bad_image for a height that has no opposite, unsupported for a depth that has no rows here. Sides
// are as the file has them; bytes that a short file lacks count as 0.
Status read_header(const DecodeRequest& request, File& file);

// The size of a row in the file, in bytes; of those that have one.
std::int64_t stored_row_bytes(const File& file);

// Opens `input` at the pixels. When no stream has their position it stays closed, which reads as
// an empty file.
Status open_pixels(const DecodeRequest& request, const File& file, std::int64_t chunk_bytes,
                   ChunkReader& input);

// Run-length coded rows, always from the bottom up. Rows that no code reaches are not delivered.
Status decode_rle_rows(const DecodeRequest& request, const File& file);

enum class FileHeader : bool { none, written };

// Opens `out` and writes headers and palette, each with a write of its own. All size fields are
// those of the uncompressed image, also in front of run-length coded rows: callers rely on this.
Status write_header(const EncodeRequest& request, FileHeader file_header, std::uint32_t compression,
                    StreamWriter& out);

inline constexpr std::uint32_t kBiRgb = 0;
inline constexpr std::uint32_t kBiRle8 = 1;
inline constexpr std::uint32_t kBiRle4 = 2;
inline constexpr std::uint32_t kBiBitFields = 3;

}  // namespace tq::bmp
