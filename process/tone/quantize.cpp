// Colours to a palette of their own: boxes of colours are split where that leaves the least squared
// error (Wu), from counts and sums over cells of 5 bits a channel.
#include <algorithm>
#include <array>
#include <climits>
#include <utility>

#include "process/process.h"
#include "process/tone/tone.h"

namespace tq::process {
namespace {

constexpr int kBits = 5, kSide = 1 << kBits, kWidth = 8 - kBits;
constexpr int kCubeSide = kSide + 1;  // sums begin with 0
constexpr int kMostColours = 256;

struct Moments {
  std::int64_t count, sum[3], squares;

  void add(const Moments& more, int sign) {
    count += sign * more.count;
    for (int c = 0; c < 3; ++c) sum[c] += sign * more.sum[c];
    squares += sign * more.squares;
  }
  // What the mean alone explains of the squares.
  double explained() const {
    double total = 0;
    for (const std::int64_t s : sum) total += static_cast<double>(s) * static_cast<double>(s);
    return total / static_cast<double>(count);
  }
  double error() const { return static_cast<double>(squares) - explained(); }
  std::array<std::uint8_t, 3> mean() const {
    std::array<std::uint8_t, 3> mean{};
    for (int c = 0; c < 3; ++c) mean[c] = byte((2 * sum[c] + count) / (2 * count));
    return mean;
  }
};

// Red, green, blue, in cells; `from` is outside.
struct Box {
  std::array<int, 3> from, to;
};

constexpr int place_of(int red, int green, int blue) {
  return (red * kCubeSide + green) * kCubeSide + blue;
}
constexpr int cell_of(Rgb c) {
  return (c.red >> kWidth) * kSide * kSide + (c.green >> kWidth) * kSide + (c.blue >> kWidth);
}

// Sums over all cells up to a place.
class ColourCube {
 public:
  Status allocate() {
    for (std::uint32_t low = 0; low < kLows; ++low) {
      const std::uint64_t red = low >> 2 * kWidth, green = low >> kWidth & kLow, blue = low & kLow;
      const std::uint64_t squares = red * red + green * green + blue * blue;
      add_[low] = 1 | red << kAt[0] | green << kAt[1] | blue << kAt[2] | squares << kAtSquares;
    }
    TQ_TRY(counted_.allocate(kSide * kSide * kSide));
    return moments_.allocate(kCubeSide * kCubeSide * kCubeSide);
  }

  void count(std::span<const Rgb> colours) {
    std::uint64_t* const counted = counted_.data();
    for (const Rgb c : colours) {
      const int cell = cell_of(c);
      const int low = (c.red & kLow) << 2 * kWidth | (c.green & kLow) << kWidth | (c.blue & kLow);
      counted[cell] += add_[low];
      if ((counted[cell] & kMostCounted) == kMostCounted) take_over(cell);
    }
  }
  void cumulate() {
    for (int cell = 0; cell < kSide * kSide * kSide; ++cell) take_over(cell);
    for (const int step : {place_of(1, 0, 0), place_of(0, 1, 0), place_of(0, 0, 1)}) {
      for (int at = step; at < std::ssize(moments_.pixels()); ++at) {
        // Whatever lies at place 0 of a side is 0, and stays so.
        const bool begins = at / step % kCubeSide == 0;
        if (!begins) moments_[at].add(moments_[at - step], 1);
      }
    }
  }
  Moments of(const Box& box) const {
    Moments sum{};
    for (int corner = 0; corner < 8; ++corner) {
      const auto at = [&](int axis) {
        return (corner >> axis & 1) != 0 ? box.from[axis] : box.to[axis];
      };
      const int lower = (corner & 1) + (corner >> 1 & 1) + (corner >> 2);
      sum.add(moments_[place_of(at(0), at(1), at(2))], lower % 2 == 0 ? 1 : -1);
    }
    return sum;
  }

 private:
  // What a cell's colours have beyond its corner is added up in one number: how many there are, the sums of
  // red, green and blue, and of the squares. Of so many none of them passes the next one.
  static constexpr std::uint64_t kMostCounted = 511, kSums = 4095;
  static constexpr int kAt[3] = {9, 21, 33}, kAtSquares = 45;
  static constexpr int kLow = (1 << kWidth) - 1, kLows = 1 << 3 * kWidth;

  void take_over(int cell) {
    const std::uint64_t counted = counted_.data()[cell];
    if (counted == 0) return;
    counted_.data()[cell] = 0;
    const int at[3] = {cell / kSide / kSide, cell / kSide % kSide, cell % kSide};
    Moments& moments = moments_.data()[place_of(at[0] + 1, at[1] + 1, at[2] + 1)];
    const auto count = static_cast<std::int64_t>(counted & kMostCounted);
    moments.count += count;
    moments.squares += static_cast<std::int64_t>(counted >> kAtSquares);
    for (int c = 0; c < 3; ++c) {
      const std::int64_t corner = at[c] << kWidth;
      const auto beyond = static_cast<std::int64_t>(counted >> kAt[c] & kSums);
      moments.sum[c] += count * corner + beyond;
      moments.squares += (count * corner + 2 * beyond) * corner;
    }
  }

