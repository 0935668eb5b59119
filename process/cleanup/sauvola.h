// Black and white by the mean and the deviation of what lies around each pixel.
#pragma once

#include "process/frame.h"

namespace tq::process {

inline constexpr int kWidestWindow = 255;  // pixels

// `level` is Otsu's of the whole image; 0 as `window` is 1/12 inch, as `k` 34 hundredths.
Status binarise_by_window(ImageSource& image, int level, int window, int k);

// A row of `width` bits, 1 where the mark is 0; the marks go on to the end of the row.
void pack_white(Bytes dark, int width, Row bits);

}  // namespace tq::process
