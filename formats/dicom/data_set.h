// What comes before the pixels: data elements, as far as they say what those are.
#pragma once

#include <array>

#include "formats/dicom/source.h"

namespace tq::dicom {

enum class Coding : std::uint8_t { plain, deflated, rle, jpeg, jpeg_2000 };
enum class Photometric : std::uint8_t {
  other,
  white_is_zero,
  black_is_zero,
  palette,
  rgb,
  ybr_full,
  ybr_full_422,  // two pixels share their colour differences
};

struct DataSet {
  static constexpr std::uint32_t kUndefined = 0xFFFFFFFF;

  bool knows_jpeg_2000 = false;  // set before it is read
  Coding coding = Coding::plain;
  bool explicit_types = false, big_endian = false;

  std::int32_t frames = 1;
  int rows = 0, columns = 0;
  int samples = 1;  // of a pixel
  Photometric photometric = Photometric::other;
  bool has_photometric = false, planes_apart = false;
  int allocated = 0, stored = 0, high_bit = -1;  // bits of a sample
  bool is_signed = false;

  // What stored values mean, and which meanings are shown from black to white.
  double slope = 1, intercept = 0;
  bool has_centre = false, has_width = false;  // of a window
  double centre = 0, width = 0;

  struct Table {
    int entries = 0, bits = 0;
    std::int32_t first = 0;            // the stored value of entry 0; lower ones share it
    RowBuffer<std::uint8_t> levels{};  // as many as there are of the entries
  };
  std::array<Table, 3> tables;  // red, green, blue

  int x_dpi = 0, y_dpi = 0;

  std::int64_t pixels_at = 0;
  std::uint32_t pixel_bytes = 0;
  bool in_words = false;  // the type of pixel data says so

  // As it is told to its components, of the last bit.
  int shift() const { return high_bit - stored + 1; }
};

// From where the file begins to its pixels. read_failed when there are none, bad_image for what
// cannot be, unsupported for codings and kinds of pixels that are not decoded.
Status read_data_set(Source& source, std::int64_t start, DataSet& set);

}  // namespace tq::dicom