  std::array<std::uint64_t, kLows> add_{};
  RowBuffer<std::uint64_t> counted_;
  RowBuffer<Moments> moments_;
};

// The box becomes its lower part; false where there is nothing to split.
bool split(const ColourCube& cube, Box& box, Box& upper) {
  const Moments all = cube.of(box);
  double best = -1;
  Box lower{};
  for (int axis = 0; axis < 3; ++axis) {
    for (int at = box.from[axis] + 1; at < box.to[axis]; ++at) {
      Box part = box;
      part.to[axis] = at;
      const Moments first = cube.of(part);
      Moments rest = all;
      rest.add(first, -1);
      if (first.count == 0 || rest.count == 0) continue;
      const double explained = first.explained() + rest.explained();
      if (explained <= best) continue;
      best = explained;
      lower = upper = part;
      upper.from[axis] = at;
      upper.to[axis] = box.to[axis];
    }
  }
  if (best < 0) return false;
  box = lower;
  return true;
}

// Returns how many entries there are.
int choose_palette(const ColourCube& cube, int colours, std::array<Rgb, 256>& palette) {
  std::array<Box, kMostColours> boxes;
  std::array<double, kMostColours> errors;
  int count = 1;
  boxes[0] = {{0, 0, 0}, {kSide, kSide, kSide}};
  errors[0] = cube.of(boxes[0]).error();
  while (count < colours) {
    const auto worst = std::max_element(errors.begin(), errors.begin() + count) - errors.begin();
    if (errors[worst] <= 0) break;
    if (!split(cube, boxes[worst], boxes[count])) {
      errors[worst] = 0;
      continue;
    }
    errors[worst] = cube.of(boxes[worst]).error();
    errors[count] = cube.of(boxes[count]).error();
    ++count;
  }
  for (int i = 0; i < count; ++i) {
    const auto [red, green, blue] = cube.of(boxes[i]).mean();
    palette[i] = {blue, green, red, 0};
  }
  return count;
}

std::uint8_t nearest_entry(int red, int green, int blue, std::span<const Rgb> palette) {
  int least = INT_MAX;
  std::size_t nearest = 0;
  for (std::size_t i = 0; i < palette.size(); ++i) {
    const int r = palette[i].red - red, g = palette[i].green - green, b = palette[i].blue - blue;
    const int distance = r * r + g * g + b * b;
    if (distance >= least) continue;
    least = distance;
    nearest = i;
  }
  return byte(static_cast<int>(nearest));
}

// The index of every cell, by the mean of its colours, or its middle where it has none; these cells are
// wanted only where colours move.
Status find_indices(const ColourCube& cube, std::span<const Rgb> palette, bool all,
                    RowBuffer<std::uint8_t>& indices) {
  TQ_TRY(indices.allocate(kSide * kSide * kSide));
  for (int i = 0; i < kSide * kSide * kSide; ++i) {
    const std::array<int, 3> at{i / kSide / kSide, i / kSide % kSide, i % kSide};
    const Moments cell = cube.of({at, {at[0] + 1, at[1] + 1, at[2] + 1}});
    if (cell.count == 0 && !all) continue;
    constexpr int kMiddle = 1 << (kWidth - 1);
    int level[3];
    for (int c = 0; c < 3; ++c) {
      level[c] = cell.count > 0 ? cell.mean()[c] : (at[c] << kWidth) + kMiddle;
    }
    indices[i] = nearest_entry(level[0], level[1], level[2], palette);
  }
  return kOk;
}

// Up to so many different colours, in the order in which they come.
class FewColours {
 public:
  explicit FewColours(int most) : most_(most) { slots_.fill(kFree); }

  // False when there are more.
  bool add(std::span<const Rgb> colours) {
    for (const Rgb c : colours) {
      const std::size_t slot = slot_of(c);
      if (slots_[slot] != kFree) continue;
      if (count_ == most_) return false;
      palette_[count_] = {c.blue, c.green, c.red, 0};
      slots_[slot] = static_cast<std::int16_t>(count_++);
    }
    return true;
  }
  std::uint8_t find(Rgb c) const { return byte(std::max<std::int16_t>(slots_[slot_of(c)], 0)); }
  const std::array<Rgb, 256>& palette() const { return palette_; }
  int count() const { return count_; }

