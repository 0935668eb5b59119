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
// The result is the number of entries.
Status quantize_bitmap(ImageSource& image, std::int32_t bits, std::int32_t colours,
                       std::int32_t dither);

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

// Pixels at other places; `value` is one of TIFF's Orientation.
Status flip_bitmap(ImageSource& image);
Status mirror_bitmap(ImageSource& image);
Status orient_bitmap(ImageSource& image, std::int32_t value);
Status crop_bitmap(ImageSource& image, const Rect& rect);
// How many pixels are added on each side; negative: taken away.
struct Margins {
  std::int32_t left, top, right, bottom;
};
Status extend_bitmap(ImageSource& image, const Margins& margins, std::int32_t colour);
Status rotate_bitmap(ImageSource& image, std::int32_t angle, std::int32_t colour,
                     std::int32_t mode);

// Other sides.
Status resize_bitmap(ImageSource& image, std::int32_t width, std::int32_t height,
                     std::int32_t method);
Status resample_bitmap(ImageSource& image, std::int32_t x_dpi, std::int32_t y_dpi,
                       std::int32_t method);

// Levels.
Status invert_bitmap(ImageSource& image);
Status tone_bitmap(ImageSource& image, std::int32_t brightness, std::int32_t contrast,
                   std::int32_t gamma);
// `count` tables of 256 levels: one for all channels, or those of blue, green, red.
Status tone_table(ImageSource& image, const std::uint8_t* tables, int count);
Status get_histogram(ImageSource& image, std::int32_t channel, std::uint32_t* counts);
Status auto_levels(ImageSource& image, std::int32_t clip);
Status equalize_bitmap(ImageSource& image);

// What lies around each pixel.
Status filter_bitmap(ImageSource& image, std::int32_t kind, std::int32_t radius,
                     std::int32_t amount);
Status convolve_bitmap(ImageSource& image, const std::int32_t* kernel, std::int32_t width,
                       std::int32_t height, std::int32_t divisor, std::int32_t offset);

// What is on a page. Searches return what they find; where that is yes or no, 1 or 0.
Status find_threshold(ImageSource& image);
Status adaptive_mono(ImageSource& image, std::int32_t method, std::int32_t window, std::int32_t k);
Status level_background(ImageSource& image);
Status find_skew(ImageSource& image, std::int32_t range, std::int32_t& angle,
                 std::int32_t& confidence);
Status deskew_bitmap(ImageSource& image, std::int32_t range, std::int32_t least,
                     std::int32_t colour, std::int32_t& angle);
Status find_orientation(ImageSource& image, std::int32_t& angle, std::int32_t& confidence);
Status auto_orient_bitmap(ImageSource& image, std::int32_t least, std::int32_t& angle);

// Pages cleaned. The result is how many specks, or lines, were removed.
Status despeckle_bitmap(ImageSource& image, std::int32_t width, std::int32_t height,
                        std::int32_t mode);
Status remove_lines(ImageSource& image, std::int32_t length, std::int32_t thickness,
                    std::int32_t mode);
// The result is 1 where there is something of the kind, or something to do.
Status find_content(ImageSource& image, Rect& content);
Status autocrop_bitmap(ImageSource& image, std::int32_t margin);
Status find_paper(ImageSource& image, Rect& paper);
Status remove_border(ImageSource& image, std::int32_t colour);
Status is_blank(ImageSource& image, std::int32_t tolerance);

}  // namespace tq::process
