// A view of an image as pixels of a window.
#pragma once

#include "core/image_record.h"
#include "show/paint.h"
#include "show/view.h"

namespace tq::show {

// What settings say of how pixels are chosen.
struct Manner {
  std::int32_t alias = 1, quality = 1;
  Look look;

  static Manner of_settings();
};

// Paints rows of the window, of any band: each pixel depends on its own place alone. out_of_memory
// leaves the pixels undefined.
Status render(const ImageRecord& image, const Layout& layout, const Paint& paint,
              const Manner& manner, const Canvas& canvas);

// Tone, gamma and what else of an image and a view says how it is painted.
Paint choose_paint(const ImageRecord& image, const img_view& view);

}  // namespace tq::show
