// Levels by a table, whoever makes it: brightness and contrast, a caller, a histogram.
#include "process/tone/tone.h"

#include "pixels/tone_table.h"
#include "process/geometry/grey_rows.h"
#include "process/process.h"
#include "process/tone/kernels.h"

namespace tq::process {
namespace {

constexpr bool is_within(std::int32_t value, std::int32_t least, std::int32_t most) {
  return least <= value && value <= most;
}

// Ink is what light lacks.
LevelTable of_inks(const LevelTable& table) {
  LevelTable mirrored{};
  for (int v = 0; v < 256; ++v) mirrored[v] = byte(255 - table[255 - v]);
  return mirrored;
}

// Indices of a grey palette; one whose level stays is kept, though others may have that level.
LevelTable of_indices(const ImageSource& image, const LevelTable& table) {
  const GreyTables greys(image.palette());
  LevelTable indices{};
  for (int i = 0; i < 256; ++i) {
    const std::uint8_t level = greys.levels[i];
    indices[i] = table[level] == level ? byte(i) : greys.index[table[level]];
  }
  return indices;
}

// A table for each byte of a pixel, in turn.
template <int kChannels>
void map_channels(Bytes from, const std::array<LevelTable, 4>& tables, Row to) {
  for (std::size_t i = 0; i + kChannels <= from.size(); i += kChannels) {
    for (int c = 0; c < kChannels; ++c) to[i + c] = tables[c][from[i + c]];
  }
}

// The bytes of a row that hold pixels.
Bytes pixel_bytes(const ImageSource& image, int y) {
  const std::int64_t bits = std::int64_t{image.width()} * image.bits();
  return plain_row(image.record(), y).first(static_cast<std::size_t>((bits + 7) / 8));
}

Status map_bytes(ImageSource& image, const LevelTable& table) {
  const ToneKernels kernels = tone_kernels();
  return replace_single_rows(
      image, same_kind(image, image.width(), image.height()), [&](int y, Row row) {
        const Bytes from = pixel_bytes(image, y);
        kernels.map_bytes(from.data(), table.data(), row.data(), std::ssize(from));
        clear_padding(row, image.width(), image.bits());
      });
}

Status map_indices(ImageSource& image, const LevelTable& table) {
  const LevelTable indices = of_indices(image, table);
  if (image.bits() == 8) return map_bytes(image, indices);
  LevelTable pairs{};
  for (int i = 0; i < 256; ++i) pairs[i] = byte(indices[i >> 4] << 4 | indices[i & 15]);
  return map_bytes(image, pairs);
}

}  // namespace

Status map_levels(ImageSource& image, const ColourTables& tables) {
  const auto& [blue, green, red] = tables;
  const bool equal = tables.all_equal();
  if (image.bits() <= 8) {
    if (equal && is_grey(image.palette())) return map_indices(image, blue);
    return replace_entries(image, [&](Rgb c) {
      return Rgb{tables.blue[c.blue], tables.green[c.green], tables.red[c.red], c.reserved};
    });
  }
  std::array<LevelTable, 4> channels{blue, green, red};
  if (has_inks(image)) {
    LevelTable mean{};
    for (int v = 0; v < 256; ++v) mean[v] = byte((blue[v] + green[v] + red[v] + 1) / 3);
    channels = {of_inks(red), of_inks(green), of_inks(blue), of_inks(mean)};
  } else {
    for (int v = 0; v < 256; ++v) channels[3][v] = byte(v);
  }
  if (equal && (image.bits() == 24 || has_inks(image))) return map_bytes(image, channels[0]);
  return replace_single_rows(image, same_kind(image, image.width(), image.height()),
                             [&](int y, Row row) {
                               const Bytes from = pixel_bytes(image, y);
                               image.bits() == 24 ? map_channels<3>(from, channels, row)
                                                  : map_channels<4>(from, channels, row);
                             });
}

Status tone_bitmap(ImageSource& image, std::int32_t brightness, std::int32_t contrast,
                   std::int32_t gamma) {
  release_display_cache(image.record());
  if (!has_levels(image)) return StatusCode::wrong_depth;
  if (!is_within(brightness, -100, 100) || !is_within(contrast, -100, 100) ||
      !is_within(gamma, 10, 1000)) {
    return StatusCode::unsupported;
  }
  return map_levels(image, ColourTables(pixels::tone_table(brightness, contrast, gamma)));
}

Status tone_table(ImageSource& image, const std::uint8_t* tables, int count) {
  release_display_cache(image.record());
  if (!has_levels(image)) return StatusCode::wrong_depth;
  if (tables == nullptr) return StatusCode::unsupported;
  std::array<LevelTable, 3> each{};
  for (int i = 0; i < 3; ++i) std::copy_n(tables + i % count * 256, 256, each[i].begin());
  return map_levels(image, {each[0], each[1], each[2]});
}

Status auto_levels(ImageSource& image, std::int32_t clip) {
  constexpr std::int32_t kDefault = -1, kUsual = 50, kMost = 4999, kAll = 10000;
  release_display_cache(image.record());
  if (!has_levels(image)) return StatusCode::wrong_depth;
  if (!is_within(clip, kDefault, kMost)) return StatusCode::unsupported;
  if (clip == kDefault) clip = kUsual;
  std::array<std::uint64_t, 256> counts{};
  for (const Channel channel : {Channel::blue, Channel::green, Channel::red}) {
    LevelCounts more{};
    TQ_TRY(count_levels(image, channel, more));
    for (int v = 0; v < 256; ++v) counts[v] += more[v];
  }
  const std::uint64_t cut = 3 * std::uint64_t(image.width()) * image.height() * clip / kAll;
  int low = 0, high = 255;
  for (std::uint64_t below = counts[0]; below <= cut; below += counts[low]) ++low;
  for (std::uint64_t above = counts[255]; above <= cut; above += counts[high]) --high;
  LevelTable table{};
  for (int v = 0; v < 256; ++v) {
    const int width = high - low, stretched = 255 * (std::clamp(v, low, high) - low);
    table[v] = width == 0 ? byte(v) : byte((2 * stretched + width) / (2 * width));
  }
  return map_levels(image, ColourTables(table));
}

namespace {

// How much each level of grey is raised so that all come equally often, as far as they can.
std::array<int, 256> equalising_steps(const LevelCounts& counts, std::uint64_t pixels) {
  const std::uint64_t least =
      *std::ranges::find_if(counts, [](std::uint64_t count) { return count > 0; });
  const std::uint64_t others = pixels - least;
  std::array<int, 256> steps{};
  std::uint64_t sum = 0;
  for (int v = 0; v < 256; ++v) {
    sum += counts[v];
    if (sum < least || others == 0) continue;
    steps[v] = static_cast<int>((2 * 255 * (sum - least) + others) / (2 * others)) - v;
  }
  return steps;
}

std::uint8_t moved(int level, int step) {
  return byte(std::clamp(level + step, 0, 255));
}

// Black gives way first, so that the colour moves by all of the step as long as any ink is left.
void move_inks(const std::uint8_t* from, int step, std::uint8_t* to) {
  to[3] = moved(from[3], -step);
  const int left = step - (from[3] - to[3]);
  for (int c = 0; c < 3; ++c) to[c] = moved(from[c], -left);
}

}  // namespace

Status equalize_bitmap(ImageSource& image) {
  release_display_cache(image.record());
  if (!has_levels(image)) return StatusCode::wrong_depth;
  LevelCounts counts{};
  TQ_TRY(count_levels(image, Channel::grey, counts));
  const std::array<int, 256> steps =
      equalising_steps(counts, std::uint64_t(image.width()) * image.height());
  if (image.bits() <= 8) {
    if (has_colour_palette(image)) {
      return replace_entries(image, [&](Rgb c) {
        const int step = steps[pixels::luma(c)];
        return Rgb{moved(c.blue, step), moved(c.green, step), moved(c.red, step), c.reserved};
      });
    }
    LevelTable table{};
    for (int v = 0; v < 256; ++v) table[v] = moved(v, steps[v]);
    return map_indices(image, table);
  }
  GreyRows greys(image, GreyKind::luma);
  TQ_TRY(greys.allocate());
  const int channels = image.bits() / 8;
  return replace_rows(image, same_kind(image, image.width(), image.height()), [&](int y, Row row) {
    const std::uint8_t* from = image.row(y).data();
    std::uint8_t* to = row.data();
    for (const std::uint8_t grey : greys.read(y)) {
      const int step = steps[grey];
      if (has_inks(image)) {
        move_inks(from, step, to);
      } else {
        for (int c = 0; c < 3; ++c) to[c] = moved(from[c], step);
        if (channels == 4) to[3] = from[3];
      }
      from += channels;
      to += channels;
    }
  });
}

}  // namespace tq::process
