// Operations: they give an image other pixels, or leave it as it is and say why.
#pragma once

#include "process/frame.h"

namespace tq::process {

// To palettes and to grey.
Status color_gray(ImageSource& image);
Status mediancut_color(ImageSource& image);
Status popularity_color(ImageSource& image);
// `palette` (null: the image's own colours) has `count` entries; the result is the number of
// palette entries written.
Status octree_color(ImageSource& image, std::int32_t bits, const Rgb* palette, std::int32_t count);

// To 1 bit.
Status bayer_mono(ImageSource& image);
Status halftone_mono(ImageSource& image);
Status diffusion_mono(ImageSource& image);
Status thresh_mono(ImageSource& image, std::int32_t threshold);  // -1: chosen from the histogram

// To the 16 fixed colours.
Status bayer_color(ImageSource& image);
Status diffusion_color(ImageSource& image);

// To more bits.
Status promote_8(ImageSource& image);
Status promote_24(ImageSource& image);
Status promote_32(ImageSource& image);

}  // namespace tq::process
