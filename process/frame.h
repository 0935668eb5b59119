// The frame of every operation: the rows of an image go in from the top, and the finished result
// takes the place of its pixels. An operation that fails or is aborted leaves the image as it was.
#pragma once

#include <array>
#include <cstring>

#include "core/image_create.h"
#include "core/image_table.h"
#include "core/run_storage.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::process {

using pixels::Bytes;
using pixels::Row;

// The image that an operation reads. Holds what must stay the same while it runs: between two rows
// the caller's progress callback may do anything, so rows are found anew each time.
class ImageSource {
 public:
  explicit ImageSource(ImageHandle handle);  // a valid one, of an image that has pixels
  // Pixels that only the operation knows; no row of them is reported.
  explicit ImageSource(ImageRecord& pixels) : ImageSource(ImageHandle{-1}, pixels) {}

  ImageRecord& record() const { return *record_; }
  int width() const { return width_; }
  int height() const { return height_; }
  int bits() const { return bits_; }
  bool in_runs() const { return in_runs_; }
  const BitmapInfoHeader& header() const { return header_; }
  std::span<const Rgb> palette() const {
    return std::span(palette_).first(palette_bytes(bits_) / 4);
  }

  // 4, 8, 16, 24 or 32: what all reductions and dithers take.
  bool is_deep() const;

  // Reports one more row of `rows`, those of the image, to the caller: its negative answer, or
  // bad_handle when the image is gone or has got pixels of another kind.
  Status next_row() { return next_row(height_); }
  Status next_row(int rows);

  // Row y as it is stored. Not for run lists.
  Bytes row(int y) const;

  // Row y as colours; 32-bit pixels as the image's marker says.
  void read_colours(int y, std::span<Rgb> colours) const;

 private:
  ImageSource(ImageHandle handle, ImageRecord& record);

  ImageHandle handle_;
  ImageRecord* record_;
  std::uint64_t serial_;
  int width_, height_, bits_;
  bool in_runs_;
  BitmapInfoHeader header_;
  std::array<Rgb, 256> palette_{};
};

// Rows of an image that may be run lists: of these as bits. Asked for from the top the next one is
// fetched ahead; the other way round processors foresee it by themselves.
class StoredRows {
 public:
  explicit StoredRows(const ImageSource& image, bool upwards = false)
      : image_(image), upwards_(upwards) {}
  Status allocate() {
    return image_.in_runs() ? bits_.allocate(row_bytes(image_.width(), 1)) : kOk;
  }
  Bytes read(int y) const {
    if (!image_.in_runs()) return upwards_ ? plain_row(image_.record(), y) : image_.row(y);
    expand_row(image_.record(), y, bits_.pixels());
    return bits_.pixels();
  }

 private:
  const ImageSource& image_;
  bool upwards_;
  RowBuffer<std::uint8_t> bits_;
};

// Rows of an image as one byte of grey per pixel: as a conversion to 8-bit grey gives them, which
// depends on the depth, or as thresholds and 1-bit dithers compare them.
enum class GreyKind : std::uint8_t { level, luma };

class GreyRows {
 public:
  GreyRows(const ImageSource& image, GreyKind kind);
  Status allocate();
  // Row y: in the image itself where its bytes are the greys, else in a buffer of this object.
  Bytes read(int y);
  void read(int y, Row out) const;

 private:
  const ImageSource& image_;
  GreyKind kind_;
  std::array<std::uint8_t, 256> table_;  // of palette indices
  bool bytes_are_greys_;
  RowBuffer<Rgb> colours_;  // of 32-bit rows
  RowBuffer<std::uint8_t> levels_;
};

struct NewShape {
  int bits;
  std::span<const Rgb> palette;   // the rest of the new palette is 0
  std::uint32_t compression = 0;  // the marker of the new pixels
  int width = 0, height = 0;      // 0: as the image
};

// The marker that is left when the result has fewer than 32 bits: that of blue, green, red pixels
// would lie.
inline std::uint32_t marker_below_32(const ImageSource& image) {
  const std::uint32_t marker = image.header().biCompression;
  return marker == kRgb32 ? 0 : marker;
}

// Pixels of the image's kind, of other sides.
NewShape same_kind(const ImageSource& image, int width, int height);

// What does not depend on the operation stays as the source's header has it.
Status create_result(ImageDraft& result, const ImageSource& image, const NewShape& shape);

inline void copy_row(Bytes from, Row to) {
  std::memcpy(to.data(), from.data(), from.size());
}

// Where the rows of a result are made: where they lie, or as bits that become a list.
class ResultRows {
 public:
  explicit ResultRows(ImageDraft& result) : made_(result.record()) {}
  Status allocate() { return made_.in_runs ? bits_.allocate(made_.bytes_per_row) : kOk; }
  // Room for row y: its padding is 0, its pixels are not set.
  Row begin(int y);
  Status end(int y) { return made_.in_runs ? store_bits(made_, y, bits_.pixels()) : kOk; }

 private:
  ImageRecord& made_;
  RowBuffer<std::uint8_t> bits_;
};

// Runs `make_row(y, row)` for every row of the result.
template <class MakeRow>
Status make_rows(ImageDraft& result, ImageSource& image, MakeRow&& make_row, bool upwards = false) {
  const int height = result.record().height;
  ResultRows rows(result);
  TQ_TRY(rows.allocate());
  for (int i = 0; i < height; ++i) {
    const int y = upwards ? height - 1 - i : i;
    TQ_TRY(image.next_row(height));
    make_row(y, rows.begin(y));
    TQ_TRY(rows.end(y));
  }
  return kOk;
}

// The same from the bottom, where no row needs the one above: in the order in which plain rows lie in
// memory, which processors foresee.
template <class MakeRow>
Status make_single_rows(ImageDraft& result, ImageSource& image, MakeRow&& make_row) {
  return make_rows(result, image, make_row, true);
}

// What `fill(result)` makes takes the place of the image's pixels.
template <class Fill>
Status replace_pixels(ImageSource& image, const NewShape& shape, Fill&& fill) {
  ImageDraft result;
  TQ_TRY(create_result(result, image, shape));
  TQ_TRY(fill(result));
  result.install(image.record());
  return kOk;
}

template <class MakeRow>
Status replace_rows(ImageSource& image, const NewShape& shape, MakeRow&& make_row) {
  return replace_pixels(image, shape,
                        [&](ImageDraft& result) { return make_rows(result, image, make_row); });
}

template <class MakeRow>
Status replace_single_rows(ImageSource& image, const NewShape& shape, MakeRow&& make_row) {
  return replace_pixels(
      image, shape, [&](ImageDraft& result) { return make_single_rows(result, image, make_row); });
}

// The shape of 1-bit results, white being 1: they are held as run lists where images of their size
// are.
inline NewShape mono_shape(const ImageSource& image, int width, int height) {
  return {1, pixels::black_and_white(),
          keeps_runs(width, height) ? kInRuns : marker_below_32(image), width, height};
}
template <class MakeBits>
Status replace_by_mono(ImageSource& image, MakeBits&& make_bits) {
  return replace_rows(image, mono_shape(image, image.width(), image.height()), make_bits);
}

}  // namespace tq::process
