// Header and palette of a result.
#include "process/rebuild.h"

#include <algorithm>

namespace tq::process {

Status create_result(ImageDraft& result, const ImageSource& image, const NewShape& shape) {
  HeaderBlock source{.header = image.header()};
  std::copy(shape.palette.begin(), shape.palette.end(), source.palette.begin());
  TQ_TRY(result.create(source, {.width = image.width(),
                                .height = image.height(),
                                .bits = shape.bits,
                                .compression = shape.compression,
                                .in_runs = shape.bits == 1 && shape.compression == kInRuns}));
  BitmapInfoHeader header = header_of(result.record());
  header.biSize = image.header().biSize;
  header.biPlanes = image.header().biPlanes;
  header.biClrUsed = image.header().biClrUsed;
  set_header(result.record(), header);
  return kOk;
}

}  // namespace tq::process
