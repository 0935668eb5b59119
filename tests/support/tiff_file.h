// TIFF files written field by field, right or wrong, and plain encoders for their strips and tiles.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;

struct TiffOrder {
  bool big_endian = false;
  bool big = false;  // BigTIFF
};

struct TiffField {
  int tag = 0;
  int type = 3;                         // SHORT
  std::vector<std::uint64_t> values{};  // two for a fraction
};

// A directory as it is written, and the data that `offsets` and `counts` lead to.
struct TiffPage {
  std::vector<TiffField> fields;
  std::vector<Bytes> chunks;        // an empty one has no place
  int offsets = 273, counts = 279;  // tags of these fields; 0: there is none
  int offset_type = 4;
  Bytes before{};  // them all: in the first page from byte 8 on
};

Bytes tiff_file(const TiffOrder& order, const std::vector<TiffPage>& pages);

// What is to be in a page: samples pixel by pixel, and how they are stored.
struct TiffPicture {
  int width = 21, height = 11;
  int bits = 8, samples = 1, photometric = 1;
  std::vector<std::uint32_t> values{};
  int coding = 1;
  bool differences = false, low_bit_first = false, apart = false, old_lzw = false;
  int rows_per_strip = 0;  // 0: all
  int tile_width = 0, tile_height = 0;
  // Of one chunk; rows in place of `coding`, which is then whatever it says.
  std::function<Bytes(const std::vector<Bytes>& rows, int width)> encode{};
  std::vector<TiffField> more{};
};

TiffPage tiff_page(const TiffPicture& picture, const TiffOrder& order);

Bytes pack_bits(const Bytes& bytes);
// Clears when the table is full, with the width of codes changing `early` or as old files have it,
// low bits first.
Bytes tiff_lzw(const Bytes& bytes, bool old = false);
// Stored blocks, with a wrong checksum.
Bytes zlib_stored(const Bytes& bytes);

}  // namespace tq::test
