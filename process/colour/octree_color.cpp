// A palette made for the image, and serpentine Floyd-Steinberg diffusion against it.
#include <algorithm>
#include <utility>

#include "process/colour/kernels.h"
#include "process/colour/octree.h"
#include "process/process.h"

namespace tq::process {

IndexFinder::IndexFinder(const Octree& tree, std::span<const Rgb> palette, bool exact)
    : tree_(tree), palette_(palette), exact_(exact), unknown_(entry_of(0)) {
  unknown_.blue ^= 1;
}

Status IndexFinder::allocate() {
  TQ_TRY(cells_.allocate(kCells));
  std::fill_n(cells_.data(), kCells, unknown_);
  return known_.allocate(kKnown);
}

IndexedColour IndexFinder::entry_of(std::uint8_t index) const {
  const Rgb colour = palette_[index];
  return {colour.blue, colour.green, colour.red, index};
}

IndexedColour IndexFinder::find_slowly(Rgb colour) {
  return entry_of(index_of(colour));
}

std::uint8_t IndexFinder::index_of(Rgb colour) {
  const std::uint32_t kept_bits = exact_ ? 0xFFFFFF : 0xFEFEFE;
  const std::uint32_t key = (std::bit_cast<std::uint32_t>(colour) & kept_bits) | 1u << 24;
  KnownColour& known = known_.data()[(key * 0x9E3779B1u) >> 17];
  if (known.key == key) return known.index;
  if (colour == last_) return last_index_;
  const Octree::Place place = tree_.find(colour);
  const std::uint8_t index =
      place.index >= 0 ? byte(place.index) : pixels::nearest_colour(colour, palette_);
  if (place.level < 7 || exact_) known = {key, index};
  last_ = colour;
  last_index_ = index;
  if (place.level <= 4 && place.index >= 0) cells_[cell_of(colour)] = entry_of(index);
  return index;
}

void IndexFinder::find_row(std::span<const Rgb> colours, std::uint8_t* indices) {
  for_each_run(colours, [&](std::size_t first, std::size_t count) {
    std::fill_n(indices + first, count, index_of(colours[first]));
  });
}

namespace {

constexpr std::uint32_t kCountMask = 0x3FFFFFFF;
constexpr std::uint32_t kMostGiven = 65536;

// Rows of serpentine diffusion, from the top.
class PaletteDiffuser {
 public:
  explicit PaletteDiffuser(IndexFinder& finder) : finder_(finder) {}

  Status allocate(int width) {
    TQ_TRY(errors_[0].allocate(width));
    return errors_[1].allocate(width);
  }

  void diffuse(std::span<const Rgb> colours, bool rightward, std::uint8_t* indices) {
    const TreeRow row{.width = static_cast<int>(colours.size()),
                      .colours = colours.data(),
                      .received = errors_[0].data(),
                      .below = errors_[1].data(),
                      .indices = indices};
    (rightward ? kernels_.diffuse_to_tree_rightward : kernels_.diffuse_to_tree_leftward)(row,
                                                                                         finder_);
    std::swap(errors_[0], errors_[1]);
  }

 private:
  const Kernels kernels_ = kernels();
  IndexFinder& finder_;
  RowBuffer<Channels, 1> errors_[2];
};

}  // namespace

Status octree_color(ImageSource& image, std::int32_t bits, const Rgb* palette, std::int32_t count) {
  if (image.bits() != 8 && image.bits() != 24 && image.bits() != 32) return StatusCode::wrong_depth;
  const std::uint32_t given = count & kCountMask;
  if (palette != nullptr && given > kMostGiven) return StatusCode::unsupported;
  const int result_bits = bits == 4 ? 4 : 8;

  Octree tree;
  TQ_TRY(tree.allocate(std::min(std::clamp(count, 8, 256), 1 << result_bits)));
  RowBuffer<Rgb> colours;
  TQ_TRY(colours.allocate(image.width()));
  if (palette != nullptr) {
    for (const Rgb colour : std::span(palette, given)) tree.insert(colour);
  } else {
    for (int y = 0; y < image.height(); ++y) {
      image.read_colours(y, colours.pixels());
      tree.insert_row(colours.pixels());
    }
  }

  // With an entry for every colour there are no errors to spread.
  const bool exact = palette == nullptr && tree.is_exact();
  std::array<Rgb, 256> chosen{};
  const std::int32_t written = tree.write_palette(chosen);
  IndexFinder finder(tree, std::span(chosen).first(std::max(written, 1)), exact);
  TQ_TRY(finder.allocate());
  PaletteDiffuser diffuser(finder);
  TQ_TRY(diffuser.allocate(image.width()));
  RowBuffer<std::uint8_t> indices;
  TQ_TRY(indices.allocate(image.width()));
  const auto* const nibbles = pixels::find_layout(pixels::Layout::bytes, 4);
  TQ_TRY(replace_rows(
      image, {result_bits, std::span(chosen).first(1 << result_bits), marker_below_32(image)},
      [&](int y, Row row) {
        image.read_colours(y, colours.pixels());
        if (exact) {
          finder.find_row(colours.pixels(), indices.data());
        } else {
          diffuser.diffuse(colours.pixels(), y % 2 == 0, indices.data());
        }
        if (result_bits == 8) {
          std::copy_n(indices.data(), image.width(), row.data());
        } else {
          pixels::unpack(*nibbles, indices.pixels(), image.width(), row);
        }
      }));
  return Status::from_raw(written);
}

}  // namespace tq::process
