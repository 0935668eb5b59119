// Exports of the operations.
#include "process/process.h"
#include "api/abi.h"
#include "include/tarnquill.h"

namespace {

using tq::process::ImageSource;

// For what looks at pixels and leaves them as they are.
template <class Search>
std::int32_t search(std::int32_t image, Search&& look) {
  return tq::api::with_pixels(image, [&](tq::ImageRecord&) {
    ImageSource source(tq::ImageHandle{image});
    return look(source);
  });
}

template <class Operation>
std::int32_t process(std::int32_t image, Operation&& operation) {
  return tq::api::change_pixels(image, [&](tq::ImageRecord&) {
    ImageSource source(tq::ImageHandle{image});
    return operation(source);
  });
}

// Stores a rectangle that a search that did not fail has found.
template <class Search>
std::int32_t search(std::int32_t image, std::int32_t* x, std::int32_t* y, std::int32_t* width,
                    std::int32_t* height, Search&& find) {
  tq::Rect found;
  const std::int32_t result =
      search(image, [&](ImageSource& source) { return find(source, found); });
  if (result < 0) return result;
  tq::api::store(x, found.x);
  tq::api::store(y, found.y);
  tq::api::store(width, found.width);
  tq::api::store(height, found.height);
  return result;
}

// `find(source, angle, confidence)`; where it fails nothing is stored. `run`: what changes pixels is
// not for `search`.
template <class Run, class Find>
std::int32_t find_angle(Run&& run, std::int32_t image, std::int32_t* angle,
                        std::int32_t* confidence, Find&& find) {
  return run(image, [&](ImageSource& source) {
    std::int32_t turn = 0, sure = 0;
    const tq::Status found = find(source, turn, sure);
    if (found.ok()) {
      tq::api::store(angle, turn);
      tq::api::store(confidence, sure);
    }
    return found;
  });
}
constexpr auto kSearch = [](std::int32_t image, auto&& look) { return search(image, look); };
constexpr auto kProcess = [](std::int32_t image, auto&& operation) {
  return process(image, operation);
};

}  // namespace

std::int32_t IMG_CALL IMG_color_gray(std::int32_t image) {
  return process(image, tq::process::color_gray);
}

std::int32_t IMG_CALL IMG_mediancut_color(std::int32_t image) {
  return process(image, tq::process::mediancut_color);
}

std::int32_t IMG_CALL IMG_popularity_color(std::int32_t image) {
  return process(image, tq::process::popularity_color);
}

std::int32_t IMG_CALL IMG_octree_color(std::int32_t image, std::int32_t bits, const void* palette,
                                       std::int32_t count) {
  return process(image, [&](ImageSource& source) {
    return tq::process::octree_color(source, bits, static_cast<const tq::Rgb*>(palette), count);
  });
}

std::int32_t IMG_CALL IMG_bayer_mono(std::int32_t image) {
  return process(image, tq::process::bayer_mono);
}

std::int32_t IMG_CALL IMG_halftone_mono(std::int32_t image) {
  return process(image, tq::process::halftone_mono);
}

std::int32_t IMG_CALL IMG_diffusion_mono(std::int32_t image) {
  return process(image, tq::process::diffusion_mono);
}

std::int32_t IMG_CALL IMG_thresh_mono(std::int32_t image, std::int32_t threshold) {
  return process(image,
                 [&](ImageSource& source) { return tq::process::thresh_mono(source, threshold); });
}

std::int32_t IMG_CALL IMG_bayer_color(std::int32_t image) {
  return process(image, tq::process::bayer_color);
}

std::int32_t IMG_CALL IMG_diffusion_color(std::int32_t image) {
  return process(image, tq::process::diffusion_color);
}

std::int32_t IMG_CALL IMG_promote_8(std::int32_t image) {
  return process(image, tq::process::promote_8);
}

std::int32_t IMG_CALL IMG_promote_24(std::int32_t image) {
  return process(image, tq::process::promote_24);
}

std::int32_t IMG_CALL IMG_promote_32(std::int32_t image) {
  return process(image, tq::process::promote_32);
}

