// An image of any depth and form, and views of it with any fields. What is said of a view agrees with
// itself, points lie in the image, and bands hold the rows that the whole window has.
#include "core/memory.h"
#include "fuzz/choose_image.h"

namespace tq::fuzz {
namespace {

constexpr std::uint64_t kLargestAllowed = 1 << 22;  // bytes; a larger block is refused
constexpr std::int64_t kLargestWindow = 1 << 17;    // bytes that are rendered
constexpr int kMostViews = 4;
constexpr std::int32_t kMostBands = 16;  // each makes its tables anew

img_view choose_view(Input& in) {
  img_view view{};
  view.bytes = in.u8() < 230 ? static_cast<std::int32_t>(sizeof view) : in.below(sizeof view + 9);
  if (in.u8() % 2 == 0) {
    view.source_x = choose(in, 100);
    view.source_y = choose(in, 100);
    view.source_width = choose(in, 250);
    view.source_height = choose(in, 250);
  }
  view.width = choose(in, 250);
  view.height = choose(in, 250);
  view.fit = choose(in, 9);
  view.zoom = in.u8() % 2 == 0 ? 100 * in.below(160) : choose(in, 50);
  view.scroll_x = choose(in, 250);
  view.scroll_y = choose(in, 250);
  view.device_dpi_x = choose(in, 250);
  view.device_dpi_y = choose(in, 250);
  view.angle = 90 * in.below(5);
  view.flags = choose(in, 33);
  view.background = 0x010305u * in.u8();
  return view;
}

void choose_settings(Input& in, std::int32_t image) {
  if (in.u8() % 2 == 0) IMGLOW_set_transp_color(image, in.u8());
  if (in.u8() % 2 == 0) IMG_set_gamma(image, in.any_int());
  IMG_set_display_tone(image, choose(in, 101), in.i8());
  IMG_set_display_angle(image, 90 * in.below(5));
  if (in.u8() % 4 == 0) IMG_set_croprect(image, in.i8(), in.i8(), choose(in, 250), choose(in, 250));
  if (in.u8() % 4 == 0) IMG_set_resolution(image, choose(in, 300000), choose(in, 300000));
  if (in.u8() % 4 == 0) IMGLOW_set_rop(image, in.u8() << 16);
  IMGLOW_set_alias(choose(in, 3));
  IMGLOW_set_alias_quality(choose(in, 4));
  IMGLOW_autocolor(choose(in, 2));
}

bool is_known(std::int32_t result) {
  return one_of(result,
                {IMG_OUT_OF_MEMORY, IMG_UNSUPPORTED, IMG_EMPTY_DISPLAY_RECT, IMG_BAD_IMAGE});
}

void check_points(Input& in, std::int32_t image, const img_view& view) {
  std::int32_t x = 0, y = 0, back_x = 0, back_y = 0;
  const std::int32_t inside =
      IMG_window_to_image(image, &view, choose(in, 250), choose(in, 250), &x, &y);
  TQ_CLAIM(inside == 0 || inside == 1);
  std::int32_t width = 0, height = 0;
  IMG_bitmap_info(image, &width, &height, nullptr);
  TQ_CLAIM(x >= 0 && y >= 0 && x < width && y < height);
  TQ_CLAIM(one_of(IMG_image_to_window(image, &view, x, y, &back_x, &back_y), {0, 1}));
}

void check_change(Input& in, std::int32_t image, const img_view& view) {
  img_view changed = view;
  const std::int32_t result =
      in.u8() % 2 == 0 ? IMG_zoom_view(image, &changed, in.i8(), in.i8(), choose(in, 30000))
                       : IMG_scroll_view(image, &changed, in.any_int(), in.any_int());
  TQ_CLAIM(result == IMG_OK || is_known(result));
  if (result != IMG_OK) {
    TQ_CLAIM(std::memcmp(&changed, &view, sizeof view) == 0);
  } else if (in.u8() % 2 == 0) {
    TQ_CLAIM(IMG_view_layout(image, &changed, nullptr) == IMG_OK);
  }
}

// The window as a whole, in bands, and upside down, over the same pixels.
void check_pixels(Input& in, std::int32_t image, const img_view& view) {
  constexpr std::int32_t kFormats[] = {IMG_PIXELS_GREY, IMG_PIXELS_BGR, IMG_PIXELS_BGRX};
  const std::int32_t format = kFormats[in.below(3)];
  const std::int64_t row = std::int64_t{view.width} * (format / 8);
  // Of a struct that ends inside of its height the library sees another one.
  if (view.height < 1 || row < 1 || row > kLargestWindow / view.height) return;
  const auto stride = static_cast<std::ptrdiff_t>(row + in.below(5));
  const auto bytes = static_cast<std::size_t>(stride * (view.height - 1) + row);
  const std::uint8_t there = in.u8();
  Memory whole(bytes, there), bands(bytes, there);
  const std::int32_t result =
      IMGLOW_render_view(image, &view, format, whole.data(), stride, 0, view.height);
  TQ_CLAIM(result == IMG_OK || is_known(result));
  if (result != IMG_OK) return;
  const std::int32_t rows = std::max(1 + in.below(40), view.height / kMostBands);
  for (std::int32_t y = 0; y < view.height; y += rows) {
    const std::int32_t count = std::min(rows, view.height - y);
    std::uint8_t* const first = bands.data() + stride * y;
    TQ_CLAIM(IMGLOW_render_view(image, &view, format, first, stride, y, count) == IMG_OK);
  }
  TQ_CLAIM(whole == bands);
  Memory turned(bytes, there);
  std::uint8_t* const last = turned.data() + stride * (view.height - 1);
  TQ_CLAIM(IMGLOW_render_view(image, &view, format, last, -stride, 0, view.height) == IMG_OK);
  for (std::int32_t y = 0; y < view.height; ++y) {
    TQ_CLAIM(std::memcmp(last - stride * y, &whole[static_cast<std::size_t>(stride * y)],
                         static_cast<std::size_t>(row)) == 0);
  }
}

}  // namespace

void fuzz(Bytes input) {
  Input in(input);
  Memory dib = choose_dib(in);
  const std::int32_t image = IMG_create_handle_keep(dib.data());
  TQ_CLAIM(image >= 0);
  if (in.u8() % 2 == 0) IMG_dib_to_runs(image);
  choose_settings(in, image);
  memory_probe::refuse_above(kLargestAllowed);
  for (int i = 0; i < kMostViews && !in.empty(); ++i) {
    const img_view view = choose_view(in);
    img_layout layout{};
    const std::int32_t result = IMG_view_layout(image, &view, &layout);
    TQ_CLAIM(result == IMG_OK || is_known(result));
    if (result != IMG_OK) continue;
    TQ_CLAIM(layout.width > 0 && layout.height > 0 && layout.scroll_x >= 0 &&
             layout.scroll_x <= layout.scroll_width && layout.scroll_y >= 0 &&
             layout.scroll_y <= layout.scroll_height);
    check_points(in, image, view);
    check_change(in, image, view);
    check_pixels(in, image, view);
    TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  }
  memory_probe::refuse_above(kLargestBlock);
  IMGLOW_set_alias(1);
  IMGLOW_set_alias_quality(1);
  IMGLOW_autocolor(0);
  IMG_delete_bitmap(image);
  TQ_CLAIM(memory_probe::live_blocks() == 0);
}

}  // namespace tq::fuzz