 private:
  static constexpr std::int16_t kFree = -1;
  static constexpr std::size_t kSlots = 1024;  // most of them stay free

  std::size_t slot_of(Rgb c) const {
    const std::uint32_t key = c.red << 16 | c.green << 8 | c.blue;
    std::size_t slot = (key * 0x9E3779B1u) >> 22;
    while (slots_[slot] != kFree) {
      const Rgb entry = palette_[static_cast<std::size_t>(slots_[slot])];
      if (entry.red == c.red && entry.green == c.green && entry.blue == c.blue) break;
      slot = (slot + 1) % kSlots;
    }
    return slot;
  }
  int most_, count_ = 0;
  std::array<Rgb, 256> palette_{};
  std::array<std::int16_t, kSlots> slots_;
};

// Floyd-Steinberg, every second row from the right. Errors are kept in sixteenths.
class Diffusion {
 public:
  Status allocate(int width) {
    TQ_TRY(current_.allocate(width));
    return below_.allocate(width);
  }
  void make(std::span<const Rgb> colours, bool leftward, std::span<const Rgb> palette,
            const std::uint8_t* index_of_cell, std::uint8_t* indices) {
    const int width = static_cast<int>(colours.size()), step = leftward ? -1 : 1;
    std::swap(current_, below_);
    for (int x = -1; x <= width; ++x) below_[x] = {};
    for (int x = leftward ? width - 1 : 0; x >= 0 && x < width; x += step) {
      const auto value = [&](int level, int c) {
        return std::clamp(level + ((current_[x].channel[c] + 8) >> 4), 0, 255);
      };
      const Rgb c = colours[x];
      const int wanted[3] = {value(c.red, 0), value(c.green, 1), value(c.blue, 2)};
      const std::uint8_t index =
          index_of_cell[cell_of({byte(wanted[2]), byte(wanted[1]), byte(wanted[0]), 0})];
      const int got[3] = {palette[index].red, palette[index].green, palette[index].blue};
      indices[x] = index;
      for (int i = 0; i < 3; ++i) {
        const int error = wanted[i] - got[i];
        current_[x + step].channel[i] += 7 * error;
        below_[x - step].channel[i] += 3 * error;
        below_[x].channel[i] += 5 * error;
        below_[x + step].channel[i] += error;
      }
    }
  }

 private:
  struct Error {
    std::int32_t channel[3];
  };
  RowBuffer<Error, 1> current_, below_;
};

}  // namespace

Status quantize_bitmap(ImageSource& image, std::int32_t bits, std::int32_t colours,
                       std::int32_t dither) {
  release_display_cache(image.record());
  if (image.bits() != 24 && image.bits() != 32) return StatusCode::wrong_depth;
  if ((bits != 4 && bits != 8) || colours < 2 || colours > 1 << bits || dither < 0 || dither > 1) {
    return StatusCode::unsupported;
  }
  const int width = image.width();
  RowBuffer<Rgb> row;
  TQ_TRY(row.allocate(width));
  const auto read = [&](int y) {
    image.read_colours(y, row.pixels());
    return std::span<const Rgb>(row.pixels());
  };
  FewColours few(colours);
  bool are_few = true;
  for (int y = 0; y < image.height() && are_few; ++y) are_few = few.add(read(y));

  std::array<Rgb, 256> palette = few.palette();
  int count = few.count();
  RowBuffer<std::uint8_t> index_of_cell, indices;
  Diffusion diffusion;
  TQ_TRY(indices.allocate(width));
  if (!are_few) {
    ColourCube cube;
    TQ_TRY(cube.allocate());
    for (int y = 0; y < image.height(); ++y) cube.count(read(y));
    cube.cumulate();
    palette = {};
    count = choose_palette(cube, colours, palette);
    TQ_TRY(find_indices(cube, std::span(palette).first(count), dither != 0, index_of_cell));
    TQ_TRY(diffusion.allocate(width));
  }
  TQ_TRY(replace_rows(image, {bits, std::span(palette).first(1 << bits), marker_below_32(image)},
                      [&](int y, Row out) {
                        const std::span<const Rgb> from = read(y);
                        std::uint8_t* const to = bits == 8 ? out.data() : indices.data();
                        if (are_few) {
                          std::ranges::transform(from, to, [&](Rgb c) { return few.find(c); });
                        } else if (dither != 0) {
                          diffusion.make(from, y % 2 == 1, palette, index_of_cell.data(), to);
                        } else {
                          std::ranges::transform(
                              from, to, [&](Rgb c) { return index_of_cell.data()[cell_of(c)]; });
                        }
                        if (bits == 4)
                          pixels::pack_nibbles(out.data(), width, [to](int x) { return to[x]; });
                      }));
  return Status::from_raw(count);
}

}  // namespace tq::process
