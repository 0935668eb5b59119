// What stands before the pixels of a BMP file: read into the header block that a decode delivers,
// and written from the one that an encode is given.
#pragma once

#include <cstdint>
#include <span>

#include "formats/codec.h"

namespace tq::formats {

// How a row lies in the file.
enum class BmpRows : std::uint8_t {
  as_delivered,
  rgb555,
  rgb565,
  rle4,
  rle8,
  length_prefixed,  // each row with its length in front
  jpeg,             // no rows: a JPEG file
};

struct BmpFile {
  HeaderBlock image;  // as delivered: full palette, dots per inch, height above 0
  BmpRows rows = BmpRows::as_delivered;
  bool top_down = false;       // the first row in the file is the top one
  bool inverted = false;       // 1 bit: the file's 0 is white
  std::int64_t pixels_at = 0;  // position in the stream, maybe one that no stream has
};

// bad_image for a height that has no opposite, unsupported for a depth that has no rows here. Sides
// are as the file has them; bytes that a short file lacks count as 0.
Status read_bmp_header(const DecodeRequest& request, BmpFile& file);

// The size of a row in the file, in bytes; of those that have one.
std::int64_t stored_row_bytes(const BmpFile& file);

// Whether the stream is there now; no position beyond 2^31 - 1 is.
bool seek_to(StreamHandle stream, std::int64_t position);

enum class FileHeader : bool { none, written };

// Headers and palette. All size fields are those of the uncompressed image, also in front of
// run-length coded rows: callers rely on this.
Status write_bmp_header(const EncodeRequest& request, FileHeader file_header,
                        std::uint32_t compression);

// write_failed when not all bytes could be written.
Status write_all(StreamHandle stream, std::span<std::uint8_t> bytes);

// Between a file's pixels per metre and an image's dots per inch.
std::int32_t dots_per_inch(std::int32_t pixels_per_metre);
std::int32_t pixels_per_metre(std::int32_t dots_per_inch);

inline constexpr std::uint32_t kBiRgb = 0;
inline constexpr std::uint32_t kBiRle8 = 1;
inline constexpr std::uint32_t kBiRle4 = 2;
inline constexpr std::uint32_t kBiBitFields = 3;

}  // namespace tq::formats
