#include "tests/process/generated_image.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/dib.h"
#include "include/tarnquill.h"

namespace tq::test {
namespace {

struct Random {
  std::uint32_t state;
  int byte() {
    state = state * 1664525 + 1013904223;
    return static_cast<int>(state >> 24);
  }
};

Rgb palette_entry(int i, int entries, int kind, Random& random) {
  const auto entry = [](int blue, int green, int red) -> Rgb {
    const auto byte = [](int v) { return static_cast<std::uint8_t>(v); };
    return {byte(blue), byte(green), byte(red), 0};
  };
  const int grey = i * 255 / (entries - 1);
  if (kind == 0) return entry(grey, grey, grey);
  if (kind == 2) return entry(255 - i * 3, 200 + i, i * 85);
  const int blue = random.byte(), green = random.byte();  // in this order
  return entry(blue, green, random.byte());
}

int level(int x, int y, int channel, int kind, Random& random) {
  switch (kind) {
    case 0:
      return random.byte();
    case 1:
      return (x * 7 + y * 13 + channel * 85) & 255;
    case 2:
      return (x / 8 * 67 + y / 4 * 131 + channel * 29) * 37 & 255;
    default:
      return std::clamp(90 + std::abs((x * 5 + channel * 40) % 200 - 100) + random.byte() / 16 + y,
                        0, 255);
  }
}

}  // namespace

Bytes generate_dib(const Depth& depth, int width, int height, int number) {
  const int bits = depth.bits;
  Random random{static_cast<std::uint32_t>(number) + 1};
  HeaderBlock block = dib_header(width, height, bits);
  block.header.biCompression = depth.compression;
  const int entries = palette_bytes(bits) / 4;
  for (int i = 0; i < entries; ++i) {
    block.palette[i] = palette_entry(i, entries, number % 3, random);
  }
  const std::size_t front = kDibHeaderBytes + 4 * static_cast<std::size_t>(entries);
  Bytes dib(static_cast<std::size_t>(dib_bytes(width, height, bits)));
  std::memcpy(dib.data(), &block, front);
  const auto stride = static_cast<std::size_t>(row_bytes(width, bits));
  for (int y = 0; y < height; ++y) {
    std::uint8_t* row = dib.data() + front + static_cast<std::size_t>(height - 1 - y) * stride;
    for (int x = 0; x < width; ++x) {
      if (bits < 8) {
        const int value = level(x, y, 0, number % 4, random) >> (8 - bits);
        row[x * bits / 8] |= static_cast<std::uint8_t>(value << (8 - bits - x * bits % 8));
      } else {
        for (int channel = 0; channel < bits / 8; ++channel) {
          row[x * bits / 8 + channel] =
              static_cast<std::uint8_t>(level(x, y, channel, number % 4, random));
        }
      }
    }
  }
  return dib;
}

Snapshot snapshot(std::int32_t image) {
  Snapshot seen;
  std::int32_t width = 0, height = 0, bits = 0;
  IMG_bitmap_info(image, &width, &height, &bits);
  seen.front.resize(kDibHeaderBytes + static_cast<std::size_t>(palette_bytes(bits)));
  IMGLOW_get_bitmap_header(image, seen.front.data());
  for (std::int32_t y = 0; y < height; ++y) {
    Bytes& row = seen.rows.emplace_back(static_cast<std::size_t>(row_bytes(width, bits)));
    IMGLOW_get_raster(image, row.data(), y, 0);
  }
  return seen;
}

KeptImage::KeptImage(Bytes dib)
    : memory_(std::move(dib)), original_(memory_), handle_(IMG_create_handle_keep(memory_.data())) {
  original_ = memory_;  // registering may have put a palette in order
}

KeptImage::KeptImage(const Depth& depth, int width, int height, int number)
    : KeptImage(generate_dib(depth, width, height, number)) {
  if (depth.in_runs) IMG_dib_to_runs(handle_);
}

KeptImage::~KeptImage() {
  IMG_delete_bitmap(handle_);  // what is no block of the library stays
}

// An export as a plain function: on Windows the two are called differently.
template <auto kExport>
std::int32_t call(std::int32_t image) {
  return kExport(image);
}

template <std::int32_t kMode>
std::int32_t mediancut(std::int32_t image) {
  IMGLOW_set_dithermode(kMode);
  return IMG_mediancut_color(image);
}

// The image shows the counts, taken as a table.
std::int32_t show_histogram(std::int32_t image, std::int32_t channel, std::uint32_t factor) {
  std::uint32_t counts[256] = {};
  const std::int32_t status = IMG_get_histogram(image, channel, counts);
  if (status < 0) return status;
  std::uint8_t table[256];
  for (std::uint32_t v = 0; v < 256; ++v)
    table[v] = static_cast<std::uint8_t>(counts[v] * factor + v);
  return IMG_tone_table(image, table);
}

const std::vector<NamedOperation>& all_operations() {
  static std::uint8_t tables[768];
  for (std::uint32_t i = 0; i < 768; ++i) tables[i] = static_cast<std::uint8_t>(i * i / 3 + 91 * i);
  static Rgb given[40];
  for (int i = 0; i < 40; ++i) {
    given[i] = {static_cast<std::uint8_t>(i * 37), static_cast<std::uint8_t>(i * 101),
                static_cast<std::uint8_t>(i * 59), 0};
  }
  static const std::int32_t kernel[15] = {3, -1, 4, -1, -5, 9, -2, 6, -5, -3, 5, -8, 9, -7, -4};
  static std::int32_t large_kernel[15];  // but for its sum
  std::transform(kernel, kernel + 15, large_kernel, [](std::int32_t v) { return v * 100000000; });
  using Image = std::int32_t;
  static const std::vector<NamedOperation> operations = {
      {"gray", call<IMG_color_gray>},
      {"mediancut", mediancut<1>},
      {"mediancut_system", mediancut<2>},
      {"octree_8_256", [](Image i) { return IMG_octree_color(i, 8, nullptr, 256); }},
      {"octree_8_20", [](Image i) { return IMG_octree_color(i, 8, nullptr, 20); }},
      {"octree_8_3", [](Image i) { return IMG_octree_color(i, 8, nullptr, 3); }},
      {"octree_4_256", [](Image i) { return IMG_octree_color(i, 4, nullptr, 256); }},
      {"octree_given_40", [](Image i) { return IMG_octree_color(i, 8, given, 40); }},
      {"popularity", call<IMG_popularity_color>},
      {"bayer_mono", call<IMG_bayer_mono>},
      {"halftone_mono", call<IMG_halftone_mono>},
      {"diffusion_mono", call<IMG_diffusion_mono>},
      {"thresh_128", [](Image i) { return IMG_thresh_mono(i, 128); }},
      {"thresh_below", [](Image i) { return IMG_thresh_mono(i, -2); }},
      {"thresh_255", [](Image i) { return IMG_thresh_mono(i, 255); }},
      {"thresh_automatic", [](Image i) { return IMG_thresh_mono(i, -1); }},
      {"bayer_color", call<IMG_bayer_color>},
      {"diffusion_color", call<IMG_diffusion_color>},
      {"promote_8", call<IMG_promote_8>},
      {"promote_24", call<IMG_promote_24>},
      {"promote_32", call<IMG_promote_32>},
      {"flip", call<IMG_flip_bitmap>, Kind::moves},
      {"mirror", call<IMG_mirror_bitmap>, Kind::moves},
      {"turn_180", [](Image i) { return IMG_orient_bitmap(i, 3); }, Kind::moves},
      {"transpose", [](Image i) { return IMG_orient_bitmap(i, 5); }, Kind::moves},
      {"turn_90", [](Image i) { return IMG_orient_bitmap(i, 6); }, Kind::moves},
      {"transverse", [](Image i) { return IMG_orient_bitmap(i, 7); }, Kind::moves},
      {"turn_270", [](Image i) { return IMG_orient_bitmap(i, 8); }, Kind::moves},
      {"crop", [](Image i) { return IMG_crop_bitmap(i, 1, 0, 6, 10); }, Kind::moves},
      {"extend", [](Image i) { return IMG_extend_bitmap(i, 5, -2, 3, 1, -1); }, Kind::moves},
      {"shift", [](Image i) { return IMG_extend_bitmap(i, -9, 4, 9, -4, 0); }, Kind::moves},
      {"invert", call<IMG_invert_bitmap>, Kind::moves},
      {"despeckle", [](Image i) { return IMG_despeckle_bitmap(i, 3, 2, 1); }, Kind::moves},
      {"despeckle_holes", [](Image i) { return IMG_despeckle_bitmap(i, 2, 3, 2); }, Kind::moves},
      {"despeckle_both", [](Image i) { return IMG_despeckle_bitmap(i, 4, 4, 3); }, Kind::moves},
      {"despeckle_marks", [](Image i) { return IMG_despeckle_bitmap(i, 3, 3, 5); }, Kind::moves},
      {"nearest", [](Image i) { return IMG_resize_bitmap(i, 50, 13, 0); }, Kind::moves},
      {"area_down", [](Image i) { return IMG_resize_bitmap(i, 9, 5, 1); }, Kind::moves},
      {"area_up", [](Image i) { return IMG_resize_bitmap(i, 70, 23, 1); }, Kind::moves},
      {"triangle", [](Image i) { return IMG_resize_bitmap(i, 23, 9, 2); }, Kind::moves},
      {"cubic", [](Image i) { return IMG_resize_bitmap(i, 50, 7, 3); }, Kind::moves},
      {"lanczos", [](Image i) { return IMG_resize_bitmap(i, 40, 12, 4); }, Kind::moves},
      {"lanczos_blocks", [](Image i) { return IMG_resize_bitmap(i, 5, 3, 4); }, Kind::moves},
      {"area_mono", [](Image i) { return IMG_resize_bitmap(i, 11, 6, 5); }, Kind::moves},
      {"rotate_10", [](Image i) { return IMG_rotate_bitmap(i, 1000, -1, 0); }, Kind::moves},
      {"rotate_back", [](Image i) { return IMG_rotate_bitmap(i, -1013, 0, 1); }, Kind::moves},
      {"rotate_147", [](Image i) { return IMG_rotate_bitmap(i, 14701, 1, 2); }, Kind::moves},
      {"rotate_nearest", [](Image i) { return IMG_rotate_bitmap(i, 36200, -1, 3); }, Kind::moves},
      {"tone", [](Image i) { return IMG_tone_bitmap(i, 20, 35, 180); }, Kind::tones},
      {"tone_dark", [](Image i) { return IMG_tone_bitmap(i, -10, -60, 45); }, Kind::tones},
      {"tone_table", [](Image i) { return IMG_tone_table(i, tables); }, Kind::tones},
      {"tone_table3", [](Image i) { return IMG_tone_table3(i, tables); }, Kind::tones},
      {"histogram_grey", [](Image i) { return show_histogram(i, 0, 37); }, Kind::tones},
      {"histogram_red", [](Image i) { return show_histogram(i, 1, 5); }, Kind::tones},
      {"histogram_blue", [](Image i) { return show_histogram(i, 3, 5); }, Kind::tones},
      {"auto_levels", [](Image i) { return IMG_auto_levels(i, -1); }, Kind::tones},
      {"auto_levels_most", [](Image i) { return IMG_auto_levels(i, 3000); }, Kind::tones},
      {"equalize", call<IMG_equalize_bitmap>, Kind::tones},
      {"box", [](Image i) { return IMG_filter_bitmap(i, 0, 2, 0); }, Kind::tones},
      {"gauss", [](Image i) { return IMG_filter_bitmap(i, 1, 73, 0); }, Kind::tones},
      {"gauss_wide", [](Image i) { return IMG_filter_bitmap(i, 1, 310, 0); }, Kind::tones},
      {"median", [](Image i) { return IMG_filter_bitmap(i, 2, 1, 0); }, Kind::tones},
      {"median_wide", [](Image i) { return IMG_filter_bitmap(i, 2, 4, 0); }, Kind::tones},
      {"darkest", [](Image i) { return IMG_filter_bitmap(i, 3, 1, 0); }, Kind::tones},
      {"lightest", [](Image i) { return IMG_filter_bitmap(i, 4, 5, 0); }, Kind::tones},
      {"unsharp", [](Image i) { return IMG_filter_bitmap(i, 5, 100, 170); }, Kind::tones},
      {"edges", [](Image i) { return IMG_filter_bitmap(i, 6, 1, 0); }, Kind::tones},
      {"convolve", [](Image i) { return IMG_convolve_bitmap(i, kernel, 5, 3, -7, 40); },
       Kind::tones},
      {"convolve_large",
       [](Image i) { return IMG_convolve_bitmap(i, large_kernel, 3, 5, 1000000000, 0); },
       Kind::tones},
      {"quantize_8", [](Image i) { return IMG_quantize_bitmap(i, 8, 25, 0); }, Kind::tones},
      {"quantize_4", [](Image i) { return IMG_quantize_bitmap(i, 4, 16, 1); }, Kind::tones},
      {"find_threshold", call<IMG_find_threshold>, Kind::cleans},
      {"otsu_mono", [](Image i) { return IMG_adaptive_mono(i, 0, 0, 0); }, Kind::cleans},
      {"sauvola_mono", [](Image i) { return IMG_adaptive_mono(i, 1, 0, 0); }, Kind::cleans},
      {"sauvola_narrow", [](Image i) { return IMG_adaptive_mono(i, 1, 5, 60); }, Kind::cleans},
      {"sauvola_wide", [](Image i) { return IMG_adaptive_mono(i, 1, 255, 10); }, Kind::cleans},
      {"levelled_mono", [](Image i) { return IMG_adaptive_mono(i, 2, 0, 0); }, Kind::cleans},
      {"level_background", call<IMG_level_background>, Kind::cleans},
  };
  return operations;
}

}  // namespace tq::test
