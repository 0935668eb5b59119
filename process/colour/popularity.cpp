// The 256 most frequent 12-bit colours, without diffusion.
#include <algorithm>
#include <functional>

#include "process/colour/kernels.h"
#include "process/process.h"

namespace tq::process {
namespace {

constexpr int kKeys = 4096;
constexpr std::uint16_t kHighestKey = kKeys - 1;
constexpr std::int16_t kUnknown = -1;

// The bottom of the key's cell, not its middle.
constexpr Rgb colour_of(int key) {
  return {byte((key & 15) << 4), byte(key & 0xF0), byte(key >> 8 << 4), 0};
}

struct Histogram {
  std::array<std::uint16_t, kKeys> counts;  // a 65536th pixel of a colour starts again at 0
  std::array<std::uint16_t, kKeys> others;  // of every other pixel, so that equal neighbours do not
                                            // wait for each other
  std::array<std::uint32_t, kKeys> ranks;
  std::array<std::int16_t, kKeys> nearest;
};

// Rows of an image as 12-bit colours.
class KeyRows {
 public:
  explicit KeyRows(const ImageSource& image) : image_(image) {}
  Status allocate() {
    if (image_.bits() == 32) TQ_TRY(colours_.allocate(image_.width()));
    return keys_.allocate(image_.width());
  }
  std::span<const std::uint16_t> read(int y) const {
    if (image_.bits() == 24) {
      kernels().keys_24(image_.row(y).data(), keys_.data(), image_.width());
    } else {
      image_.read_colours(y, colours_.pixels());
      std::transform(colours_.pixels().begin(), colours_.pixels().end(), keys_.data(), key_of);
    }
    return keys_.pixels();
  }

 private:
  const ImageSource& image_;
  RowBuffer<Rgb> colours_;  // of 32-bit rows
  RowBuffer<std::uint16_t> keys_;
};

void count_keys(Histogram& histogram, std::span<const std::uint16_t> keys) {
  std::size_t x = 0;
  for (; x + 2 <= keys.size(); x += 2) {
    ++histogram.counts[keys[x]];
    ++histogram.others[keys[x + 1]];
  }
  if (x < keys.size()) ++histogram.counts[keys[x]];
}

void add_counts(Histogram& histogram) {
  for (std::size_t key = 0; key < kKeys; ++key) {
    histogram.counts[key] = word(histogram.counts[key] + histogram.others[key]);
  }
}

// Entry 0 is black whatever happens, and black is counted again. Of equal counts the highest key
// comes first; when all are used up, key 4095 fills the rest.
void choose_keys(Histogram& histogram, std::array<std::uint16_t, 256>& keys) {
  std::size_t used = 0;
  for (std::uint32_t key = 0; key < kKeys; ++key) {
    if (histogram.counts[key] == 0) continue;
    histogram.ranks[used++] = std::uint32_t{histogram.counts[key]} << 12 | key;
  }
  const std::size_t chosen = std::min(used, keys.size() - 1);
  const auto ranks = histogram.ranks.begin();
  std::partial_sort(ranks, ranks + chosen, ranks + used, std::greater<>());
  keys.fill(kHighestKey);
  keys[0] = 0;
  for (std::size_t i = 0; i < chosen; ++i) {
    keys[i + 1] = word(histogram.ranks[i] & kHighestKey);
  }
}

// Distances are those of the cells, the lowest index of equal ones wins. Called once for a key, from
// a loop over pixels whose registers it would take.
[[gnu::noinline]] std::int16_t nearest_key(int key, const std::array<std::uint16_t, 256>& keys) {
  const auto square = [](int a, int b) { return (2 * a - 2 * b) * (2 * a - 2 * b); };
  int least = 65535;
  std::int16_t found = 0;
  for (std::int16_t i = 0; i < 256 && least > 0; ++i) {
    const int distance = square(key >> 8, keys[i] >> 8) + square(key >> 4 & 15, keys[i] >> 4 & 15) +
                         square(key & 15, keys[i] & 15);
    if (distance < least) {
      least = distance;
      found = i;
    }
  }
  return found;
}

}  // namespace

Status popularity_color(ImageSource& image) {
  if (image.bits() != 24 && image.bits() != 32) return StatusCode::unsupported;
  RowBuffer<Histogram> block;
  TQ_TRY(block.allocate(1));
  Histogram& histogram = block[0];
  KeyRows rows(image);
  TQ_TRY(rows.allocate());

  for (int y = 0; y < image.height(); ++y) count_keys(histogram, rows.read(y));
  add_counts(histogram);
  std::array<std::uint16_t, 256> keys;
  choose_keys(histogram, keys);
  std::array<Rgb, 256> palette;
  std::transform(keys.begin(), keys.end(), palette.begin(), colour_of);
  histogram.nearest.fill(kUnknown);

  return replace_rows(image, {8, palette, marker_below_32(image)}, [&](int y, Row row) {
    std::uint8_t* out = row.data();
    for (const std::uint16_t key : rows.read(y)) {
      std::int16_t& nearest = histogram.nearest[key];
      if (nearest == kUnknown) nearest = nearest_key(key, keys);
      *out++ = byte(nearest);
    }
  });
}

}  // namespace tq::process
