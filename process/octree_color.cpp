// A palette made for the image, and serpentine Floyd-Steinberg diffusion against it.
#include <algorithm>

#include "pixels/rows.h"
#include "platform/cpu.h"
#include "process/index_finder.h"
#include "process/process.h"
#include "process/rebuild.h"
#include "process/x86/diffuse_sse2.h"

namespace tq::process {
namespace {

constexpr std::uint32_t kCountMask = 0x3FFFFFFF;
constexpr std::uint32_t kMostGiven = 65536;

constexpr int share(int error, int weight) {
  return error * weight / 16;
}

template <int kStep>
void diffuse_to_tree(const TreeRow& row, IndexFinder& finder) {
  int ahead[3] = {}, behind_sum[3] = {}, below_sum[3] = {};
  std::int32_t x = kStep > 0 ? 0 : row.width - 1;
  for (std::int32_t left = row.width; left > 0; --left, x += kStep) {
    const Rgb own = row.colours[x];
    const auto value = [&](int i, int channel) {
      const int sum = channel + row.received[x].channel[i] + ahead[i];
      return static_cast<std::uint8_t>(std::clamp(sum, 0, 255));
    };
    const Rgb v{value(0, own.blue), value(1, own.green), value(2, own.red), 0};
    const IndexFinder::Entry chosen = finder.find(v);
    row.indices[x] = chosen.index;
    const int error[3] = {v.blue - chosen.blue, v.green - chosen.green, v.red - chosen.red};
    for (int i = 0; i < 3; ++i) {
      ahead[i] = share(error[i], 7);
      row.below[x - kStep].channel[i] =
          static_cast<std::int16_t>(behind_sum[i] + share(error[i], 3));
      behind_sum[i] = below_sum[i] + share(error[i], 5);
      below_sum[i] = share(error[i], 1);
    }
  }
  for (int i = 0; i < 3; ++i) {
    row.below[x - kStep].channel[i] = static_cast<std::int16_t>(behind_sum[i]);
  }
}

// Rows of serpentine diffusion, from the top.
class PaletteDiffuser {
 public:
  explicit PaletteDiffuser(IndexFinder& finder) : finder_(finder) {}

  Status allocate(std::int32_t width) {
    TQ_TRY(errors_[0].allocate(width));
    return errors_[1].allocate(width);
  }

  void diffuse(std::span<const Rgb> colours, bool rightward, std::uint8_t* indices) {
    const TreeRow row{.width = static_cast<std::int32_t>(colours.size()),
                      .colours = colours.data(),
                      .received = errors_[0].data(),
                      .below = errors_[1].data(),
                      .indices = indices};
    const auto along = rightward ? right_ : left_;
    along(row, finder_);
    std::swap(errors_[0], errors_[1]);
  }

 private:
  using RowFunction = void (*)(const TreeRow& row, IndexFinder& finder);
  IndexFinder& finder_;
  RowBuffer<Channels, 1> errors_[2];
#if defined(__SSE2__)
  const bool fast_ = platform::cpu_features().sse2;
  RowFunction right_ = fast_ ? x86::diffuse_to_tree<1> : diffuse_to_tree<1>;
  RowFunction left_ = fast_ ? x86::diffuse_to_tree<-1> : diffuse_to_tree<-1>;
#else
  RowFunction right_ = diffuse_to_tree<1>, left_ = diffuse_to_tree<-1>;
#endif
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
      tree.insert_row(colours.pixels());
    }
  }

  // With an entry for every colour there are no errors to spread.
  const bool exact = palette == nullptr && tree.is_exact();
  std::array<Rgb, 256> chosen{};
  const std::int32_t written = tree.write_palette(chosen);
  const std::span<const Rgb> entries = std::span(chosen).first(std::max(written, 1));
  IndexFinder finder(tree, entries, exact);
  TQ_TRY(finder.allocate());
  PaletteDiffuser diffuser(finder);
  TQ_TRY(diffuser.allocate(image.width()));
  RowBuffer<std::uint8_t> indices;
  TQ_TRY(indices.allocate(image.width()));
  TQ_TRY(replace_rows(
      image, {result_bits, std::span(chosen).first(1 << result_bits), marker_below_32(image)},
      [&](std::int32_t y, std::span<std::uint8_t> row) {
        image.read_colours(y, colours.pixels());
        if (exact) {
          finder.find_row(colours.pixels(), indices.data());
        } else {
          diffuser.diffuse(colours.pixels(), y % 2 == 0, indices.data());
        }
        if (result_bits == 8) {
          std::copy_n(indices.data(), image.width(), row.data());
        } else {
          pixels::pack_nibbles(row.data(), image.width(),
                               [&](std::int32_t x) { return indices[x]; });
        }
      }));
  return Status::from_raw(written);
}

}  // namespace tq::process