std::int32_t IMG_CALL IMG_flip_bitmap(std::int32_t image) {
  return process(image, tq::process::flip_bitmap);
}

std::int32_t IMG_CALL IMG_mirror_bitmap(std::int32_t image) {
  return process(image, tq::process::mirror_bitmap);
}

std::int32_t IMG_CALL IMG_orient_bitmap(std::int32_t image, std::int32_t value) {
  return process(image,
                 [&](ImageSource& source) { return tq::process::orient_bitmap(source, value); });
}

std::int32_t IMG_CALL IMG_crop_bitmap(std::int32_t image, std::int32_t x, std::int32_t y,
                                      std::int32_t width, std::int32_t height) {
  return process(image, [&](ImageSource& source) {
    return tq::process::crop_bitmap(source, {x, y, width, height});
  });
}

std::int32_t IMG_CALL IMG_extend_bitmap(std::int32_t image, std::int32_t left, std::int32_t top,
                                        std::int32_t right, std::int32_t bottom,
                                        std::int32_t colour) {
  return process(image, [&](ImageSource& source) {
    return tq::process::extend_bitmap(source, {left, top, right, bottom}, colour);
  });
}

std::int32_t IMG_CALL IMG_rotate_bitmap(std::int32_t image, std::int32_t angle, std::int32_t colour,
                                        std::int32_t mode) {
  return process(image, [&](ImageSource& source) {
    return tq::process::rotate_bitmap(source, angle, colour, mode);
  });
}

std::int32_t IMG_CALL IMG_resize_bitmap(std::int32_t image, std::int32_t width, std::int32_t height,
                                        std::int32_t method) {
  return process(image, [&](ImageSource& source) {
    return tq::process::resize_bitmap(source, width, height, method);
  });
}

std::int32_t IMG_CALL IMG_resample_bitmap(std::int32_t image, std::int32_t x_dpi,
                                          std::int32_t y_dpi, std::int32_t method) {
  return process(image, [&](ImageSource& source) {
    return tq::process::resample_bitmap(source, x_dpi, y_dpi, method);
  });
}

std::int32_t IMG_CALL IMG_invert_bitmap(std::int32_t image) {
  return process(image, tq::process::invert_bitmap);
}

std::int32_t IMG_CALL IMG_tone_bitmap(std::int32_t image, std::int32_t brightness,
                                      std::int32_t contrast, std::int32_t gamma) {
  return process(image, [&](ImageSource& source) {
    return tq::process::tone_bitmap(source, brightness, contrast, gamma);
  });
}

std::int32_t IMG_CALL IMG_tone_table(std::int32_t image, const std::uint8_t* table) {
  return process(image,
                 [&](ImageSource& source) { return tq::process::tone_table(source, table, 1); });
}

std::int32_t IMG_CALL IMG_tone_table3(std::int32_t image, const std::uint8_t* tables) {
  return process(image,
                 [&](ImageSource& source) { return tq::process::tone_table(source, tables, 3); });
}

std::int32_t IMG_CALL IMG_get_histogram(std::int32_t image, std::int32_t channel,
                                        std::uint32_t* counts) {
  return search(image, [&](ImageSource& source) {
    return tq::process::get_histogram(source, channel, counts);
  });
}

std::int32_t IMG_CALL IMG_auto_levels(std::int32_t image, std::int32_t clip) {
  return process(image,
                 [&](ImageSource& source) { return tq::process::auto_levels(source, clip); });
}

std::int32_t IMG_CALL IMG_equalize_bitmap(std::int32_t image) {
  return process(image, tq::process::equalize_bitmap);
}

std::int32_t IMG_CALL IMG_filter_bitmap(std::int32_t image, std::int32_t kind, std::int32_t radius,
                                        std::int32_t amount) {
  return process(image, [&](ImageSource& source) {
    return tq::process::filter_bitmap(source, kind, radius, amount);
  });
}

std::int32_t IMG_CALL IMG_convolve_bitmap(std::int32_t image, const std::int32_t* kernel,
                                          std::int32_t width, std::int32_t height,
                                          std::int32_t divisor, std::int32_t offset) {
  return process(image, [&](ImageSource& source) {
    return tq::process::convolve_bitmap(source, kernel, width, height, divisor, offset);
  });
}

