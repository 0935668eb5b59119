// An image of any depth and form, and a chain of operations on it with any arguments. Whatever
// happens, what is said of the image agrees, an operation that fails leaves it as it was, searches
// leave it always, and sides are those that the operation promises.
#include "core/memory.h"
#include "fuzz/choose_image.h"

namespace tq::fuzz {
namespace {

constexpr std::uint64_t kLargestAllowed = 1 << 20;  // bytes; a larger block is refused
constexpr int kMostOperations = 12;
constexpr std::int32_t kMostRows = 3000;

std::int32_t rows_left = 0;

std::int32_t IMG_CB_STD count_row(std::intptr_t, std::int32_t value) {
  TQ_CLAIM(value > 0);
  return rows_left-- > 0 ? 0 : kAborted;
}

struct Sides {
  std::int64_t width, height;  // 0: any
};

// One operation; `sides` become those that the result must have.
std::int32_t run(Input& in, std::int32_t image, const View& before, Sides& sides, bool& searches) {
  const std::int32_t w = before.width, h = before.height;
  sides = {w, h};
  std::int32_t found[4];
  const auto check_inside = [&](std::int32_t result) {
    searches = true;
    if (result < 0) return result;
    TQ_CLAIM(result <= 1 && found[0] >= 0 && found[1] >= 0 && found[2] >= 0 && found[3] >= 0 &&
             found[0] + std::int64_t{found[2]} <= w && found[1] + std::int64_t{found[3]} <= h);
    return result;
  };
  switch (in.below(42)) {
    case 0:
      return IMG_flip_bitmap(image);
    case 1:
      return IMG_mirror_bitmap(image);
    case 2: {
      const std::int32_t value = choose(in, 10);
      if (value >= 5) sides = {h, w};
      return IMG_orient_bitmap(image, value);
    }
    case 3: {
      const std::int32_t x = choose(in, w), y = choose(in, h);
      const std::int32_t width = choose(in, w + 1), height = choose(in, h + 1);
      sides = {width, height};
      return IMG_crop_bitmap(image, x, y, width, height);
    }
    case 4: {
      const std::int32_t left = in.i8(), top = in.i8(), right = choose(in, 9), bottom = in.i8();
      sides = {std::int64_t{w} + left + right, std::int64_t{h} + top + bottom};
      return IMG_extend_bitmap(image, left, top, right, bottom, choose_from(in, -1, 2));
    }
    case 5: {
      const std::int32_t mode = choose(in, 5), angle = in.any_int();
      if ((mode & 1) == 0 || angle % 9000 == 0) sides = {0, 0};
      return IMG_rotate_bitmap(image, angle, -1, mode);
    }
    case 6: {
      const std::int32_t width = choose(in, 250), height = choose(in, 250);
      sides = {width, height};
      return IMG_resize_bitmap(image, width, height, choose(in, 7));
    }
    case 7:
      sides = {0, 0};
      IMG_set_resolution(image, choose(in, 200000), choose(in, 200000));
      return IMG_resample_bitmap(image, choose(in, 200), choose(in, 200), choose(in, 7));
    case 8:
      return IMG_invert_bitmap(image);
    case 9:
      return IMG_color_gray(image);
    case 10:
      return IMG_promote_8(image);
    case 11:
      return IMG_promote_24(image);
    case 12:
      return IMG_promote_32(image);
    case 13:
      return IMG_thresh_mono(image, choose(in, 256));
    case 14:
      return IMG_diffusion_mono(image);
    case 15:
      return IMG_octree_color(image, 4 + 4 * in.below(2), nullptr, choose(in, 257));
    case 16:
      return IMG_bayer_color(image);
    case 17:
      searches = true;
      return IMG_find_threshold(image);
    case 18:
      return IMG_adaptive_mono(image, choose(in, 4), choose(in, 40), choose(in, 60));
    case 19:
      return IMG_level_background(image);
    case 20:
    case 21:
      return IMG_despeckle_bitmap(image, choose(in, 20), choose(in, 20), choose(in, 9));
    case 22:
    case 23:
      return IMG_remove_lines(image, choose(in, 60), choose(in, 12), choose(in, 5));
    case 24:
      return check_inside(IMG_find_content(image, &found[0], &found[1], &found[2], &found[3]));
    case 25:
      sides = {0, 0};
      return IMG_autocrop_bitmap(image, choose(in, 20));
    case 26:
      return check_inside(IMG_find_paper(image, &found[0], &found[1], &found[2], &found[3]));
    case 27:
      return IMG_remove_border(image, choose_from(in, -1, 2));
    case 28:
      searches = true;
      return IMG_is_blank(image, choose(in, 101));
    case 29:
      return IMG_runs_to_dib(image);
    case 30:
      return IMG_tone_bitmap(image, choose_from(in, -100, 101), choose_from(in, -100, 101),
                             choose(in, 1001));
    case 31: {
      std::uint32_t counts[256];
      searches = true;
      return IMG_get_histogram(image, choose(in, 5), counts);
    }
    case 32:
      return IMG_auto_levels(image, choose_from(in, -1, 199));
    case 33:
      return IMG_equalize_bitmap(image);
    case 34:
      return IMG_filter_bitmap(image, choose(in, 8), choose(in, 130), choose(in, 256));
    case 35: {
      std::int32_t kernel[15 * 15];
      for (std::int32_t& weight : kernel) weight = in.i8();
      return IMG_convolve_bitmap(image, kernel, in.below(17), in.below(17), in.i8(), in.i8());
    }
    case 36:
      return IMG_quantize_bitmap(image, 4 + 4 * in.below(2), choose(in, 258), choose(in, 3));
    case 37:
      searches = true;
      return IMG_find_skew(image, choose(in, 4501), &found[0], &found[1]);
    case 38:
      return IMG_deskew_bitmap(image, choose(in, 4501), choose_from(in, -1, 500),
                               choose_from(in, -1, 2), &found[0]);
    case 39:
      searches = true;
      return IMG_find_orientation(image, &found[0], &found[1]);
    case 40:
      sides = {0, 0};
      return IMG_auto_orient_bitmap(image, choose_from(in, -1, 900), &found[0]);
    default:
      return IMG_dib_to_runs(image);
  }
}

}  // namespace

void fuzz(Bytes input) {
  Input in(input);
  Memory dib = choose_dib(in);
  const std::int32_t image = IMG_create_handle_keep(dib.data());
  TQ_CLAIM(image >= 0);
  IMGLOW_set_transp_color(image, in.u8());
  if (in.u8() % 2 == 0) IMG_dib_to_runs(image);
  const std::uint8_t rows = in.u8();
  IMG_set_statusbar(1, count_row, 1);
  memory_probe::refuse_above(kLargestAllowed);
  for (int i = 0; i < kMostOperations && !in.empty(); ++i) {
    const View before = look_at(image);
    rows_left = rows < 200 ? kMostRows : rows % 16;
    Sides sides{};
    bool searches = false;
    const std::uint8_t chance = in.u8();
    if (chance >= 240) memory_probe::refuse_after(chance % 8);
    const std::int32_t result = run(in, image, before, sides, searches);
    memory_probe::refuse_after(-1);
    TQ_CLAIM(memory_probe::tracked_blocks() == 0);
    const View after = look_at(image);
    TQ_CLAIM(result >= 0 || result == kAborted ||
             one_of(result, {IMG_OUT_OF_MEMORY, IMG_UNSUPPORTED, IMG_WRONG_DEPTH, IMG_NOT_GREY}));
    if (result < 0 || searches) {
      // A resolution was set on the way, which is not the operation's.
      TQ_CLAIM(after.pixels() == before.pixels() && after.bits == before.bits &&
               after.width == before.width);
      TQ_CLAIM(!searches || after.digest() == before.digest());
    } else if (sides.width != 0) {
      TQ_CLAIM(after.width == sides.width && after.height == sides.height);
    }
  }
  memory_probe::refuse_above(kLargestBlock);
  IMG_set_statusbar(0, nullptr, 0);
  IMG_delete_bitmap(image);
  TQ_CLAIM(memory_probe::live_blocks() == 0);
}

}  // namespace tq::fuzz
