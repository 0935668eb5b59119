// Stored values to grey, to palettes and to colours (PS3.3, C.7.6.3 and C.11).
#include "formats/dicom/values.h"

#include <cmath>

#include "pixels/colours.h"

namespace tq::dicom {
namespace {

constexpr int kSmallTable = 256;  // entries of a palette that images can have

bool is_small_palette(const DataSet& set) {
  return std::ranges::all_of(set.tables,
                             [](const auto& table) { return table.entries <= kSmallTable; });
}
bool is_grey(const DataSet& set) {
  return set.photometric <= Photometric::black_is_zero;
}

Rgb entry(const DataSet& set, std::ptrdiff_t i) {
  const auto level = [&](const DataSet::Table& table) {
    return i < std::ssize(table.levels.pixels()) ? table.levels[i] : std::uint8_t{0};
  };
  return {level(set.tables[2]), level(set.tables[1]), level(set.tables[0]), 0};
}

std::uint8_t rounded(double level) {
  return byte(static_cast<int>(std::floor(std::clamp(level, 0.0, 255.0) + 0.5)));
}

}  // namespace

HeaderBlock Values::image(const DataSet& set) {
  const bool in_palette = set.photometric == Photometric::palette && is_small_palette(set);
  HeaderBlock image = dib_header(set.columns, set.rows, is_grey(set) || in_palette ? 8 : 24);
  image.header.biXPelsPerMeter = set.x_dpi;
  image.header.biYPelsPerMeter = set.y_dpi;
  if (is_grey(set)) image.palette = pixels::grey_ramp();
  if (in_palette) {
    for (int i = 0; i < kSmallTable; ++i) image.palette[i] = entry(set, i);
  }
  return image;
}

Status Values::open(const DataSet& set, bool planes_apart) {
  set_ = &set;
  planes_apart_ = planes_apart;
  mask_ = 0xFFFFFFFF >> (32 - set.stored);
  has_window_ = set.has_centre && set.has_width;
  is_plain_ = set.stored == 8 && !set.is_signed && set.slope == 1 && set.intercept == 0;
  needs_range_ = is_grey(set) && !has_window_ && !is_plain_ && set.stored > 1;
  if (set.photometric >= Photometric::rgb) TQ_TRY(line_.allocate(std::int64_t{3} * set.columns));
  if (set.photometric == Photometric::palette && !is_small_palette(set)) {
    return colours_.allocate(std::int64_t{1} << set.stored);
  }
  return set.stored > 16 ? kOk : levels_.allocate(std::int64_t{1} << set.stored);
}

std::int64_t Values::stored(std::uint32_t value) const {
  const std::int64_t sign = std::int64_t{1} << (set_->stored - 1);
  return set_->is_signed && (value & sign) != 0 ? value - 2 * sign : std::int64_t{value};
}

void Values::look_at(std::span<const std::uint32_t> samples) {
  for (const std::uint32_t sample : samples) {
    const std::int64_t value = stored(sample >> set_->shift() & mask_);
    least_ = std::min(least_, value);
    most_ = std::max(most_, value);
  }
}

double Values::meaning(std::int64_t value) const {
  return set_->slope * static_cast<double>(value) + set_->intercept;
}

std::uint8_t Values::level(std::uint32_t value) const {
  const double shown = meaning(stored(value));
  if (has_window_) {
    const double centre = set_->centre - 0.5, width = set_->width - 1;
    if (width <= 0) return shown <= centre ? 0 : 255;
    return rounded(((shown - centre) / width + 0.5) * 255);
  }
  if (is_plain_) return byte(value);
  if (set_->stored == 1) return value == 0 ? 0 : 255;
  const double one = meaning(least_), other = meaning(most_);
  const double black = std::min(one, other), range = std::max(one, other) - black;
  return range > 0 ? rounded((shown - black) / range * 255) : std::uint8_t{0};
}

void Values::prepare() {
  const DataSet::Table& red = set_->tables[0];
  // Values beyond either end of a palette have its last colours (PS3.3, C.7.6.3.1.5).
  const auto index_of = [&](std::uint32_t value) {
    return static_cast<std::ptrdiff_t>(
        std::clamp<std::int64_t>(stored(value) - red.first, 0, red.entries - 1));
  };
  for (std::uint32_t i = 0; i < colours_.size(); ++i) colours_[i] = entry(*set_, index_of(i));
  for (std::uint32_t i = 0; i < levels_.size(); ++i) {
    levels_[i] = is_grey(*set_) ? inverted(level(i))
                 : set_->photometric == Photometric::palette
                     ? byte(index_of(i))
                     : byte((2 * 255 * i + mask_) / (2 * mask_));
  }
}

void Values::convert(Samples samples, pixels::Row row) {
  const auto value = [&](std::uint32_t sample) { return sample >> set_->shift() & mask_; };
  if (set_->photometric >= Photometric::rgb) {
    convert_colours(samples, row);
  } else if (colours_.size() != 0) {
    for (int x = 0; x < set_->columns; ++x) {
      const Rgb colour = colours_[value(samples[x])];
      row[3 * x] = colour.blue;
      row[3 * x + 1] = colour.green;
      row[3 * x + 2] = colour.red;
    }
  } else if (levels_.size() != 0) {
    for (int x = 0; x < set_->columns; ++x) row[x] = levels_[value(samples[x])];
  } else {
    for (int x = 0; x < set_->columns; ++x) row[x] = inverted(level(value(samples[x])));
  }
}

void Values::convert_colours(Samples samples, pixels::Row row) {
  const auto level_at = [&](std::ptrdiff_t i) {
    return levels_[samples[i] >> set_->shift() & mask_];
  };
  const std::ptrdiff_t count = std::ssize(line_.pixels());
  if (set_->photometric == Photometric::ybr_full_422) {
    // Two brightnesses, then what both have of blue and red.
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const std::ptrdiff_t x = i / 3, pair = x / 2 * 4;
      line_[i] = level_at(pair + (i % 3 == 0 ? x % 2 : i % 3 + 1));
    }
  } else {
    for (std::ptrdiff_t i = 0; i < count; ++i) line_[i] = level_at(i);
  }
  const pixels::Layout layout = planes_apart_ ? pixels::Layout::rgb_planes : pixels::Layout::rgb;
  unpack(*pixels::find_layout(layout, 24), line_.pixels(), set_->columns, row);
  if (set_->photometric != Photometric::rgb) pixels::mix_luma_and_chroma(row, set_->columns);
}

}  // namespace tq::dicom