std::int32_t IMG_CALL IMG_quantize_bitmap(std::int32_t image, std::int32_t bits,
                                          std::int32_t colours, std::int32_t dither) {
  return process(image, [&](ImageSource& source) {
    return tq::process::quantize_bitmap(source, bits, colours, dither);
  });
}

std::int32_t IMG_CALL IMG_find_threshold(std::int32_t image) {
  return search(image, tq::process::find_threshold);
}

std::int32_t IMG_CALL IMG_adaptive_mono(std::int32_t image, std::int32_t method,
                                        std::int32_t window, std::int32_t k) {
  return process(image, [&](ImageSource& source) {
    return tq::process::adaptive_mono(source, method, window, k);
  });
}

std::int32_t IMG_CALL IMG_level_background(std::int32_t image) {
  return process(image, tq::process::level_background);
}

std::int32_t IMG_CALL IMG_find_skew(std::int32_t image, std::int32_t range, std::int32_t* angle,
                                    std::int32_t* confidence) {
  return find_angle(kSearch, image, angle, confidence, [&](ImageSource& source, auto&... found) {
    return tq::process::find_skew(source, range, found...);
  });
}

std::int32_t IMG_CALL IMG_find_orientation(std::int32_t image, std::int32_t* angle,
                                           std::int32_t* confidence) {
  return find_angle(kSearch, image, angle, confidence, [](ImageSource& source, auto&... found) {
    return tq::process::find_orientation(source, found...);
  });
}

std::int32_t IMG_CALL IMG_deskew_bitmap(std::int32_t image, std::int32_t range, std::int32_t least,
                                        std::int32_t colour, std::int32_t* angle) {
  return find_angle(kProcess, image, angle, nullptr,
                    [&](ImageSource& source, std::int32_t& turn, auto&) {
                      return tq::process::deskew_bitmap(source, range, least, colour, turn);
                    });
}

std::int32_t IMG_CALL IMG_auto_orient_bitmap(std::int32_t image, std::int32_t least,
                                             std::int32_t* angle) {
  return find_angle(kProcess, image, angle, nullptr,
                    [&](ImageSource& source, std::int32_t& turn, auto&) {
                      return tq::process::auto_orient_bitmap(source, least, turn);
                    });
}

std::int32_t IMG_CALL IMG_despeckle_bitmap(std::int32_t image, std::int32_t width,
                                           std::int32_t height, std::int32_t mode) {
  return process(image, [&](ImageSource& source) {
    return tq::process::despeckle_bitmap(source, width, height, mode);
  });
}

std::int32_t IMG_CALL IMG_remove_lines(std::int32_t image, std::int32_t length,
                                       std::int32_t thickness, std::int32_t mode) {
  return process(image, [&](ImageSource& source) {
    return tq::process::remove_lines(source, length, thickness, mode);
  });
}

std::int32_t IMG_CALL IMG_find_content(std::int32_t image, std::int32_t* x, std::int32_t* y,
                                       std::int32_t* width, std::int32_t* height) {
  return search(image, x, y, width, height, tq::process::find_content);
}

std::int32_t IMG_CALL IMG_autocrop_bitmap(std::int32_t image, std::int32_t margin) {
  return process(image,
                 [&](ImageSource& source) { return tq::process::autocrop_bitmap(source, margin); });
}

std::int32_t IMG_CALL IMG_find_paper(std::int32_t image, std::int32_t* x, std::int32_t* y,
                                     std::int32_t* width, std::int32_t* height) {
  return search(image, x, y, width, height, tq::process::find_paper);
}

std::int32_t IMG_CALL IMG_remove_border(std::int32_t image, std::int32_t colour) {
  return process(image,
                 [&](ImageSource& source) { return tq::process::remove_border(source, colour); });
}

std::int32_t IMG_CALL IMG_is_blank(std::int32_t image, std::int32_t tolerance) {
  return search(image,
                [&](ImageSource& source) { return tq::process::is_blank(source, tolerance); });
}
