// What a directory says about its page, with every repair that files of other writers need.
#pragma once

#include <array>
#include <cstdint>

#include "core/dib.h"
#include "formats/tiff/file.h"

namespace tq::tiff {

enum Coding : std::uint16_t {
  kUncoded = 1,
  kHuffman = 2,
  kGroup3 = 3,
  kGroup4 = 4,
  kLzw = 5,
  kOldJpeg = 6,
  kJpeg = 7,
  kDeflate = 8,
  kOldDeflate = 32946,
  kPackBits = 32773,
  kThunderScan = 32809,
  kJbig = 34661,  // and JBIG2, by some writers
  kJbig2 = 34715,
};

enum class Photometric : std::uint8_t {
  white_is_zero = 0,
  black_is_zero = 1,
  rgb = 2,
  palette = 3,
  mask = 4,
  separated = 5,
  ycbcr = 6,
  lab = 8,
};

enum class Alpha : std::uint8_t { none, associated, unassociated };

// Strips and tiles alike: rectangles that are coded by themselves. With planes apart there are
// those of the first sample, then those of the second ...
struct Chunks {
  Numbers offsets, byte_counts;
  bool tiled = false;
  std::int64_t width = 0, height = 0;  // pixels; tiles reach over the edges of the picture
  std::int64_t across = 0, down = 0;
};

constexpr bool is_fax(int coding) {
  return coding >= kHuffman && coding <= kGroup4;
}

struct Page {
  bool knows_jbig2 = false;  // set before it is read
  std::int32_t width = 0, height = 0;
  int bits = 1;     // of a sample
  int samples = 1;  // of a pixel
  int colours = 1;  // samples that are not extra
  Coding coding = kUncoded;
  Photometric photometric = Photometric::black_is_zero;
  Alpha alpha = Alpha::none;
  bool is_cut = false;  // not all that the file says of it is there
  bool planes_apart = false;
  bool low_bit_first = false;  // in a byte of coded data
  bool differences = false;    // predictor 2
  int h = 1, v = 1;            // pixels of a sample of chrominance
  std::uint32_t t4_options = 0;
  std::int32_t x_dpi = 0, y_dpi = 0;
  Resolution resolution;
  int orientation = 1;
  Chunks chunks;
  Entry color_map, jpeg_tables, coefficients, reference_levels;
  struct {
    Entry stream, stream_bytes, restart_interval, quantisation, dc, ac, subsampling;
  } old_jpeg;

  bool is_fax() const { return tiff::is_fax(coding); }
  bool is_jbig2() const { return coding == kJbig || coding == kJbig2; }
  bool is_jpeg() const { return coding == kOldJpeg || coding == kJpeg; }
};

// bad_image for a page without a size or data, unsupported for one of a kind that is not read here.
Status read_page(const File& file, std::int64_t directory, Page& page);

// A strip or tile in the stream: no more than so many bytes of it; position -1: it is not there.
struct Chunk {
  std::int64_t position = -1;
  std::int64_t bytes = 0;
};

// `whole_bytes` are those of the chunk when it is not coded.
Chunk find_chunk(const File& file, Page& page, std::uint64_t index, std::int64_t whole_bytes);

}  // namespace tq::tiff
