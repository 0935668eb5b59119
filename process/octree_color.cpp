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

// Palette indices of colours: the tree's answer, or the nearest entry where it has none. Each is
// worked out once, as long as no other colour takes its place.
class IndexFinder {
 public:
  IndexFinder(const Octree& tree, std::span<const Rgb> palette) : tree_(tree), palette_(palette) {}

  Status allocate() {
    TQ_TRY(cells_.allocate(1 << 15));
    return known_.allocate(kKnown);
  }

  std::uint8_t find(Rgb colour) {
    const std::uint16_t cell = cells_.data()[CellColours::cell(colour)];
    return (cell & kWhole) != 0 ? static_cast<std::uint8_t>(cell) : find_slowly(colour);
  }

 private:
  // The tree and the distances look at 7 bits of a channel, except on the tree's last level.
  struct KnownColour {
    std::uint32_t key;  // 7 bits a channel and a mark that the entry is in use
    std::uint8_t index;
  };
  static constexpr std::uint32_t kKnown = 1 << 15;
  static constexpr std::uint16_t kWhole = 0x100;  // one leaf has all colours of the cell

  std::uint8_t find_slowly(Rgb colour) {
    const std::uint32_t key = static_cast<std::uint32_t>(colour.red >> 1) << 14 |
                              static_cast<std::uint32_t>(colour.green >> 1) << 7 |
                              static_cast<std::uint32_t>(colour.blue >> 1) | 1u << 21;
    KnownColour& known = known_.data()[(key * 0x9E3779B1u) >> 17];
    if (known.key == key) return known.index;
    if (colour == last_) return last_index_;
    const Octree::Place place = tree_.find(colour);
    const std::uint8_t index = place.index >= 0 ? static_cast<std::uint8_t>(place.index)
                                                : nearest_colour(colour, palette_);
    if (place.level < 7) known = {key, index};
    last_ = colour;
    last_index_ = index;
    if (place.level <= 4 && place.index >= 0) {
      cells_.data()[CellColours::cell(colour)] = static_cast<std::uint16_t>(kWhole | index);
    }
    return index;
  }

  const Octree& tree_;
  std::span<const Rgb> palette_;
  RowBuffer<std::uint16_t> cells_;
  RowBuffer<KnownColour> known_;
  Rgb last_{0, 0, 0, 255};  // no colour yet
  std::uint8_t last_index_ = 0;
};

struct ThreeErrors {
  std::int16_t channel[4];  // blue, green, red, unused
};

constexpr int share(int error, int weight) {
  return error * weight / 16;
}

// Rows of serpentine diffusion. Errors stay within 16 bits: no pixel gets more than 255.
class PaletteDiffuser {
 public:
  PaletteDiffuser(IndexFinder& finder, std::span<const Rgb> palette)
      : finder_(finder), palette_(palette) {}

  Status allocate(std::int32_t width) {
    TQ_TRY(errors_[0].allocate(width));
    return errors_[1].allocate(width);
  }

  // The next row, from the top; every other one runs from right to left.
  void diffuse(std::span<const Rgb> colours, bool rightward, std::uint8_t* indices) {
    if (rightward) {
      diffuse_along<1>(colours, indices);
    } else {
      diffuse_along<-1>(colours, indices);
    }
    std::swap(errors_[0], errors_[1]);
  }

 private:
  template <int kStep>
  void diffuse_along(std::span<const Rgb> colours, std::uint8_t* indices) {
    const auto width = static_cast<std::int32_t>(colours.size());
    std::int32_t x = kStep > 0 ? 0 : width - 1;
    const Rgb* colour = colours.data() + x;
    const ThreeErrors* received = errors_[0].data() + x;
    ThreeErrors* below = errors_[1].data() + x;
    indices += x;
    int ahead[3] = {}, behind_sum[3] = {}, below_sum[3] = {};
    for (; width > 0 && x >= 0 && x < width; x += kStep) {
      const auto value = [&](int i, int own) {
        return static_cast<std::uint8_t>(std::clamp(own + received->channel[i] + ahead[i], 0, 255));
      };
      const Rgb v{value(0, colour->blue), value(1, colour->green), value(2, colour->red), 0};
      const std::uint8_t index = finder_.find(v);
      *indices = index;
      const Rgb chosen = palette_.data()[index];
      const int error[3] = {v.blue - chosen.blue, v.green - chosen.green, v.red - chosen.red};
      for (int i = 0; i < 3; ++i) {
        ahead[i] = share(error[i], 7);
        below[-kStep].channel[i] = static_cast<std::int16_t>(behind_sum[i] + share(error[i], 3));
        behind_sum[i] = below_sum[i] + share(error[i], 5);
        below_sum[i] = share(error[i], 1);
      }
      colour += kStep;
      received += kStep;
      below += kStep;
      indices += kStep;
    }
    for (int i = 0; i < 3; ++i) below[-kStep].channel[i] = static_cast<std::int16_t>(behind_sum[i]);
  }

  IndexFinder& finder_;
  std::span<const Rgb> palette_;
  RowBuffer<ThreeErrors, 1> errors_[2];
};

// All pixels; equal neighbours go in together.
void insert_row(Octree& tree, std::span<const Rgb> colours) {
  std::size_t x = 0;
  while (x < colours.size()) {
    const Rgb colour = colours[x];
    const std::size_t first = x++;
    while (x < colours.size() && colours[x] == colour) ++x;
    tree.insert(colour, static_cast<std::uint32_t>(x - first));
  }
}

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
      insert_row(tree, colours.pixels());
    }
  }

  std::array<Rgb, 256> chosen{};
  const std::int32_t written = tree.write_palette(chosen);
  const std::span<const Rgb> entries = std::span(chosen).first(std::max(written, 1));
  IndexFinder finder(tree, entries);
  TQ_TRY(finder.allocate());
  PaletteDiffuser diffuser(finder, entries);
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
