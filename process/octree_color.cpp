// A palette made for the image, and serpentine Floyd-Steinberg diffusion against it.
#include <algorithm>

#include "process/nearest_colour.h"
#include "process/octree.h"
#include "process/process.h"
#include "process/rebuild.h"
#include "process/sixteen_colours.h"

namespace tq::process {
namespace {

constexpr std::uint32_t kCountMask = 0x3FFFFFFF;
constexpr std::uint32_t kMostGiven = 65536;

struct ThreeErrors {
  std::int16_t channel[4];  // blue, green, red, unused
};

// Colours to palette indices, diffusing the errors.
class PaletteDiffuser {
 public:
  PaletteDiffuser(const Octree& tree, std::span<const Rgb> palette)
      : tree_(tree), palette_(palette) {}

  Status allocate(std::int32_t width) {
    TQ_TRY(known_.allocate(kKnown));
    TQ_TRY(errors_[0].allocate(width));
    return errors_[1].allocate(width);
  }

  // The next row, from the top; every other one runs from right to left.
  void diffuse(std::span<const Rgb> colours, bool rightward, std::uint8_t* indices) {
    std::swap(errors_[0], errors_[1]);
    std::fill_n(errors_[1].data() - 1, colours.size() + 2, ThreeErrors{});
    const auto width = static_cast<std::int32_t>(colours.size());
    const std::int32_t step = rightward ? 1 : -1;
    std::int32_t x = rightward ? 0 : width - 1;
    for (std::int32_t left = width; left > 0; --left, x += step) {
      indices[x] = diffuse_pixel(colours[x], errors_[0].data() + x, errors_[1].data() + x, step);
    }
  }

 private:
  struct KnownColour {
    std::uint32_t key;  // the colour and a mark that the entry is in use
    std::uint8_t index;
  };
  static constexpr std::uint32_t kKnown = 1 << 14;

  std::uint8_t diffuse_pixel(Rgb colour, ThreeErrors* here, ThreeErrors* below, std::int32_t step) {
    const int value[3] = {std::clamp(colour.blue + here->channel[0], 0, 255),
                          std::clamp(colour.green + here->channel[1], 0, 255),
                          std::clamp(colour.red + here->channel[2], 0, 255)};
    const std::uint8_t index =
        find({static_cast<std::uint8_t>(value[0]), static_cast<std::uint8_t>(value[1]),
              static_cast<std::uint8_t>(value[2]), 0});
    const Rgb chosen = palette_[index];
    const int error[3] = {value[0] - chosen.blue, value[1] - chosen.green, value[2] - chosen.red};
    const auto give = [&](ThreeErrors& to, int weight) {
      for (int i = 0; i < 3; ++i) {
        to.channel[i] = static_cast<std::int16_t>(to.channel[i] + error[i] * weight / 16);
      }
    };
    give(here[step], 7);
    give(below[-step], 3);
    give(below[0], 5);
    give(below[step], 1);
    return index;
  }

  // The tree's answer, or the nearest palette entry where it has none; each is worked out once as
  // long as no other colour takes its place.
  std::uint8_t find(Rgb colour) {
    const std::uint32_t key = static_cast<std::uint32_t>(colour.red) << 16 |
                              static_cast<std::uint32_t>(colour.green) << 8 | colour.blue |
                              std::uint32_t{1} << 24;
    KnownColour& known = known_.data()[(key * 0x9E3779B1u) >> 18];
    if (known.key != key) {
      const std::int32_t leaf = tree_.find(colour);
      known = {key, leaf >= 0 ? static_cast<std::uint8_t>(leaf) : nearest_colour(colour, palette_)};
    }
    return known.index;
  }

  const Octree& tree_;
  std::span<const Rgb> palette_;
  RowBuffer<KnownColour> known_;
  RowBuffer<ThreeErrors, 1> errors_[2];
};

}  // namespace

Status octree_color(ImageSource& image, std::int32_t bits, const Rgb* palette, std::int32_t count) {
  if (image.bits() != 8 && image.bits() != 24 && image.bits() != 32) return StatusCode::wrong_depth;
  const std::uint32_t given = static_cast<std::uint32_t>(count) & kCountMask;
  if (palette != nullptr && given > kMostGiven) return StatusCode::unsupported;
  const int result_bits = bits == 4 ? 4 : 8;

  Octree tree;
  TQ_TRY(tree.allocate(std::min(std::clamp(count, 8, 256), 1 << result_bits)));
  RowBuffer<Rgb> colours;
  TQ_TRY(colours.allocate(image.width()));
  if (palette != nullptr) {
    for (const Rgb colour : std::span(palette, given)) tree.insert(colour);
  } else {
    for (std::int32_t y = 0; y < image.height(); ++y) {
      image.read_colours(y, colours.pixels());
      for (const Rgb colour : colours.pixels()) tree.insert(colour);
    }
  }

  std::array<Rgb, 256> chosen{};
  const std::int32_t written = tree.write_palette(chosen);
  PaletteDiffuser diffuser(tree, std::span(chosen).first(std::max(written, 1)));
  TQ_TRY(diffuser.allocate(image.width()));
  RowBuffer<std::uint8_t> indices;
  TQ_TRY(indices.allocate(image.width()));
  TQ_TRY(replace_rows(
      image, {result_bits, std::span(chosen).first(1 << result_bits), marker_below_32(image)},
      [&](std::int32_t y, std::span<std::uint8_t> row) {
        image.read_colours(y, colours.pixels());
        diffuser.diffuse(colours.pixels(), y % 2 == 0, indices.data());
        if (result_bits == 8) {
          std::copy_n(indices.data(), image.width(), row.data());
        } else {
          pack_nibbles(row.data(), image.width(), [&](std::int32_t x) { return indices[x]; });
        }
      }));
  return Status::from_raw(written);
}

}  // namespace tq::process
