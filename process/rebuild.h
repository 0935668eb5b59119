// The frame of every operation: an image's rows go in from the top, and the finished result takes
// the place of its pixels. An operation that fails or is aborted leaves the image as it was.
#pragma once

#include "core/image_draft.h"
#include "core/run_storage.h"
#include "pixels/colours.h"
#include "process/image_source.h"

namespace tq::process {

struct NewShape {
  int bits;
  std::span<const Rgb> palette;   // the rest of the new palette is 0
  std::uint32_t compression = 0;  // the marker of the new pixels
};

// The marker that is left when the result has fewer than 32 bits: that of blue, green, red pixels
// would lie.
inline std::uint32_t marker_below_32(const ImageSource& image) {
  const std::uint32_t marker = image.header().biCompression;
  return marker == kRgb32 ? 0 : marker;
}

// What does not depend on the operation stays as the source's header has it.
Status create_result(ImageDraft& result, const ImageSource& image, const NewShape& shape);

// Runs `make_row(y, row)` for every row; a row's padding is 0, its pixels are not set.
template <class MakeRow>
Status replace_rows(ImageSource& image, const NewShape& shape, MakeRow&& make_row) {
  ImageDraft result;
  TQ_TRY(create_result(result, image, shape));
  for (std::int32_t y = 0; y < image.height(); ++y) {
    TQ_TRY(image.next_row());
    const std::span<std::uint8_t> row = plain_row(result.record(), y);
    std::memset(row.data() + row.size() - 4, 0, 4);
    make_row(y, row);
  }
  result.install(image.record());
  return kOk;
}

// The same for 1-bit results, white being 1: they are held as run lists where images of their size
// are.
template <class MakeBits>
Status replace_by_mono(ImageSource& image, MakeBits&& make_bits) {
  const bool in_runs = keeps_runs(image.width(), image.height());
  ImageDraft result;
  TQ_TRY(create_result(result, image,
                       {1, pixels::black_and_white(), in_runs ? kInRuns : marker_below_32(image)}));
  RowBuffer<std::uint8_t> bits;
  TQ_TRY(bits.allocate(row_bytes(image.width(), 1)));
  for (std::int32_t y = 0; y < image.height(); ++y) {
    TQ_TRY(image.next_row());
    make_bits(y, bits.pixels());
    if (in_runs) {
      TQ_TRY(store_bits(result.record(), y, bits.pixels()));
    } else {
      TQ_TRY(put_raster(result.record(), bits.data(), y, 0));
    }
  }
  result.install(image.record());
  return kOk;
}

}  // namespace tq::process
