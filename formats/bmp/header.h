// What stands before the pixels of a BMP file: read into the header block that a decode delivers,
// and written from the one that an encode is given.
#pragma once

#include <cstdint>
#include <limits>

#include "formats/codec.h"
#include "io/chunk_reader.h"
#include "io/stream_writer.h"
#include "pixels/rows.h"

namespace tq::bmp {

using formats::DecodeRequest;
using formats::EncodeRequest;
using formats::RowSink;

inline constexpr std::uint32_t kBiRgb = 0;
inline constexpr std::uint32_t kBiRle8 = 1;
inline constexpr std::uint32_t kBiRle4 = 2;
inline constexpr std::uint32_t kBiBitFields = 3;
inline constexpr std::uint32_t kLengthPrefixed = 99;
inline constexpr std::uint32_t kJpegData = 0x4745504A;  // "JPEG"

inline constexpr int kFileHeaderBytes = 14;
inline constexpr std::uint32_t kInfoHeaderBytes = 40;
inline constexpr std::uint32_t kCoreHeaderBytes = 12;

// A file that is cut off gives all its rows, but one of a few bytes may claim a thousand million of
// them: what it lacks beyond this is not delivered.
inline constexpr std::uint64_t kMostMissing = std::uint64_t{64} << 20;  // bytes
inline constexpr std::size_t kRowCost = 64;                             // what a short row counts

// How rows lie in the file.
enum class Rows : std::uint8_t {
  plain,
  rle4,
  rle8,
  rle24,
  fax,              // ITU-T T.4, one-dimensional
  length_prefixed,  // each row with its length in front
  jpeg,             // no rows: a JPEG file
  png,
};

struct File {
  HeaderBlock image;  // as delivered: full palette, dots per inch, height above 0
  Rows rows = Rows::plain;
  std::int64_t line_bytes = 0;  // of a plain row
  // How plain rows become those that are delivered; neither: they are.
  const pixels::RowLayout* layout = nullptr;
  bool masked = false;
  pixels::PixelMasks masks;
  bool top_down = false;         // the first row in the file is the top one
  bool inverted = false;         // 1 bit: the file's 0 is white
  bool blank_lines = false;      // run lengths: what no code writes is 0, not as in the line before
  std::int32_t pixels_at = 0;    // position in the stream; -1: one that no stream has
  std::int64_t end = INT32_MAX;  // of what belongs to the bitmap
  Resolution resolution;         // where it is said per metre
};

// bad_image for a height that has no opposite, unsupported for a depth that has no rows here. Sides
// are as the file has them; bytes that a short file lacks count as 0.
Status read_header(const DecodeRequest& request, File& file);

// The same, as other programs understand headers: their own sizes, masks, alpha, colours that are not
// black and white. bad_image for a header of no kind, unsupported for a compression of none.
Status read_shown_header(const DecodeRequest& request, File& file);

// The headers as the file has them.
struct StoredHeader {
  StreamHandle stream{};
  std::int32_t start = 0;  // where they begin in the stream
  bool has_file_header = false;
  std::uint32_t pixel_offset = 0;  // of the file header
  std::uint32_t header_bytes = 0;
  BitmapInfoHeader info{};

  bool is_core() const { return header_bytes == kCoreHeaderBytes; }
  std::int64_t info_at() const {
    return std::int64_t{start} + (has_file_header ? kFileHeaderBytes : 0);
  }
};

// Of a header below 40 bytes that is no core header: all 40, or those that it has; the others are 0.
enum class Fields : std::uint8_t { all, of_header };
StoredHeader read_stored_header(const DecodeRequest& request, Fields fields);

Resolution exact_resolution(const StoredHeader& stored);

// What is delivered, with pixels of so many bits.
BitmapInfoHeader delivered_header(const StoredHeader& stored, int bits);

void read_or_zero(StreamHandle stream, std::span<std::uint8_t> bytes);

// The position, or -1 if no stream has it.
constexpr std::int32_t stream_position(std::int64_t position) {
  constexpr std::int64_t kLast = std::numeric_limits<std::int32_t>::max();
  return position < 0 || position > kLast ? -1 : static_cast<std::int32_t>(position);
}

// Opens `input` at the pixels. When no stream has their position it stays closed, which reads as
// an empty file.
Status open_pixels(const DecodeRequest& request, const File& file, std::int64_t chunk_bytes,
                   ChunkReader& input);

// Run-length coded rows. Those that no code reaches are not delivered, unless lines begin blank and the
// data end as they should.
Status decode_rle_rows(const DecodeRequest& request, const File& file);

enum class FileHeader : bool { none, written };

// Opens `out` and writes headers and palette, each with a write of its own. All size fields are
// those of the uncompressed image, also in front of run-length coded rows: callers rely on this.
Status write_header(const EncodeRequest& request, FileHeader file_header, std::uint32_t compression,
                    StreamWriter& out);

}  // namespace tq::bmp
